#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "certify/plan/plan.h"

namespace certify {
namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;

// A copy, as the checks stand above the plans. The program reads plans with their own names.
const std::set<std::string> ALL_CHECKS = {
    "session.frames",
    "session.header",
    "session.times",
    "session.numbers",
    "session.logon",
    "session.test_request",
    "session.heartbeats",
    "session.resend_answered",
    "session.gap_asked",
    "session.asked_once",
    "session.duplicates",
    "session.logout",
    "session.reconnects",
    "orders.tags",
    "orders.names_unique",
    "orders.names_live",
    "orders.closed_left_alone",
    "orders.replace_above_filled",
    "orders.session_up",
    "orders.no_blind_repetition",
    "recovery.reports",
    "recovery.lapse",
    "feed.recovered",
    "feed.only_missing",
    "feed.requests_formed",
    "feed.request_limits",
    "feed.late_join",
    "belief.positions",
    "belief.events",
    "belief.book",
};

std::vector<std::string> shipped() {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(QUORL_SOURCE "/plans")) {
    paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

TEST(ShippedPlans, are_one_for_each_misbehaviour) {
  std::vector<std::string> names;
  for (const std::string& path : shipped()) names.push_back(std::filesystem::path(path).filename());
  EXPECT_THAT(
      names,
      IsSupersetOf({"burst.plan", "calm.plan", "crossing-replace.plan", "drop.plan",
                    "duplicate.plan", "everything.plan", "gap-beyond-retention.plan", "lapse.plan",
                    "late-join.plan", "lost-race.plan", "partial-fill.plan", "reject.plan",
                    "reorder.plan", "replace-reject.plan", "reset.plan", "scripted-drop.plan",
                    "sequence-ahead.plan", "sequence-too-low.plan", "unsolicited-cancel.plan"}));
}

class ShippedPlan : public testing::TestWithParam<std::string> {};

TEST_P(ShippedPlan, is_read_and_says_what_a_good_client_does) {
  const Plan plan = load_plan(GetParam(), ALL_CHECKS);
  EXPECT_NE(plan.title, "");
  EXPECT_THAT(plan.purpose, HasSubstr("\n\nA good client "))
      << "what comes, and what is to be done";
  EXPECT_FALSE(plan.market.empty());
  EXPECT_NE(std::find(plan.market.begin(), plan.market.end(), "--seed"), plan.market.end())
      << "the market is the same again";
}

TEST_P(ShippedPlan, ends_soon_and_proves_that_it_came_about) {
  const Plan plan = load_plan(GetParam(), ALL_CHECKS);
  EXPECT_FALSE(plan.end.empty());
  EXPECT_LE(plan.limit, Milliseconds(90000));
  EXPECT_FALSE(plan.require.empty());
}

/// A repair that may take as long as the run goes on behind the last fault is never judged.
TEST_P(ShippedPlan, leaves_more_time_than_a_repair_is_allowed) {
  const Plan plan = load_plan(GetParam(), ALL_CHECKS);
  if (!plan.expect.contains("feed.recovered")) return;
  const auto after = std::find_if(plan.end.begin(), plan.end.end(),
                                  [](const Term& term) { return term.kind == Term::Kind::AFTER; });
  ASSERT_NE(after, plan.end.end());
  EXPECT_GE(after->time, plan.allow.recovery + plan.allow.grace);
}

std::string name_of(const testing::TestParamInfo<std::string>& plan) {
  std::string name = std::filesystem::path(plan.param).stem();
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, ShippedPlan, testing::ValuesIn(shipped()), name_of);

}  // namespace
}  // namespace certify
