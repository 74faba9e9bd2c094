// The small parts of a run, each by itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "certify/run/belief_files.h"
#include "certify/run/client_process.h"
#include "certify/run/control_link.h"
#include "certify/run/drain.h"
#include "certify/run/event_tail.h"
#include "certify/run/feed_fault.h"
#include "certify/run/process_group.h"
#include "certify/run/run_folder.h"
#include "certify/run/run_options.h"
#include "certify/run/verdict.h"
#include "quorl/client/errors.h"
#include "quorl/client/temp_directory.h"

namespace certify {
namespace {

namespace client = quorl::client;

using Status = RunResult::Status;

TEST(RunFolder, takes_the_next_free_name) {
  const client::TempDirectory place;
  const std::string parent = place.path() + "/a/b";
  EXPECT_EQ(RunFolder(parent, "drop").path(), parent + "/drop");
  EXPECT_EQ(RunFolder(parent, "drop").path(), parent + "/drop-2");
  EXPECT_EQ(RunFolder(parent, "drop").path(), parent + "/drop-3");
  EXPECT_TRUE(RunFolder(parent, "drop").has_room());
  EXPECT_THROW(RunFolder("/dev/null/no", "drop"), client::SystemError);
  EXPECT_EQ(folder_time(1'795'319'848 * SECOND), "20261122-035728");
}

TEST(Drain, keeps_no_more_than_it_is_told_and_reads_on) {
  const client::TempDirectory place;
  Drain drain(place.path() + "/out", 5);
  ASSERT_EQ(::write(drain.writing_end(), "1234", 4), 4);
  drain.take();
  EXPECT_EQ(drain.latest(), "1234");
  ASSERT_EQ(::write(drain.writing_end(), "5678", 4), 4);
  drain.close_writing_end();
  drain.take();
  drain.take();
  EXPECT_TRUE(drain.ended());
  EXPECT_EQ(drain.taken(), 8U);
  EXPECT_EQ(drain.written(), 5U);
  EXPECT_EQ(client::read_file(place.path() + "/out"), "12345");
}

TEST(FeedFault, is_read_from_the_lines_of_the_exchange) {
  const auto dropped = feed_fault_in("quorl fault: dropped seq 220 (packet 9, 15 message(s))");
  ASSERT_TRUE(dropped);
  EXPECT_EQ(dropped->kind, FeedFault::Kind::DROPPED);
  EXPECT_EQ(dropped->first_seq, 220U);
  EXPECT_EQ(dropped->messages, 15U);
  EXPECT_EQ(feed_fault_in("quorl fault: duplicated seq 279")->kind, FeedFault::Kind::DOUBLED);
  const auto held = feed_fault_in("quorl fault: reordered seq 340 (held behind the next packet)");
  EXPECT_EQ(held->kind, FeedFault::Kind::HELD);
  EXPECT_EQ(held->first_seq, 340U);
  EXPECT_FALSE(feed_fault_in("quorl faults: sent 5 dropped 0 duplicated 0 reordered 0"));
  EXPECT_FALSE(feed_fault_in("bench: logon quorl fault: dropped seq 1"));
}

TEST(EventTail, hands_over_whole_lines_and_bears_strange_ones) {
  const client::TempDirectory place;
  const std::string path = place.path() + "/orders.jsonl";
  EventTail tail(path);
  EXPECT_TRUE(tail.take().empty());
  std::ofstream file(path);
  const std::string line =
      R"({"t":1795264213761901988,"ev":"new","cl":"o1","oid":1372,"symbol":"AAPL","side":"B",)"
      R"("qty":100,"px":185,"cum":0,"leaves":100,"last_qty":0,"text":""})";
  file << line.substr(0, 40) << std::flush;
  EXPECT_TRUE(tail.take().empty());
  file << line.substr(40) << "\nno line\n" << line << "\n" << std::flush;
  const auto events = tail.take();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].cl, "o1");
  EXPECT_EQ(tail.strange_lines(), 1U);
}

TEST(ControlLink, knows_the_counters_by_the_names_of_plans) {
  const auto counters = counters_in(
      "ok orders=3 accepts=1 fills=4 partials=1 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
      "cancel_rejects=0 unsolicited_cancels=0 race_fills=2 late_cancels=0 stale_cancels=0 logins=1 "
      "logons=1 resend_requests=0 replays=0 replayed=0 next_seq=2012 quorl faults: sent 100 "
      "dropped 7 duplicated 0 reordered 0 session=up");
  ASSERT_TRUE(counters);
  EXPECT_EQ(counters->at("orders"), 3U);
  EXPECT_EQ(counters->at("race_fills"), 2U);
  EXPECT_EQ(counters->at("next_seq"), 2012U);
  EXPECT_EQ(counters->at("dropped"), 7U);
  EXPECT_EQ(counters->at("session"), 1U);
  for (const std::string name : {"ok", "", "ok stopping", "ok orders=x"}) {
    EXPECT_FALSE(counters_in(name)) << name;
  }
}

TEST(RunOptions, the_seed_is_that_of_the_option_of_the_plan_or_of_the_exchange) {
  RunOptions options;
  EXPECT_EQ(seed_of(options), 42U);
  options.plan.market = {"--seed", "7", "--symbols", "ONE:10.00,TWO"};
  EXPECT_EQ(seed_of(options), 7U);
  options.seed = 9;
  EXPECT_EQ(seed_of(options), 9U);
  EXPECT_EQ(market_of(options).back(), "9");
  EXPECT_EQ(symbols_of(options.plan.market), "ONE,TWO");
  EXPECT_EQ(symbols_of({}), "AAPL,MSFT,SPY");
}

RunResult result_with(Outcome outcome) {
  RunResult result;
  Verdict verdict;
  verdict.check = "session.logon";
  verdict.outcome = outcome;
  result.verdicts = {verdict};
  return result;
}

TEST(Verdict, what_is_broken_comes_before_a_failure_and_that_before_a_doubt) {
  RunResult result = result_with(Outcome::FAILED);
  result.unmet = {"orders >= 3 (orders is 0)"};
  conclude(result);
  EXPECT_EQ(result.status, Status::FAILED);
  result.broken = "no room";
  conclude(result);
  EXPECT_EQ(result.status, Status::BROKEN);
  RunResult good = result_with(Outcome::PASSED);
  conclude(good);
  EXPECT_EQ(good.status, Status::PASSED);
  good.not_done = {"line 5: step drop"};
  conclude(good);
  EXPECT_EQ(good.status, Status::PROVES_NOTHING);
}

TEST(Verdict, an_expected_check_has_to_be_seen) {
  RunResult result = result_with(Outcome::NOT_SEEN);
  result.plan.expect = {"session.logon"};
  conclude(result);
  EXPECT_EQ(result.status, Status::PROVES_NOTHING);
  EXPECT_THAT(result.unmet, testing::ElementsAre(testing::HasSubstr("session.logon")));
}

TEST(Verdict, the_worst_run_decides_the_exit_status) {
  const auto status = [](std::vector<Status> all) {
    std::vector<RunResult> results(all.size());
    for (size_t i = 0; i < all.size(); ++i) results[i].status = all[i];
    return exit_status_of(results);
  };
  EXPECT_EQ(status({Status::PASSED, Status::PASSED}), 0);
  EXPECT_EQ(status({Status::PASSED, Status::PROVES_NOTHING}), 3);
  EXPECT_EQ(status({Status::BROKEN, Status::PASSED}), 3);
  EXPECT_EQ(status({Status::PROVES_NOTHING, Status::FAILED, Status::BROKEN}), 1);
}

TEST(Program, is_found_as_a_shell_finds_it) {
  EXPECT_TRUE(found_program("sh"));
  EXPECT_EQ(found_program("/bin/sh"), "/bin/sh");
  EXPECT_FALSE(found_program("no-such-program-at-all"));
  EXPECT_FALSE(found_program("/tmp"));
  EXPECT_FALSE(found_program("/etc/passwd"));
  EXPECT_FALSE(found_program(""));
}

/// Turns until it is over; false if it is not within the patience.
bool comes_to_its_end(ClientProcess& process, TimeNs patience) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (!process.over(now_ns(), patience)) {
    if (deadline.expired()) return false;
    ::usleep(1000);
  }
  return true;
}

ClientProcess::Command shell(const client::TempDirectory& place, const std::string& script) {
  return {.program = "/bin/sh",
          .arguments = {"-c", script},
          .environment = {{"PATH", "/usr/bin:/bin"}},
          .out_path = place.path() + "/out",
          .err_path = place.path() + "/err"};
}

TEST(ClientProcess, ends_with_all_that_it_has_started) {
  const client::TempDirectory place;
  ClientProcess process(shell(place, "sleep 100 & sleep 100 & echo on; exit 3"));
  ASSERT_TRUE(comes_to_its_end(process, 5 * SECOND));
  EXPECT_EQ(process.how(), "exit status 3");
  EXPECT_FALSE(group_runs(process.pid()));
  EXPECT_EQ(client::read_file(place.path() + "/out"), "on\n");
}

TEST(ClientProcess, gets_time_to_end_and_is_then_killed) {
  const client::TempDirectory place;
  ClientProcess polite(
      shell(place, "trap 'echo bye; exit 0' TERM; echo on; while :; do sleep 0.01; done"));
  while (client::read_file(place.path() + "/out").empty()) polite.take_output();
  polite.ask_to_end(now_ns());
  ASSERT_TRUE(comes_to_its_end(polite, 10 * SECOND));
  EXPECT_EQ(polite.how(), "exit status 0");
  EXPECT_EQ(client::read_file(place.path() + "/out"), "on\nbye\n");

  const client::TempDirectory other;
  ClientProcess stubborn(shell(other, "trap '' TERM; echo on; while :; do sleep 0.01; done"));
  while (client::read_file(other.path() + "/out").empty()) stubborn.take_output();
  stubborn.ask_to_end(now_ns());
  ASSERT_TRUE(comes_to_its_end(stubborn, SECOND));
  EXPECT_EQ(stubborn.how(), "killed: it did not end within 1 s of SIGTERM");
}

TEST(ClientProcess, has_no_signal_blocked_or_ignored_whatever_we_have) {
  const client::TempDirectory place;
  // As whoever starts us in the background or by nohup has it, and as we have it.
  const std::array ignored = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE};
  for (const int number : ignored) ::signal(number, SIG_IGN);
  ClientProcess process(shell(place, "grep -E '^Sig(Blk|Ign)' /proc/self/status"));
  for (const int number : ignored) ::signal(number, SIG_DFL);
  ASSERT_TRUE(comes_to_its_end(process, 5 * SECOND));
  EXPECT_EQ(client::read_file(place.path() + "/out"),
            "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST(Belief, is_taken_from_where_the_plan_says_or_from_where_it_is_by_custom) {
  const client::TempDirectory place;
  const RunFolder folder(place.path(), "run");
  std::ofstream(folder.file("positions.csv")) << "by custom";
  std::ofstream(folder.file("mine.csv")) << "mine";
  Plan plan;
  EXPECT_EQ(client::read_file(take_belief(folder, plan, "") + "/positions.csv"), "by custom");
  EXPECT_FALSE(std::filesystem::exists(take_belief(folder, plan, "noon") + "/positions.csv"));
  plan.belief = {{.kind = Belief::Kind::POSITIONS, .path = "{run}/mine.csv", .mark = "noon"}};
  EXPECT_EQ(client::read_file(take_belief(folder, plan, "noon") + "/positions.csv"), "mine");
  plan.belief = {{.kind = Belief::Kind::POSITIONS, .path = "{run}/mine.csv", .mark = ""}};
  EXPECT_EQ(client::read_file(take_belief(folder, plan, "") + "/positions.csv"), "mine");
}

}  // namespace
}  // namespace certify
