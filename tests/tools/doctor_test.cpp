// The doctor as a user starts it, and the exchange, which then does what the doctor has said.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/simulator.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/port_holder.h"
#include "tests/tools/support/other_world.h"
#include "tests/tools/support/tool.h"

namespace client = quorl::client;

namespace tools_test {
namespace {

using client::ExitStatus;
using client::Simulator;
using client::SimulatorOptions;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Words = std::vector<std::string>;

constexpr ExitStatus STATUS_1{.exited = true, .code = 1, .signal = 0};
constexpr ExitStatus STATUS_2{.exited = true, .code = 2, .signal = 0};
constexpr ExitStatus ABORTED{.exited = false, .code = 0, .signal = SIGABRT};

struct Diagnosis {
  int status = -1;
  Words lines;
};

/// Standard error goes to no pipe, so that this is not found. Nothing of our environment is seen.
Diagnosis diagnose(const Words& words, const std::map<std::string, std::string>& environment = {},
                   const std::string& standard_error = "/dev/null") {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
  const int err = ::open(standard_error.c_str(), O_WRONLY | O_CLOEXEC);
  client::LineCollector out(ends[0]);
  client::ChildProcess doctor({.program = built_program("quorl-doctor"),
                               .arguments = words,
                               .environment = environment,
                               .stdout_fd = ends[1],
                               .stderr_fd = err});
  ::close(ends[1]);
  ::close(err);
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  Diagnosis diagnosis;
  diagnosis.status = doctor.wait_exit(deadline).code;
  out.wait_end(deadline);
  for (const client::LogLine& line : out.lines()) diagnosis.lines.push_back(line.text);
  return diagnosis;
}

/// An exchange that has not started, and the same start for the doctor.
class Case {
 public:
  explicit Case(SimulatorOptions options)
      : arguments_(options.arguments), simulator_(prepared(options)) {
    if (!options.scenario.empty()) environment_["QUORL_SCENARIO"] = options.scenario;
    for (const auto& [name, value] : options.environment) environment_[name] = value;
  }

  Diagnosis diagnosis() const {
    Words words = port_words();
    words.insert(words.end(), arguments_.begin(), arguments_.end());
    return diagnose(words, environment_);
  }

  Words port_words() const {
    const client::Ports& ports = simulator_.ports();
    return {"--mcast",        ports.group,
            "--port",         std::to_string(ports.feed),
            "--snap-port",    std::to_string(ports.snap),
            "--fix-port",     std::to_string(ports.fix),
            "--gapfill-port", std::to_string(ports.gap_fill),
            "--control-port", std::to_string(ports.control)};
  }

  Simulator& exchange() { return simulator_; }

  /// The exchange starts without a complaint of its own.
  void starts_in_silence() {
    simulator_.start();
    for (const std::string& line : simulator_.lines()) EXPECT_THAT(line, Not(StartsWith("quorl:")));
  }

  ExitStatus ends() {
    simulator_.start();
    return simulator_.wait_exit();
  }

 private:
  static SimulatorOptions prepared(SimulatorOptions options) {
    options.restart_if_taken = false;
    return options;
  }

  Words arguments_;
  std::map<std::string, std::string> environment_;
  Simulator simulator_;
};

SimulatorOptions ending(Words arguments) {
  SimulatorOptions options = e2e::living(std::move(arguments));
  options.wait_for_banner = false;
  return options;
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path) << content;
}

TEST(Doctor, says_of_a_good_start_that_it_is_good) {
  const Case good(e2e::living());
  const Diagnosis diagnosis = good.diagnosis();
  EXPECT_EQ(diagnosis.status, 0);
  EXPECT_THAT(diagnosis.lines, ElementsAre("the start looks good"));
}

TEST(Doctor, refuses_words_that_the_exchange_refuses) {
  const std::vector<std::pair<Words, std::string>> cases = {
      {{"--seed", "7", "extra"}, "quorl has no option extra: it would end with status 2"},
      {{"--help", "--quiet"}, "quorl has no option --help: it would end with status 2"},
      {{"--seed"}, "--seed needs a value: quorl would end with status 2"},
  };
  for (const auto& [words, complaint] : cases) {
    const Said said = run_tool("doctor", words);
    EXPECT_EQ(said.status, 2);
    EXPECT_EQ(said.out, "");
    EXPECT_EQ(said.err, "quorl-doctor: " + complaint + "\n");
    EXPECT_EQ(Case(ending(words)).ends(), STATUS_2);
  }
}

TEST(Doctor, sees_that_its_own_standard_error_is_a_pipe) {
  const Case good(e2e::living());
  const Said said = run_tool("doctor", good.port_words());
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.out,
            "standard error: is a pipe: if nobody reads it, the exchange stands still once it is "
            "full\n");
}

TEST(Doctor, sees_that_its_own_standard_error_is_a_truth_file) {
  const client::TempDirectory directory;
  const std::string path = directory.path() + "/log";
  write_file(path, "");
  const Case good(e2e::living());
  Words words = good.port_words();
  words.insert(words.end(), {"--truth-out", path});
  EXPECT_THAT(
      diagnose(words, {}, path).lines,
      ElementsAre("--truth-out " + path + ": is the file that standard error goes to, too"));
}

TEST(Doctor, reads_both_variables_of_the_environment) {
  const Case good(e2e::living());
  const Diagnosis diagnosis =
      diagnose(good.port_words(),
               {{"QUORL_SCENARIO", "reject_every=1,typo=1"}, {"BENCH_ORDER_TRUTH", "/dev/null"}});
  EXPECT_EQ(diagnosis.status, 1);
  EXPECT_THAT(diagnosis.lines,
              ElementsAre("BENCH_ORDER_TRUTH /dev/null: is a device: no truth is kept in it",
                          "QUORL_SCENARIO typo=1: is no key of a scenario and is passed over"));
}

TEST(Doctor, changes_nothing) {
  const client::TempDirectory directory;
  const std::string truth = directory.path() + "/truth";
  write_file(truth, "a line\n");
  const Case good(e2e::living({"--truth-out", truth, "--book-out", directory.path() + "/book"}));
  EXPECT_EQ(good.diagnosis().status, 0);
  EXPECT_EQ(client::read_file(truth), "a line\n");
  EXPECT_NE(::access((directory.path() + "/book").c_str(), F_OK), 0);
  EXPECT_NE(::access((directory.path() + "/book.tmp").c_str(), F_OK), 0);
}

// ---- and the exchange does as it said

TEST(DoctorAndExchange, a_number_is_read_as_far_as_it_goes) {
  Case start(e2e::living({"--session", "12abc"}));
  EXPECT_THAT(start.diagnosis().lines,
              ElementsAre("--session 12abc: is read as 12: 'abc' behind it is passed over"));
  start.starts_in_silence();
  EXPECT_EQ(start.exchange().session(), 12U);
}

TEST(DoctorAndExchange, a_port_is_cut_to_16_bits) {
  Case any(e2e::living());
  const std::string port = std::to_string(any.exchange().ports().fix);
  const std::string too_much = std::to_string(65536 + any.exchange().ports().fix);
  Case start(e2e::living({"--fix-port", too_much}));
  EXPECT_THAT(start.diagnosis().lines, Contains("--fix-port " + too_much + ": is read as " + port +
                                                ": only its low 16 bits are kept"));
  start.starts_in_silence();
  EXPECT_THAT(start.exchange().banner(), HasSubstr("FIX :" + port + " as"));
}

TEST(DoctorAndExchange, what_is_no_number_ends_the_start_by_an_abort) {
  SimulatorOptions bad_scenario = ending({});
  bad_scenario.scenario = "lapse_ms=";
  const std::pair<SimulatorOptions, std::string> cases[] = {
      {ending({"--seed", "x"}), "stoul"},
      {ending({"--interval-ms", "3000000000"}), "stoi"},
      {ending({"--drop-burst", ":5"}), "stoull"},
      {ending({"--symbols", "A:"}), "stod"},
      {bad_scenario, "stoi"},
  };
  for (const auto& [options, parser] : cases) {
    Case start(options);
    EXPECT_THAT(start.diagnosis().lines,
                ElementsAre(EndsWith("the exchange ends by an abort (" + parser + ")")));
    EXPECT_EQ(start.ends(), ABORTED);
    EXPECT_THAT(start.exchange().lines(), Contains(HasSubstr(parser)));
  }
}

TEST(DoctorAndExchange, an_option_is_taken_for_a_value) {
  const client::TempDirectory directory;
  Case start(e2e::living({"--symbols", "--quiet"}));
  EXPECT_THAT(start.diagnosis().lines,
              Contains("--symbols --quiet: takes the word behind it as its value, option or not"));
  start.starts_in_silence();
  EXPECT_THAT(start.exchange().banner(), EndsWith(" --quiet"));
}

TEST(DoctorAndExchange, the_last_of_several_values_counts) {
  Case start(e2e::living({"--session", "5", "--session", "6"}));
  EXPECT_THAT(start.diagnosis().lines,
              ElementsAre("--session 6: is what counts of the 2 times that --session is given"));
  start.starts_in_silence();
  EXPECT_EQ(start.exchange().session(), 6U);
}

TEST(DoctorAndExchange, an_interface_that_is_none_is_taken_in_silence) {
  const bool entered = in_own_network([] {
    Case start(e2e::living({"--iface", "192.0.2.1"}));
    EXPECT_THAT(start.diagnosis().lines, Contains(HasSubstr("belongs to no interface")));
    start.starts_in_silence();
    EXPECT_THAT(start.exchange().banner(), HasSubstr("(iface 192.0.2.1, "));
  });
  if (!entered) GTEST_SKIP() << "no network of our own";
}

TEST(DoctorAndExchange, a_group_that_is_none_is_taken_in_silence) {
  const bool entered = in_own_network([] {
    Case start(e2e::living({"--mcast", "feed.local"}));
    EXPECT_THAT(start.diagnosis().lines, Contains(HasSubstr("is no IPv4 address in digits")));
    start.starts_in_silence();
    EXPECT_THAT(start.exchange().banner(), HasSubstr("DEEP/IEX-TP feed.local:"));
  });
  if (!entered) GTEST_SKIP() << "no network of our own";
}

TEST(DoctorAndExchange, a_tcp_port_that_is_taken_ends_the_start) {
  Case first(e2e::living());
  first.starts_in_silence();
  const std::string fix = std::to_string(first.exchange().ports().fix);
  SimulatorOptions options = ending({"--fix-port", fix});
  Case second(options);
  EXPECT_THAT(second.diagnosis().lines,
              Contains("--fix-port " + fix + ": TCP port " + fix + " is taken by quorl (pid " +
                       std::to_string(first.exchange().pid()) +
                       "): the exchange ends with status 1, its opening packets sent"));
  EXPECT_EQ(second.ends(), STATUS_1);
  EXPECT_THAT(second.exchange().lines(),
              Contains(StartsWith("quorl: cannot listen on FIX port " + fix)));
}

TEST(DoctorAndExchange, one_tcp_port_for_both_services_ends_the_start) {
  Case any(e2e::living());
  const std::string fix = std::to_string(any.exchange().ports().fix);
  Case start(ending({"--fix-port", fix, "--snap-port", fix}));
  EXPECT_THAT(start.diagnosis().lines, Contains(HasSubstr("is the port of FIX too")));
  EXPECT_EQ(start.ends(), STATUS_1);
  EXPECT_THAT(start.exchange().lines(),
              Contains(StartsWith("quorl: cannot listen on DEEP SNAP port " + fix)));
}

TEST(DoctorAndExchange, a_udp_port_of_another_exchange_is_shared_in_silence) {
  Case first(e2e::living());
  first.starts_in_silence();
  const std::string gap = std::to_string(first.exchange().ports().gap_fill);
  Case second(e2e::living({"--gapfill-port", gap}));
  EXPECT_THAT(second.diagnosis().lines,
              Contains("--gapfill-port " + gap + ": UDP port " + gap + " is bound by quorl (pid " +
                       std::to_string(first.exchange().pid()) +
                       ") and would be shared unnoticed: only one of the two hears what comes"));
  second.starts_in_silence();
  EXPECT_THAT(second.exchange().banner(), HasSubstr("gap fill udp :" + gap));
}

TEST(DoctorAndExchange, a_udp_port_that_is_held_is_said_and_done_without) {
  Case start(e2e::living());
  const e2e::PortHolder holder = e2e::PortHolder::bound(start.exchange().ports().control);
  EXPECT_THAT(start.diagnosis().lines,
              ElementsAre(EndsWith("alone: the exchange says so in a line and runs without a "
                                   "control port")));
  start.exchange().start();
  EXPECT_THAT(start.exchange().lines(), Contains(StartsWith("quorl: control port")));
}

TEST(DoctorAndExchange, requests_for_gap_fill_reach_the_control_port_on_the_same_port) {
  Case any(e2e::living());
  const std::string port = std::to_string(any.exchange().ports().gap_fill);
  Case start(e2e::living({"--gapfill-port", port, "--control-port", port}));
  EXPECT_THAT(start.diagnosis().lines, Contains(HasSubstr("is the port of gap fill too")));
  start.starts_in_silence();
  client::ControlClient requester(any.exchange().ports().gap_fill);
  EXPECT_THAT(requester.command("\x01\x01 a request"), StartsWith("err unknown command"));
}

TEST(DoctorAndExchange, a_truth_path_that_cannot_be_written_is_passed_over) {
  const std::string path = "/proc/none/truth";
  Case start(e2e::living({"--truth-out", path}));
  EXPECT_THAT(start.diagnosis().lines, ElementsAre("--truth-out " + path +
                                                   ": is not written, and no line says so "
                                                   "(/proc/none: No such file or directory)"));
  start.starts_in_silence();
}

TEST(DoctorAndExchange, a_link_is_replaced_by_the_book) {
  const client::TempDirectory directory;
  const std::string kept = directory.path() + "/kept";
  const std::string link = directory.path() + "/link";
  write_file(kept, "of somebody");
  ASSERT_EQ(::symlink(kept.c_str(), link.c_str()), 0);
  const Case start(e2e::living({"--book-out", link}));
  EXPECT_THAT(start.diagnosis().lines, ElementsAre(HasSubstr("is a link: the link is replaced")));
  e2e::Exchange exchange(e2e::living({"--book-out", link}));
  (void)exchange.turn();  // the first turn writes the files
  EXPECT_EQ(client::read_file(kept), "of somebody");
  EXPECT_THAT(client::read_file(link), StartsWith("{\"ts_ns\":"));
}

TEST(DoctorAndExchange, a_truth_file_in_use_takes_the_lines_of_both) {
  SimulatorOptions writing = e2e::living();
  writing.market_truth = true;
  Case first(writing);
  first.starts_in_silence();
  const std::string path = first.exchange().market_truth_path();
  Case second(e2e::living({"--truth-out", path}));
  EXPECT_THAT(
      second.diagnosis().lines,
      ElementsAre("--truth-out " + path + ": is being written by quorl (pid " +
                  std::to_string(first.exchange().pid()) + "): the lines of both are mixed"));
  second.starts_in_silence();
  for (Case* const exchange : {&first, &second}) {
    client::ControlClient control(exchange->exchange().ports().control);
    control.ok(exchange == &first ? "mark first" : "mark second");
  }
  EXPECT_THAT(client::read_file(path), HasSubstr("{\"mark\":\"first\""));
  EXPECT_THAT(client::read_file(path), HasSubstr("{\"mark\":\"second\""));
}

TEST(DoctorAndExchange, a_log_without_a_reader_ends_the_exchange) {
  const Case start(e2e::living());
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  const auto before = ::signal(SIGPIPE, SIG_DFL);  // is inherited
  client::ChildProcess exchange(
      {.program = built_program("quorl"), .arguments = start.port_words(), .stderr_fd = ends[1]});
  ::signal(SIGPIPE, before);
  ::close(ends[1]);
  EXPECT_EQ(exchange.wait_exit(deadline).signal, SIGPIPE);
}

TEST(DoctorAndExchange, lines_go_to_what_is_opened_in_place_of_a_closed_log) {
  const client::TempDirectory directory;
  const Case start(e2e::living());
  const std::string path = directory.path() + "/orders";
  Words words = {"-c", "exec \"$0\" \"$@\" 0<&- 1>&- 2>&-", built_program("quorl")};
  const Words ports = start.port_words();
  words.insert(words.end(), ports.begin(), ports.end());
  // Numbers 0 and 1 are the feed's socket and that of gap fill, 2 is the order event file.
  client::ChildProcess exchange(
      {.program = "/bin/sh", .arguments = words, .environment = {{"BENCH_ORDER_TRUTH", path}}});
  EXPECT_EQ(run_tool("control", {"--port", ports.back(), "--wait"}).status, 0);
  EXPECT_THAT(client::read_file(path), HasSubstr("[quorl] DEEP/IEX-TP "));
}

TEST(DoctorAndExchange, a_key_that_is_none_arms_nothing) {
  SimulatorOptions options = e2e::living();
  options.scenario = "reject_evry=3, lapse_ms=5,partial_fill_every=2x";
  Case start(options);
  EXPECT_THAT(
      start.diagnosis().lines,
      ElementsAre("QUORL_SCENARIO reject_evry=3: is no key of a scenario and is passed over",
                  "QUORL_SCENARIO  lapse_ms=5: has a space about its key and is passed over",
                  "QUORL_SCENARIO partial_fill_every=2x: is read as 2: 'x' behind it is "
                  "passed over"));
  start.starts_in_silence();
  EXPECT_THAT(start.exchange().lines(),
              Contains(HasSubstr("lapse 0 ms, reject every 0, partial every 2, ")));
}

TEST(DoctorAndExchange, symbols_are_cut_and_prices_made_up) {
  Case start(e2e::living({"--symbols", "NINECHARS"}));
  EXPECT_THAT(start.diagnosis().lines,
              ElementsAre("--symbols NINECHARS: shows on the feed as NINECHAR: a symbol has 8 "
                          "characters there",
                          "--symbols NINECHARS: has no price and opens at 100"));
  e2e::Exchange exchange(e2e::still({"--symbols", "NINECHARS"}));
  const client::SymbolBook& book = exchange.book("NINECHAR");
  EXPECT_LE(e2e::best_bid(book), e2e::to_price4("99.99"));
  EXPECT_GE(e2e::best_ask(book), e2e::to_price4("100"));
}

TEST(DoctorAndExchange, low_prices_put_bids_below_zero) {
  Case start(e2e::living({"--symbols", "A:0.05"}));
  EXPECT_THAT(start.diagnosis().lines,
              ElementsAre("--symbols A:0.05: opens so low that bids stand at zero and below"));
  e2e::Exchange exchange(e2e::still({"--symbols", "A:0.05"}));
  (void)exchange.book();
  EXPECT_THAT(exchange.feed().described(), Contains(HasSubstr("@ -0.0")));
}

}  // namespace
}  // namespace tools_test
