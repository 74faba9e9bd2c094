// quorl-control against a running exchange, and against none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/simulator.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/terminal.h"
#include "tests/tools/support/tool.h"

namespace client = quorl::client;

namespace tools_test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using Words = std::vector<std::string>;

std::string control_port_of(e2e::Exchange& exchange) {
  return std::to_string(exchange.ports().control);
}

/// The words behind the exchange's port, and more patience than the second that is the default: an
/// exchange may stand still that long.
Words with_patience(e2e::Exchange& exchange, Words words) {
  words.insert(words.begin(), {"--port", control_port_of(exchange), "--timeout", "60"});
  return words;
}

Said control(e2e::Exchange& exchange, Words words) {
  return run_tool("control", with_patience(exchange, std::move(words)));
}

/// Said by an end with nothing on the other stream.
void expect_said(const Said& said, int status, const std::string& out,
                 const std::string& err = "") {
  EXPECT_EQ(said.status, status);
  EXPECT_EQ(said.out, out);
  EXPECT_EQ(said.err, err);
}

TEST(Control, sends_a_command_and_prints_the_reply) {
  e2e::Exchange exchange(e2e::still());
  expect_said(control(exchange, {"drop", "3"}), 0, "ok drop 3\n");
  expect_said(control(exchange, {"pause"}), 0, "ok pause\n");
  EXPECT_EQ(exchange.count_lines("bench: paused at seq "), 1U);
}

TEST(Control, leaves_it_to_the_exchange_what_is_a_command) {
  e2e::Exchange exchange(e2e::still());
  expect_said(control(exchange, {"PAUSE"}), 1, "err unknown command 'PAUSE'\n");
  expect_said(control(exchange, {"drop", "-1"}), 0, "ok drop -1\n");
  expect_said(control(exchange, {"mark", "[a,b]"}), 0, "ok mark [a,b]\n");
  expect_said(control(exchange, {"--", "--json"}), 1, "err unknown command '--json'\n");
  expect_said(control(exchange, {"mark", "--", "--", "-x"}), 0, "ok mark -- -x\n",
              "quorl-control: the label of the mark is '--': it ends at a space\n");
}

TEST(Control, tells_of_a_label_that_is_cut) {
  e2e::Exchange exchange(e2e::still());
  expect_said(control(exchange, {"mark", "phase two"}), 0, "ok mark phase two\n",
              "quorl-control: the label of the mark is 'phase': it ends at a space\n");
  EXPECT_EQ(exchange.count_lines("bench: mark phase at seq "), 1U);
}

TEST(Control, ends_the_line_that_the_reply_to_stop_leaves_open) {
  e2e::Exchange exchange(e2e::still());
  expect_said(control(exchange, {"stop"}), 0, "ok stopping\n");
  EXPECT_EQ(exchange.simulator().wait_exit().code, 0);
}

TEST(Control, takes_the_port_from_the_environment_behind_its_option) {
  e2e::Exchange exchange(e2e::still());
  const std::string port = control_port_of(exchange);
  Words resume{"resume", "--timeout", "60"};
  EXPECT_EQ(run_tool("control", resume, "", {{"QUORL_CONTROL_PORT", port}}).out, "ok resume\n");
  resume.insert(resume.end(), {"--port", port});
  EXPECT_EQ(run_tool("control", resume, "", {{"QUORL_CONTROL_PORT", "none"}}).out, "ok resume\n");
  expect_said(run_tool("control", {"resume"}, "", {{"QUORL_CONTROL_PORT", "none"}}), 2, "",
              "quorl-control: QUORL_CONTROL_PORT: none is no port\n");
  expect_said(run_tool("control", {"resume"}, "", {{"QUORL_CONTROL_PORT", "65536"}}), 2, "",
              "quorl-control: QUORL_CONTROL_PORT: 65536 is no port\n");
}

TEST(Control, prints_the_counters_as_json) {
  e2e::Exchange exchange(e2e::still());
  client::FixSession session = exchange.logs_on("ALPHA");
  const Said said = control(exchange, {"stats", "--json"});
  EXPECT_EQ(said.status, 0);
  const nlohmann::json stats = nlohmann::json::parse(said.out);
  EXPECT_EQ(stats.at("logons"), 1);
  EXPECT_EQ(stats.at("session_up"), true);
  EXPECT_EQ(stats.at("faults").at("dropped"), 0);
  EXPECT_EQ(stats.at("next_seq"), exchange.turn().next_seq);
}

TEST(Control, watches_what_moves_until_it_is_interrupted) {
  for (const int stop : {SIGINT, SIGTERM}) {
    e2e::Exchange exchange(e2e::still());
    Tool watch("control", with_patience(exchange, {"stats", "--watch", "--every", "0.05"}));
    EXPECT_THAT(watch.prints("next_seq"), MatchesRegex("[0-9:]{8}  next_seq [0-9]+  sent [0-9]+  "
                                                       "session down"));
    EXPECT_THAT(watch.prints("nothing moved"), MatchesRegex("[0-9:]{8}  nothing moved"));
    client::FixSession session = exchange.logs_on("ALPHA");
    EXPECT_THAT(watch.prints("logons"), HasSubstr("logons 0 -> 1 (+1)"));
    watch.prints("session down -> up");
    watch.signal(stop);
    const Said said = watch.end();
    EXPECT_EQ(said.status, 0);
    EXPECT_EQ(said.err, "");
  }
}

TEST(Control, watches_as_json_lines) {
  e2e::Exchange exchange(e2e::still());
  Tool watch("control", with_patience(exchange, {"stats", "--watch", "--json", "--every", "0.05"}));
  watch.prints("next_seq", 1);
  watch.signal(SIGINT);
  EXPECT_EQ(watch.end().status, 0);
  for (const std::string& line : watch.printed()) {
    EXPECT_EQ(nlohmann::json::parse(line).at("logons"), 0);
  }
}

TEST(Control, stops_watching_when_the_exchange_goes) {
  e2e::Exchange exchange(e2e::still());
  Tool watch("control", {"--port", control_port_of(exchange), "--timeout", "10", "stats", "--watch",
                         "--every", "0.05"});
  watch.prints("next_seq");
  exchange.simulator().terminate();
  const Said said = watch.end();
  EXPECT_EQ(said.status, 3);
  // A request that the exchange had, and did not live to answer, is not refused.
  const std::string port = "UDP port " + control_port_of(exchange);
  EXPECT_THAT(said.err,
              AnyOf(HasSubstr("nobody is at " + port), HasSubstr("no answer from " + port)));
}

TEST(Control, says_at_once_that_nobody_is_there) {
  const client::PortSlot slot;
  const std::string port = std::to_string(slot.ports().control);
  // The time-out is far beyond the patience of this test.
  expect_said(run_tool("control", {"--port", port, "--timeout", "3600", "stats"}), 3, "",
              "quorl-control: nobody is at UDP port " + port + " of 127.0.0.1\n");
}

TEST(Control, says_that_nobody_answers) {
  const client::UdpSocket mute = client::UdpSocket::on_loopback();
  const std::string port = std::to_string(mute.port());
  const std::string complaint = "quorl-control: no answer from UDP port " + port + "\n";
  expect_said(run_tool("control", {"--port", port, "--timeout", "0.05", "stats"}), 3, "",
              complaint);
  expect_said(run_tool("control", {"--port", port, "--timeout", "0.1", "--wait"}), 3, "",
              complaint);
}

TEST(Control, makes_no_json_of_what_is_no_exchange) {
  client::UdpSocket stranger = client::UdpSocket::on_loopback();
  Tool tool("control",
            {"--port", std::to_string(stranger.port()), "stats", "--json", "--timeout", "10"});
  const auto asked = stranger.receive(client::Deadline::after(client::PATIENCE));
  ASSERT_TRUE(asked.has_value());
  stranger.send_to(asked->from_port, client::to_bytes("hello"));
  expect_said(tool.end(), 1, "", "quorl-control: what answers is no exchange: \"hello\"\n");
}

TEST(Control, is_bold_on_a_terminal_unless_NO_COLOR_is_set) {
  e2e::Exchange exchange(e2e::still());
  const std::string command = built_program("quorl-control") + " --port " +
                              control_port_of(exchange) + " --timeout 60 stats --watch";
  const std::string bold = "\x1b[1m";
  const Terminal plain("NO_COLOR=1 " + command, {});
  plain.shows({"session down"});
  EXPECT_THAT(plain.screen(true), Not(HasSubstr(bold)));
  const Terminal coloured(command, {});
  coloured.shows({"session down"});
  EXPECT_THAT(coloured.screen(true), HasSubstr(bold));
}

TEST(Control, waits_for_an_exchange_that_starts_later) {
  client::Simulator simulator(e2e::still());
  const std::string port = std::to_string(simulator.ports().control);
  Tool alone("control", {"--port", port, "--wait", "--timeout", "60"});
  Tool ahead("control", {"--port", port, "--wait", "--timeout", "60", "pause"});
  simulator.start();
  if (simulator.restarts() != 0) GTEST_SKIP() << "the port was taken by another";
  expect_said(alone.end(), 0, "");
  expect_said(ahead.end(), 0, "ok pause\n");
}

TEST(Control, does_not_wait_for_ever) {
  const client::PortSlot slot;
  const std::string port = std::to_string(slot.ports().control);
  expect_said(run_tool("control", {"--port", port, "--wait", "--timeout", "0.1", "stats"}), 3, "",
              "quorl-control: nobody is at UDP port " + port + " of 127.0.0.1\n");
}

TEST(Control, does_nothing_when_it_is_used_wrongly) {
  e2e::Exchange exchange(e2e::still());
  const std::pair<Words, std::string> cases[] = {
      {{}, "a command is missing"},
      {{""}, "the command is empty"},
      {{" ", "\t"}, "the command is empty"},
      {{"--wait", ""}, "the command is empty"},
      {{"mark", std::string(507, 'x')}, "the command has 512 bytes"},
      {{"pause", "--json"}, "--json goes with the command stats alone"},
      {{"pause", "--watch"}, "--watch goes with the command stats alone"},
      {{"stats", "--every", "1"}, "--every requires --watch"},
      {{"pause", "--timeout", "soon"}, "soon is no time in seconds above 0"},
      {{"pause", "--timeout", "0"}, "0 is no time in seconds above 0"},
      {{"pause", "--timeout", "nan"}, "nan is no time in seconds above 0"},
      {{"pause", "--timeout", "1s"}, "1s is no time in seconds above 0"},
      {{"pause", "-x"}, "there is no option -x"},
  };
  for (const auto& [words, complaint] : cases) {
    const Said said =
        run_tool("control", words, "", {{"QUORL_CONTROL_PORT", control_port_of(exchange)}});
    EXPECT_EQ(said.status, 2) << complaint;
    EXPECT_EQ(said.out, "");
    EXPECT_THAT(said.err, StartsWith("quorl-control: " + complaint));
  }
  EXPECT_EQ(run_tool("control", {"--port", "0", "pause"}).status, 2);
  EXPECT_EQ(exchange.count_lines("bench: paused"), 0U);
}

}  // namespace
}  // namespace tools_test
