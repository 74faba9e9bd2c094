// The plans that come with it: the good trader passes every one, and so that it proves something.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using testing::HasSubstr;

constexpr std::chrono::seconds PATIENCE_WITH_ALL{280};

std::vector<std::string> all_plans() {
  std::vector<std::string> plans;
  for (const auto& entry : std::filesystem::directory_iterator(QUORL_SOURCE "/plans")) {
    if (entry.path().extension() == ".plan") plans.push_back(entry.path());
  }
  std::sort(plans.begin(), plans.end());
  return plans;
}

/// A status of 0 says that no check failed, that each plan's misbehaviour came about, and that what
/// it expects to be seen was seen.
TEST(Plans, are_passed_by_the_good_trader) {
  const Certification certification;
  std::vector<std::string> words = all_plans();
  const size_t count = words.size();
  ASSERT_GE(count, 19u);
  words.insert(words.end(), {"--jobs", "8"});
  const auto run = certification.start(words, {QUORL_TOOLS "/quorl-trader"});
  const tools_test::Said said = run->end(PATIENCE_WITH_ALL);
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_THAT(said.out,
              HasSubstr(std::to_string(count) + " plans:  " + std::to_string(count) + " passed"));
}

}  // namespace
}  // namespace certify_test
