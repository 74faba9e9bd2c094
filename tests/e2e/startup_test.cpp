// The ends of a run: options, ports, environment, banner, signals, exit statuses, and every line
// that tells of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quorl/client/errors.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/stats_text.h"
#include "quorl/client/tcp.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/port_holder.h"
#include "tests/tools/support/other_world.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::ExitStatus;
using client::Simulator;
using client::SimulatorOptions;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using tools_test::in_own_network;
using Lines = std::vector<std::string>;

constexpr ExitStatus STATUS_1{.exited = true, .code = 1, .signal = 0};
constexpr ExitStatus STATUS_2{.exited = true, .code = 2, .signal = 0};
constexpr ExitStatus ABORTED{.exited = false, .code = 0, .signal = SIGABRT};

constexpr const char* NOTHING_COUNTED =
    "orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
    "cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=0 "
    "logons=0 resend_requests=0 replays=0 replayed=0";

constexpr const char* CONTROL_COMMANDS =
    " (pause | resume | drop N | dup N | reorder N | drop_every N | dup_every N | reorder_every N "
    "| rate MS | disconnect | lapse MS | reject N | partial N | fill_on_cancel N | "
    "unsolicited_cancel N | replace_reject N | mark LABEL | stats | stop)";

/// A run that is to end by itself before its banner.
struct FailedRun {
  ExitStatus status;
  Lines lines;
};

FailedRun run_to_end(SimulatorOptions options) {
  options.wait_for_banner = false;
  options.restart_if_taken = false;
  Simulator simulator(std::move(options));
  simulator.start();
  const ExitStatus status = simulator.wait_exit();
  return {status, simulator.lines()};
}

FailedRun run_with(std::vector<std::string> arguments) {
  return run_to_end(living(std::move(arguments)));
}

FailedRun run_scenario(const std::string& scenario, std::vector<std::string> arguments = {}) {
  SimulatorOptions options = living(std::move(arguments));
  options.scenario = scenario;
  return run_to_end(options);
}

/// The runtime names the parser; we say nothing.
void expect_abort_by(const std::string& parser, const FailedRun& run) {
  EXPECT_EQ(run.status, ABORTED) << run.status.describe();
  EXPECT_THAT(run.lines, testing::Contains(HasSubstr(parser)));
  for (const std::string& line : run.lines) {
    EXPECT_THAT(line, testing::Not(HasSubstr("quorl"))) << "before " << parser;
    EXPECT_THAT(line, testing::Not(HasSubstr("bench:"))) << "before " << parser;
  }
}

std::string banner_of(const Simulator& simulator, const std::string& symbols) {
  const client::Ports& ports = simulator.ports();
  return "[quorl] DEEP/IEX-TP " + ports.group + ":" + std::to_string(ports.feed) +
         " (iface 127.0.0.1, session " + std::to_string(simulator.session()) +
         ", gap fill udp :" + std::to_string(ports.gap_fill) +
         ") \xC2\xB7 DEEP SNAP tcp :" + std::to_string(ports.snap) +
         " \xC2\xB7 FIX :" + std::to_string(ports.fix) + " as IEXG \xC2\xB7 " + symbols;
}

constexpr const char* DEFAULT_SYMBOLS = "AAPL:190.00,MSFT:410.00,SPY:520.00";

/// Returns once the loop turns: a signal finds its handler from then on.
void await_first_turn(const Simulator& simulator) {
  client::TcpStream stream = client::TcpStream::connect(simulator.ports().fix);
  simulator.wait_for_line("[quorl] FIX client connected");
}

uint64_t unix_seconds() { return static_cast<uint64_t>(std::time(nullptr)); }

/// Only one process at a time may use the default ports, where there is one network for all; the
/// lock goes with the process.
class DefaultPorts {
 public:
  DefaultPorts() : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  DefaultPorts(const DefaultPorts&) = delete;
  DefaultPorts& operator=(const DefaultPorts&) = delete;
  ~DefaultPorts() { ::close(fd_); }

  /// Waits until no other test uses them and nobody else does.
  bool claim() {
    const client::Deadline deadline = client::Deadline::after(std::chrono::seconds(60));
    while (!deadline.expired()) {
      claimed_ = claimed_ || lock();
      if (claimed_ && all_free()) return true;
      std::this_thread::sleep_for(milliseconds(20));
    }
    return false;
  }

 private:
  bool lock() const {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    constexpr std::string_view TEXT = "quorl-test-default-ports";
    std::copy(TEXT.begin(), TEXT.end(), name.sun_path + 1);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + TEXT.size());
    return ::bind(fd_, reinterpret_cast<const sockaddr*>(&name), size) == 0;
  }

  static bool all_free() {
    return client::tcp_port_is_free(28500) && client::tcp_port_is_free(25479) &&
           client::udp_port_is_free(25479);
  }

  int fd_;
  bool claimed_ = false;
};

void start_without_arguments() {
  SimulatorOptions options = living();
  options.own_ports = false;
  Simulator simulator(options);
  const uint64_t before = unix_seconds();
  simulator.start();
  const uint64_t after = unix_seconds();
  EXPECT_EQ(simulator.lines().front(),
            "[quorl] DEEP/IEX-TP 233.54.26.111:25477 (iface 127.0.0.1, session " +
                std::to_string(simulator.session()) +
                ", gap fill udp :25479) \xC2\xB7 DEEP SNAP tcp :25479 \xC2\xB7 FIX :28500 as IEXG "
                "\xC2\xB7 AAPL:190.00,MSFT:410.00,SPY:520.00");
  EXPECT_GE(simulator.session(), before & 0x7FFFFFFF);
  EXPECT_LE(simulator.session(), after & 0x7FFFFFFF);
  client::FixSession session(28500, "ALPHA");
  session.logon();
  EXPECT_EQ(simulator.terminate(), STATUS_0);
}

TEST(Startup, without_arguments_the_banner_shows_the_defaults) {
  if (in_own_network(start_without_arguments)) return;
  // Not allowed here: the default ports are those of everybody.
  DefaultPorts ports;
  ASSERT_TRUE(ports.claim()) << "another program holds the default ports";
  start_without_arguments();
}

TEST(Startup, banner_shows_ports_session_and_symbols_as_given_and_quiet_leaves_it) {
  SimulatorOptions options = living({"--quiet", "--session", "-7", "--symbols", "B:1,,C:2.5e1,"});
  Simulator simulator(options);
  simulator.start();
  EXPECT_EQ(simulator.session(), 4294967289U);
  EXPECT_EQ(simulator.banner(), banner_of(simulator, "B:1,,C:2.5e1,"));
}

TEST(Startup, control_line_comes_first_and_the_banner_second) {
  Simulator simulator(living());
  simulator.start();
  const Lines lines = simulator.lines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], "bench: control on 127.0.0.1:" + std::to_string(simulator.ports().control) +
                          CONTROL_COMMANDS);
  EXPECT_EQ(lines[1], banner_of(simulator, DEFAULT_SYMBOLS));
}

TEST(Startup, gap_fill_port_follows_the_snap_port) {
  SimulatorOptions options = living();
  options.gap_fill_port = false;
  Simulator simulator(options);
  simulator.start();
  EXPECT_EQ(simulator.ports().gap_fill, simulator.ports().snap);
  EXPECT_EQ(simulator.banner(), banner_of(simulator, DEFAULT_SYMBOLS));
  EXPECT_FALSE(client::udp_port_is_free(simulator.ports().snap));
}

TEST(Startup, ports_are_cut_to_16_bits_and_digits_end_where_letters_begin) {
  SimulatorOptions options = living();
  Simulator ports_source(options);  // never started: its ports are ours
  const client::Ports& ports = ports_source.ports();
  options.arguments = {"--fix-port",     std::to_string(65536 + ports.fix),
                       "--snap-port",    std::to_string(ports.snap) + "abc",
                       "--gapfill-port", "0"};
  Simulator simulator(options);
  simulator.start();
  EXPECT_THAT(simulator.banner(), HasSubstr("gap fill udp :" + std::to_string(ports.snap) + ")"));
  EXPECT_THAT(simulator.banner(), HasSubstr("DEEP SNAP tcp :" + std::to_string(ports.snap) + " "));
  EXPECT_THAT(simulator.banner(), HasSubstr("FIX :" + std::to_string(ports.fix) + " as IEXG"));
}

TEST(Startup, quiet_suppresses_the_connection_and_logon_lines_and_nothing_else) {
  for (const bool quiet : {false, true}) {
    Exchange exchange(still(quiet ? Lines{"--quiet"} : Lines{}));
    client::FixSession session = exchange.logs_on("ALPHA");
    session.hears_nothing();
    EXPECT_EQ(exchange.count_lines("bench: logon ALPHA 34=1"), 1U);
    EXPECT_EQ(exchange.count_lines("[quorl] FIX client connected (fd "), quiet ? 0U : 1U);
    EXPECT_EQ(exchange.count_lines("[quorl] logon ALPHA accepted (heartbeat 30 s)"),
              quiet ? 0U : 1U);
    session.logout();
    EXPECT_EQ(exchange.simulator().wait_for_line("logged out"),
              "bench: client ALPHA logged out (0 resting order(s) kept)");
  }
}

TEST(Startup, unknown_flag_or_bare_word_ends_with_status_2) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--bogus"}, "--bogus"},
      {{"--seed", "7", "extra"}, "extra"},
      {{"--seed=7"}, "--seed=7"},
      {{"--Quiet"}, "--Quiet"},
      {{""}, ""},
      {{"--mcast", "--port", "5"}, "5"},
      {{"--quiet", "x%sy"}, "x%sy"},
      {{"-h"}, "-h"}};
  for (const auto& [arguments, flag] : cases) {
    const FailedRun run = run_with(arguments);
    EXPECT_EQ(run.status, STATUS_2) << run.status.describe();
    EXPECT_THAT(run.lines, ElementsAre("unknown flag " + flag));
  }
}

TEST(Startup, every_option_that_lacks_its_value_says_so_and_ends_with_status_2) {
  for (const std::string option :
       {"--mcast",      "--port",      "--iface",         "--snap-port",   "--gapfill-port",
        "--fix-port",   "--session",   "--symbols",       "--interval-ms", "--step-bps",
        "--touch-hit",  "--book-out",  "--bbo-out",       "--seed",        "--drop-every",
        "--drop-burst", "--dup-every", "--reorder-every", "--truth-out",   "--control-port"}) {
    const FailedRun run = run_with({option});
    EXPECT_EQ(run.status, STATUS_2) << run.status.describe();
    EXPECT_THAT(run.lines, ElementsAre(option + " needs a value"));
  }
}

TEST(Startup, malformed_number_of_an_option_aborts_naming_the_parser) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"stoi",
       {"--port", "--snap-port", "--gapfill-port", "--fix-port", "--interval-ms",
        "--control-port"}},
      {"stoul", {"--session", "--seed", "--drop-every", "--dup-every", "--reorder-every"}},
      {"stod", {"--step-bps", "--touch-hit"}}};
  for (const auto& [parser, options] : cases) {
    for (const std::string& option : options) {
      expect_abort_by(parser, run_with({option, "abc"}));
    }
    expect_abort_by(parser, run_with({options.front(), ""}));
  }
  expect_abort_by("stoi", run_with({"--port", "2147483648"}));
  expect_abort_by("stoul", run_with({"--seed", "18446744073709551616"}));
  expect_abort_by("stod", run_with({"--step-bps", "1e400"}));
  expect_abort_by("stoi", run_with({"--port", "abc", "--port", "1"}));
}

TEST(Startup, malformed_burst_aborts_before_the_scenario_is_read) {
  expect_abort_by("stoull", run_scenario("name=x", {"--control-port", "0", "--drop-burst", ":5"}));
  expect_abort_by("stoul", run_scenario("name=x", {"--control-port", "0", "--drop-burst", "100:"}));
}

TEST(Startup, malformed_symbol_price_aborts_behind_the_control_line) {
  for (const std::string symbols : {"X:", "A:1,X:abc", "X::1"}) {
    const FailedRun run = run_with({"--symbols", symbols});
    EXPECT_EQ(run.status, ABORTED) << run.status.describe();
    EXPECT_THAT(run.lines.front(), HasSubstr("bench: control on 127.0.0.1:"));
    EXPECT_THAT(run.lines, testing::Contains(HasSubstr("stod")));
    EXPECT_THAT(run.lines, testing::Not(testing::Contains(HasSubstr("[quorl]"))));
  }
}

TEST(Startup, malformed_number_of_the_scenario_aborts_without_the_armed_line) {
  expect_abort_by("stoi", run_scenario("lapse_ms="));
  expect_abort_by("stoi", run_scenario("lapse_ms=2147483648"));
  for (const std::string key :
       {"disconnect_after", "reject_every", "partial_fill_every", "fill_on_cancel_every",
        "unsolicited_cancel_every", "replace_reject_every"}) {
    expect_abort_by("stoul", run_scenario("name=x," + key + "=x"));
  }
}

TEST(Startup, scenario_is_announced_by_the_armed_line_ahead_of_everything) {
  const auto armed = [](const std::string& name, const std::string& values) {
    return "bench: scenario '" + name + "' armed (" + values + ")";
  };
  const std::string zeros =
      "disconnect after 0 orders, lapse 0 ms, reject every 0, partial every 0, fill-on-cancel "
      "every 0, unsolicited cancel every 0, replace reject every 0";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"name=rough seas,disconnect_after=1,lapse_ms=2,reject_every=3,partial_fill_every=4,"
       "fill_on_cancel_every=5,unsolicited_cancel_every=6,replace_reject_every=7",
       armed("rough seas",
             "disconnect after 1 orders, lapse 2 ms, reject every 3, partial every 4, "
             "fill-on-cancel every 5, unsolicited cancel every 6, replace reject every 7")},
      {"name=x", armed("x", zeros)},
      {",,,", armed("", zeros)},
      {"nonsense", armed("", zeros)},
      {"name=a=b, reject_every=1,Reject_every=2,reject_every", armed("a=b", zeros)},
      {"lapse_ms=9,lapse_ms=-5", armed("",
                                       "disconnect after 0 orders, lapse -5 ms, reject every "
                                       "0, partial every 0, fill-on-cancel every 0, "
                                       "unsolicited cancel every 0, replace reject every 0")},
      {"reject_every=-1",
       armed("",
             "disconnect after 0 orders, lapse 0 ms, reject every 4294967295, partial every "
             "0, fill-on-cancel every 0, unsolicited cancel every 0, replace reject every 0")}};
  for (const auto& [scenario, line] : cases) {
    SimulatorOptions options = living();
    options.scenario = scenario;
    Simulator simulator(options);
    simulator.start();
    EXPECT_EQ(simulator.lines().front(), line);
  }
}

TEST(Startup, empty_scenario_prints_no_armed_line) {
  SimulatorOptions options = living();
  options.control_port = false;
  options.environment["QUORL_SCENARIO"] = "";
  Simulator simulator(options);
  simulator.start();
  EXPECT_EQ(simulator.lines().front(), banner_of(simulator, DEFAULT_SYMBOLS));
}

TEST(Startup, taken_fix_port_ends_with_status_1_behind_the_opening) {
  SimulatorOptions options = living();
  options.wait_for_banner = false;
  Simulator simulator(options);
  const PortHolder holder = PortHolder::listening(simulator.ports().fix);
  client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  simulator.start();
  EXPECT_EQ(simulator.wait_exit(), STATUS_1);
  const Lines lines = simulator.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[0], HasSubstr("bench: control on"));
  EXPECT_EQ(lines[1], "quorl: cannot listen on FIX port " + std::to_string(simulator.ports().fix) +
                          ": Address already in use");
  // The last message of the opening.
  const size_t last = feed.await_message(
      [](const client::DeepMessage& m) { return client::describe(m) == "E SPY"; }, "E SPY");
  EXPECT_EQ(last + 1, feed.messages().size());
  EXPECT_EQ(feed.packets().front().packet.header.first_seq, 1U);
}

TEST(Startup, taken_snap_port_ends_with_status_1) {
  SimulatorOptions options = living();
  options.wait_for_banner = false;
  Simulator simulator(options);
  const PortHolder holder = PortHolder::listening(simulator.ports().snap);
  simulator.start();
  EXPECT_EQ(simulator.wait_exit(), STATUS_1);
  EXPECT_EQ(simulator.lines().back(), "quorl: cannot listen on DEEP SNAP port " +
                                          std::to_string(simulator.ports().snap) +
                                          ": Address already in use");
}

TEST(Startup, second_simulator_on_the_same_ports_ends_and_the_first_goes_on) {
  Exchange exchange(still());
  SimulatorOptions options = living({"--fix-port", std::to_string(exchange.ports().fix)});
  const FailedRun run = run_to_end(options);
  EXPECT_EQ(run.status, STATUS_1);
  EXPECT_EQ(run.lines.back(), "quorl: cannot listen on FIX port " +
                                  std::to_string(exchange.ports().fix) +
                                  ": Address already in use");
  exchange.logs_on("ALPHA").hears_nothing();
}

TEST(Startup, taken_control_port_is_reported_and_the_run_goes_on_without_stats_lines) {
  SimulatorOptions options = still();
  options.restart_if_taken = false;
  Simulator simulator(options);
  const PortHolder holder = PortHolder::bound(simulator.ports().control);
  client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  simulator.start();
  EXPECT_THAT(simulator.lines(), ElementsAre("quorl: control port: Address already in use",
                                             banner_of(simulator, DEFAULT_SYMBOLS)));
  for (int second = 0; second < 4; ++second) feed.await_heartbeat();  // beyond the line's 2 s
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon();
  EXPECT_EQ(simulator.terminate(), STATUS_0);
  EXPECT_EQ(simulator.count_lines("bench: stats"), 1U) << "that of the end alone";
}

TEST(Startup, taken_gap_fill_port_is_reported_first_and_the_run_goes_on) {
  SimulatorOptions options = still();
  options.restart_if_taken = false;
  Simulator simulator(options);
  const PortHolder holder = PortHolder::bound(simulator.ports().gap_fill);
  simulator.start();
  const Lines lines = simulator.lines();
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0], "quorl: gap-fill port: Address already in use");
  EXPECT_THAT(lines[1], HasSubstr("bench: control on"));
  EXPECT_EQ(lines[2], banner_of(simulator, DEFAULT_SYMBOLS));
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon();
  EXPECT_EQ(simulator.terminate(), STATUS_0);
}

TEST(Startup, sigint_and_sigterm_end_with_three_lines_and_status_0) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Exchange exchange(still());
    (void)exchange.book();
    const uint64_t next_seq = exchange.feed().last_seq() + 1;
    const auto packets = std::count_if(
        exchange.feed().packets().begin(), exchange.feed().packets().end(),
        [](const client::FeedPacket& packet) { return !packet.packet.is_heartbeat(); });
    exchange.simulator().signal(signal);
    EXPECT_EQ(exchange.simulator().wait_exit(), STATUS_0);
    const Lines lines = exchange.simulator().lines();
    ASSERT_GE(lines.size(), 5U);
    EXPECT_EQ(lines[lines.size() - 3], "quorl faults: sent " + std::to_string(packets) +
                                           " dropped 0 duplicated 0 reordered 0");
    EXPECT_EQ(lines[lines.size() - 2], std::string("bench: stats ") + NOTHING_COUNTED +
                                           " next_seq=" + std::to_string(next_seq));
    EXPECT_EQ(lines[lines.size() - 1], "[quorl] stopped");
    EXPECT_EQ(exchange.simulator().count_lines("[quorl] stopped"), 1U);
  }
}

TEST(Startup, sigterm_says_nothing_to_a_client) {
  Exchange exchange(still());
  client::FixSession session = exchange.logs_on("ALPHA");
  EXPECT_EQ(exchange.simulator().terminate(), STATUS_0);
  session.expect_closed();
  EXPECT_THAT(exchange.simulator().lines()[exchange.simulator().line_count() - 2],
              HasSubstr(" logins=1 logons=1 "));
  EXPECT_EQ(exchange.simulator().count_lines("disconnected"), 0U);
}

TEST(Startup, sigterm_in_a_lapse_ends_as_ever) {
  Exchange exchange(still());
  client::FixSession session = exchange.logs_on("ALPHA");
  exchange.control().ok("lapse 60000");
  EXPECT_THAT(
      exchange.simulator().wait_for_line("going silent"),
      MatchesRegex("bench: going silent for (60000|599..) ms \\(no heartbeats, no reports on the "
                   "wire \xE2\x80\x94 the client should Test Request, then drop and log on again; "
                   "a ResendRequest brings what it missed\\)"));
  EXPECT_EQ(exchange.simulator().terminate(), STATUS_0);
  EXPECT_EQ(exchange.simulator().lines().back(), "[quorl] stopped");
}

/// A set of signals as /proc shows it, in hexadecimal digits.
uint64_t signals_of(const Simulator& simulator, const std::string& set) {
  std::ifstream status("/proc/" + std::to_string(simulator.pid()) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(set + ":")) return std::stoull(line.substr(set.size() + 1), nullptr, 16);
  }
  throw std::runtime_error("no " + set + " in the status of a process");
}

uint64_t bit_of(int signal) { return uint64_t{1} << (signal - 1); }

TEST(Startup, catches_sigint_and_sigterm_and_leaves_sigpipe_as_it_is) {
  const auto ours = ::signal(SIGPIPE, SIG_DFL);  // inherited
  Exchange exchange(still());
  ::signal(SIGPIPE, ours);
  const uint64_t caught = signals_of(exchange.simulator(), "SigCgt");
  EXPECT_NE(caught & bit_of(SIGINT), 0U);
  EXPECT_NE(caught & bit_of(SIGTERM), 0U);
  EXPECT_EQ(caught & bit_of(SIGPIPE), 0U);
  EXPECT_EQ(signals_of(exchange.simulator(), "SigIgn") & bit_of(SIGPIPE), 0U);
  EXPECT_EQ(signals_of(exchange.simulator(), "SigBlk"), 0U);
}

TEST(Startup, starts_again_at_once_on_the_ports_of_a_run_that_had_a_client) {
  Simulator simulator(living());
  simulator.start();
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon();
  EXPECT_EQ(simulator.terminate(), STATUS_0);
  simulator.start();
  EXPECT_EQ(simulator.restarts(), 0U);
  client::FixSession again(simulator.ports().fix, "ALPHA");
  EXPECT_EQ(again.logon().seq(), 1U) << "streams do not outlive the process";
}

TEST(Startup, first_turn_writes_the_book_and_bbo_files) {
  // A first write that waited for its period would be 250 ms late in every run; a loaded machine
  // delays one run or another.
  int64_t quickest_ms = INT64_MAX;
  for (int run = 0; run < 5 && quickest_ms >= 150; ++run) {
    SimulatorOptions options = still();
    options.book_file = true;
    options.bbo_file = true;
    Simulator simulator(options);
    client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
    simulator.start();
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    std::string book;
    while ((book = client::read_file(simulator.book_path())).empty()) {
      ASSERT_FALSE(deadline.expired()) << "no book file";
      std::this_thread::sleep_for(milliseconds(1));
    }
    feed.pump();
    uint64_t opened_ns = 0;
    for (const client::FeedPacket& packet : feed.packets()) {
      if (!packet.packet.is_heartbeat()) opened_ns = packet.packet.header.send_time_ns;
    }
    const int64_t behind_ns =
        static_cast<int64_t>(client::parse_book_file(book).ts_ns) - static_cast<int64_t>(opened_ns);
    quickest_ms = std::min(quickest_ms, behind_ns / 1000000);
  }
  EXPECT_LT(quickest_ms, 150);
}

TEST(Startup, control_port_0_and_no_symbols_leave_an_empty_market_that_serves) {
  SimulatorOptions options = living({"--symbols", "", "--control-port", "0"});
  Simulator simulator(options);
  client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  simulator.start();
  EXPECT_THAT(simulator.lines(), ElementsAre(banner_of(simulator, "")));
  feed.expect_session(simulator.session());
  feed.await_heartbeat();
  EXPECT_THAT(feed.described(), ElementsAre("S O", "S S", "S R"));
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon();
  session.new_order({.cl_ord_id = "a1", .price = "190"});
  session.hears("35=8|150=8|58=UnknownSymbol|103=1");
  EXPECT_EQ(simulator.terminate(), STATUS_0);
}

TEST(Startup, without_scenario_and_control_port_a_run_is_silent_between_banner_and_end) {
  SimulatorOptions options = living();
  options.control_port = false;
  Simulator simulator(options);
  client::FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  simulator.start();
  await_first_turn(simulator);
  simulator.wait_for_line("disconnected");
  const size_t before = feed.messages().size();
  feed.await([&] { return feed.messages().size() > before + 300; }, "a living market");
  EXPECT_EQ(simulator.terminate(), STATUS_0);
  const Lines lines = simulator.lines();
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_EQ(lines[0], banner_of(simulator, DEFAULT_SYMBOLS));
  EXPECT_THAT(lines[1], MatchesRegex("\\[quorl\\] FIX client connected \\(fd [0-9]+\\)"));
  EXPECT_THAT(lines[2],
              MatchesRegex("bench: client  disconnected \\([0-9]+ resting order\\(s\\) kept\\)"))
      << "the orders without an owner count as those of a client without a name";
  EXPECT_THAT(lines[3], MatchesRegex("quorl faults: sent [0-9]+ dropped 0 duplicated 0 "
                                     "reordered 0"));
  EXPECT_THAT(lines[4],
              MatchesRegex(std::string("bench: stats ") + NOTHING_COUNTED + " next_seq=[0-9]+"));
  EXPECT_EQ(lines[5], "[quorl] stopped");
}

}  // namespace
}  // namespace e2e
