// Runs beside each other, and runs that are ended from outside.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "quorl/client/port_slot.h"
#include "tests/certify/e2e/support/certification.h"
#include "tests/tools/support/other_world.h"

namespace certify_test {
namespace {

using testing::HasSubstr;
using tools_test::Said;

/// What the client's script wrote into a file of the run, once it is there.
std::string awaited(const std::string& path) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (!deadline.expired()) {
    const std::string text = client::read_file(path);
    if (text.ends_with('\n')) return text;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return "";
}

constexpr const char* TELLS_PORTS =
    "echo $QUORL_FIX_PORT $QUORL_SNAP_PORT $QUORL_CONTROL_PORT $QUORL_FEED_GROUP >$QUORL_RUN/told; "
    "exec sleep 100";

TEST(Beside, runs_never_meet) {
  const Certification certification;
  std::vector<std::string> words = {"--jobs", "4"};
  for (const std::string name : {"a", "b", "c", "d"}) {
    words.push_back(certification.plan(
        name, "title Beside\nend when orders >= 30 and client ended\nlimit 40s\n"));
  }
  (void)certification.judge(words, strange_client("flood", "30"));
  std::set<std::string> ports;
  for (const std::string name : {"a", "b", "c", "d"}) {
    const std::string log = certification.text_of(name, "exchange.log");
    EXPECT_THAT(log, HasSubstr("orders=30 accepts=30"));  // one client each
    const size_t at = log.find("[quorl] DEEP/IEX-TP ");
    ASSERT_NE(at, std::string::npos);
    ports.insert(log.substr(at, log.find('\n', at) - at));
  }
  EXPECT_EQ(ports.size(), 4U);
}

class Interrupted : public testing::TestWithParam<int> {};

/// What `signal` leaves of a run. Its ports must not be taken by another test meanwhile.
void is_interrupted_by(int signal) {
  const Certification certification;
  const std::string plan = certification.plan("plan", "title Interrupted\nlimit 60s\n");
  const auto tool = certification.start({plan}, {"sh", "-c", TELLS_PORTS});
  std::istringstream told(awaited(certification.path_of("plan", "told")));
  uint16_t fix = 0;
  uint16_t snap = 0;
  uint16_t control = 0;
  told >> fix >> snap >> control;
  ASSERT_NE(control, 0);
  // Judge, exchange and client. While a process becomes another program it shows no environment.
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (processes_with("CERTIFY_TEST", certification.place()).size() < 3) {
    ASSERT_FALSE(deadline.expired());
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  tool->signal(signal);
  const Said said = tool->end(RUN_PATIENCE);
  EXPECT_EQ(said.status, 3) << said.err;
  EXPECT_THAT(said.err, HasSubstr("stopped by a signal"));
  EXPECT_TRUE(processes_with("CERTIFY_TEST", certification.place()).empty());
  EXPECT_TRUE(client::tcp_port_is_free(fix));
  EXPECT_TRUE(client::tcp_port_is_free(snap));
  EXPECT_TRUE(client::udp_port_is_free(control));
  EXPECT_THAT(certification.text_of("plan", "timeline.txt"), HasSubstr("signal 15"));
  EXPECT_THAT(certification.text_of("plan", "report.txt"), HasSubstr("stopped by a signal"));
}

TEST_P(Interrupted, leaves_no_process_and_no_port_and_what_was_recorded_stays) {
  if (!tools_test::in_own_network([] { is_interrupted_by(GetParam()); })) {
    GTEST_SKIP() << "needs the right to make a network";
  }
}

INSTANTIATE_TEST_SUITE_P(Certify, Interrupted, testing::Values(SIGINT, SIGTERM));

/// What stops the judge and not the client is no fault of the client's.
TEST(DisturbedRuns, are_played_again) {
  const Certification certification;
  const std::string plan =
      certification.plan("plan", "title Disturbed\nend when client ended\nlimit 30s\n");
  const auto tool = certification.start(
      {plan}, {"sh", "-c",
               "echo $$ >$QUORL_RUN/told; while [ ! -e $CERTIFY_TEST/go ]; do sleep 0.1; done"});
  ASSERT_NE(awaited(certification.path_of("plan", "told")), "");
  tool->signal(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // the time is what it is about
  tool->signal(SIGCONT);
  std::ofstream(certification.place() + "/go").flush();
  ASSERT_NE(awaited(certification.path_of("plan.disturbed-1", "told")), "");
  ASSERT_NE(awaited(certification.path_of("plan", "told")), "");
  const Said said = tool->end(RUN_PATIENCE);
  EXPECT_EQ(said.status, 3) << said.out;  // nothing was seen
  EXPECT_THAT(certification.text_of("plan", "report.txt"), HasSubstr("this is try "));
}

TEST(InterruptedRuns, runs_that_had_not_begun_are_named_too) {
  const Certification certification;
  const std::string one = certification.plan("one", "title One\nlimit 60s\n");
  const std::string other = certification.plan("other", "title Other\nlimit 60s\n");
  const auto tool = certification.start({one, other}, {"sh", "-c", TELLS_PORTS});
  ASSERT_NE(awaited(certification.path_of("one", "told")), "");
  tool->signal(SIGINT);
  const Said said = tool->end(RUN_PATIENCE);
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, HasSubstr("other: broken, stopped by a signal before it began"));
  EXPECT_FALSE(std::filesystem::exists(certification.path_of("other", "")));
}

TEST(InterruptedRuns, a_judge_that_is_killed_takes_exchange_and_client_with_it) {
  const Certification certification;
  const std::string plan = certification.plan("plan", "title Killed\nlimit 60s\n");
  const auto tool = certification.start({plan}, {"sh", "-c", TELLS_PORTS});
  ASSERT_NE(awaited(certification.path_of("plan", "told")), "");
  tool->signal(SIGKILL);
  EXPECT_EQ(tool->end(RUN_PATIENCE).status, -1);
  EXPECT_TRUE(no_process_stays_with("CERTIFY_TEST", certification.place()));
}

}  // namespace
}  // namespace certify_test
