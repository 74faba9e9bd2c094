// The judge is just: a trader with one bad habit fails the check of that habit, and no other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "tests/certify/e2e/support/certification.h"
#include "tests/e2e/support/built.h"

namespace certify_test {
namespace {

using testing::ElementsAre;

constexpr const char* HEAD =
    "title Spoilt\n"
    "market --symbols AAPL:190.00,MSFT:410.00 --seed 5 --touch-hit 0.4\n";
constexpr const char* CALM = "end at 8s\nlimit 60s\nrequire orders >= 3\n";

struct Case {
  const char* check;
  std::string plan;                       // how its occasion comes about
  std::vector<std::string> options = {};  // of the trader
};

// Few orders, so that Heartbeats are due in between.
const std::vector<std::string> SELDOM{"--rate", "0.6"};
constexpr const char* DROP =
    "step when orders >= 3 disconnect\n"
    "step when disconnects >= 1 and logons >= 2 mark back\n"
    "end after 5s\n"
    "limit 60s\n";

std::vector<Case> cases() {
  return {
      {"session.frames", CALM, SELDOM},
      {"session.header", CALM, SELDOM},
      {"session.times", CALM, SELDOM},
      {"session.numbers", CALM, SELDOM},
      {"session.logon", DROP},
      {"session.heartbeats", CALM},
      // What the client sends into the stalled line is lost with it: its numbers are ahead.
      {"session.resend_answered",
       "step when orders >= 3 link stall 30s fix to exchange\n"
       "step after 4s link cut fix\n"
       "step after 0s link clear\n"
       "step when logons >= 2 and logons_ahead >= 1 mark back\n"
       "end after 5s\n"
       "limit 60s\n",
       {"--heartbeat", "2"}},
      {"session.gap_asked", DROP},
      {"session.asked_once", CALM},
      {"session.duplicates", DROP},
      // The answer is long under way: it cannot be there before the client leaves.
      {"session.logout",
       "step at 0s link delay 1s fix to client\n"
       "step when connects >= 2 link clear\n"
       "end when orders >= 3 and after 3s\n"
       "limit 60s\n"},
      {"session.reconnects", CALM},
      {"orders.tags", CALM},
      {"orders.names_unique", CALM},
      {"orders.names_live", CALM},
      {"orders.closed_left_alone", CALM},
      {"orders.replace_above_filled", CALM},
      {"orders.session_up", CALM},
      {"orders.no_blind_repetition",
       "step when orders >= 3 reject 8\n"
       "end when rejects >= 8 and after 1s\n"
       "limit 60s\n"
       "require rejects >= 8\n"},
      {"recovery.reports",
       "step when orders >= 3 disconnect\n"
       "step when disconnects >= 1 mark gone\n"
       "end after 5s\n"
       "limit 60s\n"
       "allow recovery 2s\n"},
      {"recovery.lapse",
       "step when orders >= 3 lapse 6000\n"
       "end when lapses >= 1 and after 8s\n"
       "limit 60s\n"
       "require lapses >= 1\n"},
      {"feed.recovered",
       "step when orders >= 3 drop 5\n"
       "end after 5s\n"
       "limit 60s\n"
       "allow recovery 2s\n"
       "require dropped >= 5\n"},
      {"feed.only_missing", "end at 10s\nlimit 60s\nrequire orders >= 3\n"},
      {"feed.requests_formed", CALM},
      {"feed.request_limits", CALM},
      {"feed.late_join", std::string("allow recovery 2s\n") + CALM},
      {"belief.positions", CALM},
      {"belief.events", CALM},
      {"belief.book", CALM},
  };
}

/// How ctest names it.
void PrintTo(const Case& spoilt, std::ostream* out) { *out << spoilt.check; }

class Spoilt : public testing::TestWithParam<Case> {};

std::vector<std::string> failed_checks(const std::string& report) {
  std::vector<std::string> failed;
  const nlohmann::json all = nlohmann::json::parse(report);
  for (const auto& verdict : all.at("checks")) {
    if (verdict.at("outcome") == "failed") failed.push_back(verdict.at("check"));
  }
  return failed;
}

TEST_P(Spoilt, trader_fails_its_own_check_and_no_other) {
  const Case& spoilt = GetParam();
  const Certification certification;
  const std::string plan = certification.plan("spoilt", HEAD + spoilt.plan);
  std::vector<std::string> client{built_program("certify_spoilt_trader"), spoilt.check};
  client.insert(client.end(), spoilt.options.begin(), spoilt.options.end());
  const tools_test::Said said = certification.judge({plan}, client);
  EXPECT_EQ(said.status, 1) << said.out << said.err;
  EXPECT_THAT(failed_checks(certification.text_of("spoilt", "report.json")),
              ElementsAre(spoilt.check))
      << certification.text_of("spoilt", "report.txt");
}

TEST(Good, trader_that_asks_for_all_there_is_takes_nothing_twice) {
  const Certification certification;
  const std::string plan =
      certification.plan("good", std::string(HEAD) + DROP + "expect session.duplicates\n");
  const tools_test::Said said =
      certification.judge({plan}, {built_program("certify_spoilt_trader"), "nothing"});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
}

INSTANTIATE_TEST_SUITE_P(Certify, Spoilt, testing::ValuesIn(cases()), [](const auto& spoilt) {
  std::string name = spoilt.param.check;
  std::replace(name.begin(), name.end(), '.', '_');
  return name;
});

}  // namespace
}  // namespace certify_test
