#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/simulator.h"
#include "quorl/client/temp_directory.h"

namespace quorl::client {
namespace {

/// A shell in place of the simulator: it ignores its options and does what the script says.
SimulatorOptions shell(const std::string& script) {
  return {.binary = "/bin/sh",
          .arguments = {"-c", script},
          .own_ports = false,
          .wait_for_banner = false};
}

TEST(ChildProcess, its_exit_status_and_its_signal_are_told_apart) {
  ChildProcess three({.program = "/bin/sh", .arguments = {"-c", "exit 3"}});
  EXPECT_EQ(three.wait_exit(Deadline::after(PATIENCE)), (ExitStatus{true, 3, 0}));
  ChildProcess killed({.program = "/bin/sh", .arguments = {"-c", "kill -ABRT $$"}});
  EXPECT_EQ(killed.wait_exit(Deadline::after(PATIENCE)), (ExitStatus{false, 0, SIGABRT}));
}

TEST(ChildProcess, the_destructor_ends_it_even_if_it_stands_still) {
  pid_t pid = 0;
  {
    ChildProcess sleeper({.program = "/bin/sleep", .arguments = {"600"}});
    pid = sleeper.pid();
    sleeper.stop(Deadline::after(PATIENCE));
    EXPECT_FALSE(sleeper.poll_exit().has_value());
  }
  EXPECT_EQ(::kill(pid, 0), -1);
}

TEST(ChildProcess, one_that_does_not_end_is_a_time_out) {
  ChildProcess sleeper({.program = "/bin/sleep", .arguments = {"600"}});
  EXPECT_THROW(sleeper.wait_exit(Deadline::after(std::chrono::milliseconds(0))), Timeout);
}

TEST(Simulator, its_lines_are_collected_in_order_and_found_from_any_index) {
  Simulator simulator(shell("echo one >&2; echo two >&2; echo one again >&2; printf tail >&2"));
  simulator.start();
  EXPECT_EQ(simulator.wait_for_line("one"), "one");
  EXPECT_EQ(simulator.wait_for_line("one", 1), "one again");
  EXPECT_EQ(simulator.wait_for_match("^t[w]o$"), "two");
  EXPECT_EQ(simulator.wait_exit(), (ExitStatus{.exited = true}));
  EXPECT_EQ(simulator.lines(), (std::vector<std::string>{"one", "two", "one again", "tail"}));
  EXPECT_EQ(simulator.count_lines("one"), 2u);
  EXPECT_EQ(simulator.count_lines("one", 1), 1u);
}

TEST(Simulator, a_line_that_can_no_longer_come_is_a_time_out_at_once) {
  Simulator simulator(shell("echo one >&2"));
  simulator.start();
  simulator.wait_exit();
  EXPECT_THROW(simulator.wait_for_line("two"), Timeout);
}

TEST(Simulator, a_process_that_ends_without_its_banner_is_told_with_its_lines) {
  SimulatorOptions options = shell("echo unknown flag >&2; exit 2");
  options.wait_for_banner = true;
  Simulator simulator(options);
  try {
    simulator.start();
    FAIL() << "it started";
  } catch (const WireError& error) {
    EXPECT_NE(std::string(error.what()).find("exit status 2"), std::string::npos);
    EXPECT_NE(std::string(error.what()).find("unknown flag"), std::string::npos);
  }
}

TEST(Simulator, the_banner_tells_the_session) {
  SimulatorOptions options =
      shell("echo '[quorl] DEEP/IEX-TP 1.2.3.4:5 (iface x, session 42, gap fill udp :6)' >&2");
  options.wait_for_banner = true;
  Simulator simulator(options);
  simulator.start();
  EXPECT_EQ(simulator.session(), 42u);
}

TEST(Simulator, a_taken_port_makes_it_start_again_on_others_with_the_same_group) {
  // Fails on its first run and not on its second, told apart by a file.
  const TempDirectory directory;
  SimulatorOptions options = shell(
      "if [ -e " + directory.path() + "/seen ]; then " +
      "echo '[quorl] DEEP/IEX-TP g (session 7, gap fill)' >&2; else touch " + directory.path() +
      "/seen; echo 'quorl: cannot listen on FIX port 1: taken' >&2; exit 1; fi");
  options.wait_for_banner = true;
  options.own_ports = true;
  options.binary = directory.path() + "/script";
  std::ofstream(options.binary) << "#!/bin/sh\n" << options.arguments[1] << "\n";
  std::filesystem::permissions(options.binary, std::filesystem::perms::owner_all);
  options.arguments.clear();
  Simulator simulator(options);
  const Ports before = simulator.ports();
  simulator.start();
  EXPECT_EQ(simulator.restarts(), 1u);
  EXPECT_EQ(simulator.session(), 7u);
  EXPECT_NE(simulator.ports().fix, before.fix);
  EXPECT_EQ(simulator.ports().group, before.group);
  EXPECT_EQ(simulator.ports().feed, before.feed);
}

TEST(Simulator, environment_and_files_are_passed_as_asked) {
  SimulatorOptions options = shell("echo \"$QUORL_SCENARIO $BENCH_ORDER_TRUTH $X\" >&2");
  options.scenario = "name=x";
  options.order_truth = true;
  options.environment = {{"X", "y"}};
  Simulator simulator(options);
  simulator.start();
  EXPECT_EQ(simulator.wait_for_line("name"), "name=x " + simulator.order_truth_path() + " y");
  EXPECT_TRUE(std::filesystem::is_directory(simulator.directory()));
}

TEST(PortSlot, slots_held_at_once_share_nothing) {
  const PortSlot one;
  const PortSlot other;
  EXPECT_NE(one.ports().group, other.ports().group);
  EXPECT_NE(one.ports().feed, other.ports().feed);
  EXPECT_NE(one.ports().fix, other.ports().fix);
}

TEST(TempDirectory, it_is_gone_with_all_it_held) {
  std::string path;
  {
    const TempDirectory directory;
    path = directory.path();
    std::ofstream(path + "/file") << "content";
    EXPECT_EQ(read_file(path + "/file"), "content");
  }
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(read_file(path + "/file"), "");
}

}  // namespace
}  // namespace quorl::client
