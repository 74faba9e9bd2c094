// Clients that somebody starts by hand, and commands that want an exchange and no verdict.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "quorl/client/fix_session.h"
#include "quorl/client/port_slot.h"
#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using testing::HasSubstr;
using tools_test::Said;

/// The number in a line such as "  QUORL_FIX_PORT=4001".
uint16_t port_in(const tools_test::Tool& tool, const std::string& variable) {
  const std::string line = tool.complains(variable + "=");
  return static_cast<uint16_t>(std::stoi(line.substr(line.find('=') + 1)));
}

TEST(ByHand, a_client_is_told_where_to_go_and_awaited) {
  const Certification certification;
  const std::string plan = certification.plan(
      "plan", "title Attached\nstep when logons >= 1 partial 1\nend after 300ms\nlimit 20s\n");
  const auto tool = certification.start({"--attach", plan}, {});
  client::FixSession session(port_in(*tool, "QUORL_FIX_PORT"), "HAND");
  session.logon({.heartbeat_s = "30", .reset = true});
  const Said said = tool->end(RUN_PATIENCE);
  EXPECT_THAT(certification.text_of("plan", "report.txt"), HasSubstr("the plan: after 300ms"));
  EXPECT_THAT(said.err, HasSubstr("QUORL_FEED_GROUP=239."));
  EXPECT_TRUE(no_process_stays_with("CERTIFY_TEST", certification.place()));
}

TEST(ByHand, ports_are_those_that_were_asked_for) {
  const Certification certification;
  const client::PortSlot slot;
  const std::string plan = certification.plan("plan", "title Fixed\nlimit 3s\n");
  const auto tool = certification.start(
      {"--attach", plan, "--fix-port", std::to_string(slot.ports().fix), "--mcast",
       slot.ports().group, "--port", std::to_string(slot.ports().feed)},
      {});
  EXPECT_EQ(port_in(*tool, "QUORL_FIX_PORT"), slot.ports().fix);
  EXPECT_EQ(port_in(*tool, "QUORL_FEED_PORT"), slot.ports().feed);
  EXPECT_THAT(tool->complains("QUORL_FEED_GROUP"), HasSubstr(slot.ports().group));
  client::FixSession session(slot.ports().fix, "HAND");
  session.logon({.heartbeat_s = "30", .reset = true});
  (void)tool->end(RUN_PATIENCE);
  EXPECT_THAT(certification.text_of("plan", "report.txt"), HasSubstr("the limit of 3s"));
}

TEST(ByHand, the_person_may_end_the_run_and_is_judged_by_what_was_seen) {
  const Certification certification;
  const std::string plan = certification.plan("plan", "title By hand\nlimit 60s\n");
  const auto tool = certification.start({"--attach", plan, "--skip", "session.logout"}, {});
  client::FixSession session(port_in(*tool, "QUORL_FIX_PORT"), "HAND");
  session.logon({.heartbeat_s = "30", .reset = true});
  tool->signal(SIGINT);
  const Said said = tool->end(RUN_PATIENCE);
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_THAT(certification.text_of("plan", "report.txt"), HasSubstr("a signal"));
}

TEST(ByHand, nobody_came) {
  const Certification certification;
  const std::string plan = certification.plan("plan", "title Nobody\nlimit 60s\n");
  const auto tool = certification.start({"--attach", plan}, {});
  (void)port_in(*tool, "QUORL_FIX_PORT");
  tool->signal(SIGINT);
  const Said said = tool->end(RUN_PATIENCE);
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, HasSubstr("before a client came"));
}

TEST(NoPlan, the_exchange_serves_when_the_command_starts_and_its_status_counts) {
  const Certification certification;
  const Said good = certification.judge({"--no-plan"}, strange_client("flood", "10"));
  EXPECT_EQ(good.status, 0) << good.err;
  EXPECT_THAT(certification.text_of("no-plan", "exchange.log"), HasSubstr("bench: logon STRANGE"));
  EXPECT_EQ(certification.judge({"--no-plan"}, {"sh", "-c", "exit 7"}).status, 1);
  EXPECT_TRUE(no_process_stays_with("CERTIFY_TEST", certification.place()));
}

TEST(NoPlan, the_command_has_our_streams_and_the_market_that_was_asked_for) {
  const Said said =
      tools_test::run_tool("certify",
                           {"--no-plan", "--market", "--symbols ONE:10.00 --seed 3", "--", "sh",
                            "-c", "cat; echo $QUORL_SYMBOLS {symbols}; echo complaint >&2"},
                           "typed");
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_EQ(said.out, "typed\nONE ONE\n");
  EXPECT_EQ(said.err, "complaint\n");
}

TEST(NoPlan, a_signal_ends_the_command_and_what_it_has_started) {
  const Certification certification;
  const auto tool = certification.start({"--no-plan"}, {"sh", "-c", "sleep 100 & echo on; wait"});
  tool->prints("on");
  tool->signal(SIGTERM);
  EXPECT_EQ(tool->end(RUN_PATIENCE).status, 3);
  EXPECT_TRUE(processes_with("CERTIFY_TEST", certification.place()).empty());
}

}  // namespace
}  // namespace certify_test
