// The plans that come with it: the good trader passes every one, and so that it proves something.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/certify/e2e/support/certification.h"
#include "tests/e2e/support/built.h"

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
  words.insert(words.end(), {"--jobs", "4"});
  const auto run = certification.start(words, {built_program("quorl-trader")});
  const tools_test::Said said = run->end(PATIENCE_WITH_ALL);
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_THAT(said.out,
              HasSubstr(std::to_string(count) + " plans:  " + std::to_string(count) + " passed"));
}

constexpr const char* PYTHON_CLIENT = QUORL_SOURCE "/examples/certify/python_client.py";

TEST(FirstClient, in_another_language_passes_a_calm_day) {
  const Certification certification;
  const tools_test::Said said = certification.judge(
      {QUORL_SOURCE "/plans/calm.plan", "--skip", "feed"}, {"python3", PYTHON_CLIENT});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
}

TEST(FirstClient, that_does_not_come_back_from_a_drop_proves_nothing_by_that_plan) {
  const Certification certification;
  // Whether it is to blame for what it did not fetch depends on how soon the run ends behind it.
  const tools_test::Said said = certification.judge(
      {QUORL_SOURCE "/plans/scripted-drop.plan", "--skip", "feed", "--skip", "recovery.reports"},
      {"python3", PYTHON_CLIENT});
  EXPECT_EQ(said.status, 3) << said.out << said.err;
}

}  // namespace
}  // namespace certify_test
