// A disk without room.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/certify/e2e/support/certification.h"
#include "tests/tools/support/other_world.h"

namespace certify_test {
namespace {

using testing::HasSubstr;
using tools_test::Said;

TEST(DiskFull, a_run_that_cannot_be_recorded_says_so_and_proves_nothing) {
  const Certification certification;
  const std::string plan = certification.plan("plan", "title Full\nlimit 60s\n");
  std::filesystem::create_directory(certification.place() + "/out");
  Said said;
  const bool ran = tools_test::with_disk("size=262144", certification.place() + "/out", [&] {
    said = certification.judge({plan}, strange_client("flood", "3000"));
  });
  if (!ran) GTEST_SKIP() << "no disk of our own can be had here";
  EXPECT_EQ(said.status, 3) << said.out << said.err;
  EXPECT_THAT(said.err, HasSubstr("broken"));
  EXPECT_TRUE(no_process_stays_with("CERTIFY_TEST", certification.place()));
}

}  // namespace
}  // namespace certify_test
