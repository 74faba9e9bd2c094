// What runs end with, and why.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/certify/e2e/support/certification.h"
#include "tests/e2e/support/built.h"

namespace certify_test {
namespace {

using testing::HasSubstr;
using testing::Not;
using tools_test::Said;

class Status : public testing::Test {
 protected:
  Certification certification;
  std::string report() const { return certification.text_of("plan", "report.txt"); }
};

TEST_F(Status, is_0_where_nothing_is_wrong) {
  const std::string plan =
      certification.plan("plan", "title Good\nend when orders >= 3 and after 500ms\nlimit 60s\n");
  const Said said = certification.judge({plan}, {built_program("quorl-trader")});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_THAT(report(), HasSubstr("exit status 0"));
}

TEST_F(Status, is_3_where_a_requirement_is_not_met) {
  const std::string plan =
      certification.plan("plan", "title Unmet\nlimit 9s\nrequire orders >= 3\n");
  const Said said = certification.judge_script({plan}, "exit 0");
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(report(), HasSubstr("orders >= 3 (orders is 0)"));
}

TEST_F(Status, is_3_where_a_step_never_had_its_turn) {
  const std::string plan =
      certification.plan("plan", "title Not done\nstep when orders >= 1 drop 3\nlimit 500ms\n");
  const Said said = certification.judge_script({plan}, "exec sleep 100");
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(report(), HasSubstr("step when orders >= 1, drop 3"));
}

TEST_F(Status, is_3_where_an_expected_check_had_no_occasion) {
  const std::string plan =
      certification.plan("plan", "title Expecting\nlimit 9s\nexpect session.logon\n");
  const Said said = certification.judge_script({plan}, "exit 0");
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(report(), HasSubstr("session.logon"));
}

TEST_F(Status, is_3_where_the_client_cannot_be_run) {
  const std::string plan = certification.plan("plan", "title Not run\nlimit 60s\n");
  const Said said = certification.judge_script({plan}, "exec no-such-program-at-all");
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, HasSubstr("the client could not be started: exit status 127"));
}

TEST_F(Status, is_3_where_the_client_crashes) {
  const std::string plan = certification.plan("plan", "title Crash\nlimit 60s\n");
  EXPECT_EQ(certification.judge_script({plan}, "kill -SEGV $$").status, 3);
  EXPECT_THAT(report(), HasSubstr("a client that lives (it crashed: signal 11)"));
  EXPECT_EQ(certification.judge_script({plan}, "sh -c 'kill -SEGV $$'; exit $?").status, 3);
}

TEST_F(Status, is_3_where_the_client_does_nothing) {
  const std::string plan = certification.plan("plan", "title Giving up\nlimit 60s\n");
  EXPECT_EQ(certification.judge_script({plan}, "exit 1").status, 3);
  EXPECT_THAT(report(), HasSubstr("no check was seen; it ended with exit status 1"));
  EXPECT_EQ(certification.judge_script({plan}, "exit 0").status, 3);
}

TEST_F(Status, is_3_where_somebody_else_ends_the_exchange) {
  const std::string plan = certification.plan("plan", "title Stopped\nlimit 60s\n");
  const Said said = certification.judge({plan}, strange_client("stop-exchange"));
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, HasSubstr("the exchange ended by itself"));
}

TEST_F(Status, is_0_where_the_plan_ends_the_exchange) {
  const std::string plan = certification.plan(
      "plan", "title Stopping\nstep when orders >= 1 stop\nend after 500ms\nlimit 9s\n");
  const Said said = certification.judge({plan, "--skip", "recovery", "--skip", "belief"},
                                        {built_program("quorl-trader"), "--no-feed"});
  EXPECT_EQ(said.status, 0) << said.err << report();
}

TEST_F(Status, is_that_of_the_worst_run_and_a_failure_is_worse_than_a_doubt) {
  const std::string good = certification.plan("good", SHORT);
  const std::string doubtful =
      certification.plan("doubtful", "title Doubtful\nlimit 60s\nrequire orders >= 3\n");
  const Said three = certification.judge_script({good, doubtful}, "exit 0");
  EXPECT_EQ(three.status, 3);
  const std::string bad = certification.plan("bad", "title Bad\nlimit 60s\n");
  const Said one = certification.judge({bad, doubtful}, strange_client("garbage"));
  EXPECT_EQ(one.status, 1);
}

TEST_F(Status, a_run_ends_at_the_plans_word_at_the_clients_end_and_at_the_limit) {
  const std::string by_plan =
      certification.plan("by-plan", "title By plan\nend after 300ms\nlimit 50s\n");
  const std::string by_limit = certification.plan("by-limit", "title By limit\nlimit 300ms\n");
  EXPECT_EQ(certification.judge_script({by_plan, by_limit}, "exec sleep 100").status, 3);
  EXPECT_THAT(certification.text_of("by-plan", "report.txt"), HasSubstr("the plan: after 300ms"));
  EXPECT_THAT(certification.text_of("by-limit", "report.txt"), HasSubstr("the limit of 300ms"));
  EXPECT_THAT(certification.text_of("by-limit", "report.txt"), HasSubstr("signal 15"));
}

TEST_F(Status, a_skipped_check_fails_nobody) {
  const std::string plan = certification.plan("plan", "title Bad\nlimit 60s\n");
  const Said said = certification.judge({plan, "--skip", "session", "--skip", "orders.tags"},
                                        strange_client("garbage"));
  EXPECT_EQ(said.status, 3) << said.out;  // and nothing else was seen
}

}  // namespace
}  // namespace certify_test
