// quorl-trade beside a real exchange, and beside one that misbehaves as no real one does.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/port_slot.h"
#include "tests/client/fake_acceptor.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

/// A still exchange, and scripts that are run against it as ALPHA.
class Trade : public testing::Test {
 protected:
  Words words(Words more = {}) const {
    Words all{"ALPHA", std::to_string(exchange.ports().fix)};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  Said runs(const std::string& script, Words more = {}) const {
    return run_tool("trade", words(std::move(more)), script);
  }

  /// Until the exchange has answered an order, be it into a silence.
  void await_accepted() {
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    while (exchange.counter("accepts") == 0) {
      if (deadline.expired()) throw client::Timeout("no order is accepted");
    }
  }

  e2e::Exchange exchange{e2e::still()};
};

size_t count_of(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST_F(Trade, shows_what_it_sends_and_hears_and_logs_out) {
  const Said said = runs("buy AAPL 100 185\nexpect 150=0");
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_EQ(said.err, "");
  std::istringstream out(said.out);
  Words lines;
  for (std::string line; std::getline(out, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 6U) << said.out;
  EXPECT_THAT(lines[0], MatchesRegex("> 8=FIX.4.2\\|9=[0-9]+\\|35=A\\|34=1\\|49=ALPHA\\|56=IEXG\\|"
                                     "52=[^|]+\\|98=0\\|108=30\\|141=Y\\|10=[0-9]+\\|"));
  EXPECT_THAT(lines[1], ContainsRegex("^< .*\\|35=A\\|34=1\\|49=IEXG\\|.*\\|141=Y\\|"));
  EXPECT_THAT(lines[2], ContainsRegex("^> .*\\|35=D\\|34=2\\|.*\\|11=o1-[0-9a-z]+\\|55=AAPL\\|54=1"
                                      "\\|38=100\\|40=2\\|44=185\\|59=0\\|18=i\\|47=P\\|"));
  EXPECT_THAT(lines[3], ContainsRegex("^< .*\\|35=8\\|34=2\\|.*\\|150=0\\|39=0\\|55=AAPL\\|"));
  EXPECT_THAT(lines[4], ContainsRegex("^> .*\\|35=5\\|34=3\\|"));
  EXPECT_THAT(lines[5], ContainsRegex("^< .*\\|35=5\\|34=3\\|"));
  exchange.simulator().wait_for_line("bench: client ALPHA logged out (1 resting order(s) kept)");
}

TEST_F(Trade, takes_a_closed_standard_input_for_an_empty_script) {
  const std::string command = "timeout -s KILL 20 " + built_program("quorl-trade") + " ALPHA " +
                              std::to_string(exchange.ports().fix) + " <&- >/dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0);
  EXPECT_EQ(exchange.counter("logons"), 1U);
}

TEST_F(Trade, speaks_names_on_request) {
  const Said said = runs("buy AAPL 100 fok", {"--explain"});
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_THAT(said.out, HasSubstr("|MsgType=NewOrderSingle|MsgSeqNum=2|"));
  EXPECT_THAT(said.out, HasSubstr("|TimeInForce=FillOrKill|"));
  EXPECT_THAT(said.out, HasSubstr("|ExecType=Fill|OrdStatus=Filled|"));
  EXPECT_THAT(said.out, Not(HasSubstr("|35=")));
}

TEST_F(Trade, does_by_script_all_that_an_order_can) {
  const Said said = runs(R"(# orders, and what becomes of them
buy AAPL 100 185 agency id=mine
expect 35=8|150=0|11=mine|47=A
sell AAPL 100 1000 short
expect 150=0|54=5|11=o1
sell AAPL 100 1000 exempt riskless
expect ExecType=New|Side=SellShortExempt|47=R|11=o2
buy AAPL 100 1 ioc
expect 150=4|59=3|58=UnmatchedIOC
buy AAPL 10000000 1 fok
expect 150=4|59=4|14=0
buy AAPL 100
expect 150=2|40=1
replace mine 300 186
expect 150=5|41=mine|11=o6|38=300|44=186
replace o6 200
expect 150=5|38=200|44=186
orders
cancel o7
wait |150=4|39=4|
orders
test are you there
wait 112=are you there
status
   resend 2 2
expect 43=Y|34=2|11=mine
quit
buy AAPL 100 185)");
  EXPECT_EQ(said.status, 0) << said.err << said.out;
  EXPECT_THAT(said.out, ContainsRegex("! o7-[0-9a-z]+ Buy 200 AAPL @ 186: Replaced, 200 open\n"));
  EXPECT_THAT(said.out, ContainsRegex("! o7-[0-9a-z]+ Buy 200 AAPL @ 186: Canceled, 0 open\n"));
  EXPECT_THAT(said.out, ContainsRegex("! mine Buy 300 AAPL @ 186: Replaced, 0 open\n|"
                                      "! mine Buy 100 AAPL @ 185: Replaced, 0 open\n"));
  EXPECT_THAT(said.out, HasSubstr(": logged on, next number out 12, next in "));
  EXPECT_EQ(count_of(said.out, "|35=D|"), 6U);  // nothing behind quit
}

TEST_F(Trade, ends_a_script_at_an_expectation_that_fails) {
  const Said said = runs("timeout 0.2\nbuy AAPL 100 185\n\nexpect 35=8|150=2\nbuy MSFT 100 1");
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.err, "quorl-trade: line 4: expect 35=8|150=2: not heard within 0.2 s\n");
  EXPECT_THAT(said.out, Not(HasSubstr("55=MSFT")));
  EXPECT_THAT(said.out, HasSubstr("|35=5|"));  // it still logs out
}

TEST_F(Trade, finds_each_message_by_one_expectation_only) {
  const Said said = runs("buy AAPL 100 185\nexpect 35=8|150=0\ntimeout 0.2\nwait |150=0|");
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.err, "quorl-trade: line 4: wait |150=0|: not heard within 0.2 s\n");
}

TEST_F(Trade, takes_its_patience_from_the_command_line) {
  const Said said = run_tool_until_answered("trade", words({"--timeout", "0.1"}), "wait never");
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.err, "quorl-trade: line 1: wait never: not heard within 0.1 s\n");
}

TEST_F(Trade, ends_with_one_if_the_exchange_refused_what_the_script_did_not_expect) {
  for (const auto& [line, refusal] :
       std::vector<std::pair<std::string, std::string>>{{"buy NOPE 100 185", "|150=8|39=8|"},
                                                        {"cancel never", "|58=Unknown order|"},
                                                        {"raw 35=Z", "|58=Invalid MsgType|"}}) {
    const Said said = runs(line + "\nbuy AAPL 100 1\ntest\nwait 112=test-1");
    EXPECT_EQ(said.status, 1);
    EXPECT_THAT(said.err, StartsWith("quorl-trade: refused, which the script did not expect: 8="));
    EXPECT_THAT(said.err, HasSubstr(refusal));
    EXPECT_THAT(said.out, HasSubstr("|112=test-1|"));  // it went on
    const Said expected = runs(line + "\nwait " + refusal);
    EXPECT_EQ(expected.status, 0) << expected.err;
  }
  const Said both = runs("buy NOPE 100 1\nbuy NOPE 200 1\nbuy NOPE 300 1\nexpect 150=8|38=200");
  EXPECT_EQ(both.status, 1);
  EXPECT_THAT(both.err, AllOf(HasSubstr("|38=100|"), EndsWith(" (and 1 more)\n")));
}

TEST_F(Trade, ends_a_script_at_a_line_it_does_not_understand_and_sends_nothing_of_it) {
  const Said said = runs("buy AAPL 100 19o\nbuy MSFT 100 1");
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.err,
            "quorl-trade: line 1: '19o' is not understood: buy SYMBOL QTY [PRICE] [WORD...]\n");
  EXPECT_THAT(said.out, Not(HasSubstr("|35=D|")));
}

TEST_F(Trade, lists_its_commands) {
  const Said said = runs("help");
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.out, HasSubstr("! replace ID QTY [PRICE]"));
}

TEST_F(Trade, loses_nothing_over_a_connection_dropped_at_an_order) {
  exchange.control().ok("disconnect");
  const Said said = runs(R"(buy AAPL 100 185
expect closed
status
reconnect
resend
expect 43=Y|34=2|150=0|11=o1
status)");
  EXPECT_EQ(said.status, 0) << said.err << said.out;
  EXPECT_THAT(said.out, HasSubstr("! the exchange has closed the connection: 'reconnect' logs on "
                                  "again with number 3\n"));
  EXPECT_THAT(said.out, HasSubstr(": not connected, next number out 3, next in 2, nothing"));
  EXPECT_THAT(said.out, ContainsRegex("> .*\\|35=2\\|34=4\\|.*\\|7=2\\|16=2\\|"));
  EXPECT_THAT(said.out, HasSubstr(": logged on, next number out 5, next in 4, nothing missing"));
  exchange.simulator().wait_for_line(
      "bench: logon ALPHA 34=3 141=N (stream expected 3, next out 3)");
}

TEST_F(Trade, remarks_what_was_missed_once_the_numbers_tell_it) {
  exchange.control().ok("disconnect");
  Tool trade("trade", words());
  trade.type("buy AAPL 100 185");
  trade.type("expect closed");
  trade.type("reconnect");
  EXPECT_EQ(trade.prints("! missed"), "! missed: 2: 'resend' asks for it again");
  trade.type("resend");
  EXPECT_THAT(trade.prints("|43=Y|"), HasSubstr("|34=2|"));
  trade.type("resend");
  trade.prints("! nothing is missing");
  trade.close_input();
  EXPECT_EQ(trade.end().status, 0);
}

TEST_F(Trade, ends_with_one_if_the_connection_is_lost_and_the_script_does_not_say_so) {
  exchange.control().ok("disconnect");
  const Said waited = runs("buy AAPL 100 185\nexpect 150=0");
  EXPECT_EQ(waited.status, 1);
  EXPECT_EQ(waited.err,
            "quorl-trade: line 2: expect 150=0: not heard, and there is no connection\n");

  exchange.control().ok("disconnect");
  Tool lost("trade", words());
  lost.type("buy AAPL 100 185");
  lost.prints("! the exchange has closed the connection");
  lost.close_input();
  const Said ended = lost.end();
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err,
            "quorl-trade: the exchange closed the connection, which the script did not expect\n");

  exchange.control().ok("disconnect");
  const Said went_on = runs("buy AAPL 100 185\nexpect closed\nbuy AAPL 200 185");
  EXPECT_EQ(went_on.status, 1);
  EXPECT_EQ(went_on.err,
            "quorl-trade: line 3: not connected: 'reconnect' logs on again with "
            "number 3\n");
}

TEST_F(Trade, notices_in_its_sleep_that_the_connection_is_lost) {
  exchange.control().ok("disconnect");
  Tool trade("trade", words());
  trade.type("buy AAPL 100 185");
  trade.type("sleep 3600");
  trade.prints("! the exchange has closed the connection");
  trade.signal(SIGTERM);
  EXPECT_EQ(trade.end().status, 1);
}

TEST_F(Trade, refuses_to_see_a_connection_closed_that_stands) {
  const Said said = runs("timeout 0.2\nexpect closed");
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.err, "quorl-trade: line 2: expect closed: the connection stands after 0.2 s\n");
}

TEST_F(Trade, comes_back_by_itself_if_asked_and_asks_for_what_it_missed) {
  exchange.control().ok("disconnect");
  const Said said = runs(
      "buy AAPL 100 185\nexpect 43=Y|150=0|11=o1\nbuy AAPL 100 184\n"
      "expect 150=0|44=184",
      {"--reconnect"});
  EXPECT_EQ(said.status, 0) << said.err << said.out;
  EXPECT_THAT(said.out, HasSubstr("! missed: 2\n"));
  exchange.simulator().wait_for_line("bench: logon ALPHA 34=3 141=N");
}

TEST_F(Trade, sees_a_connection_closed_that_it_takes_up_again_by_itself) {
  exchange.control().ok("disconnect");
  const Said said = runs("buy AAPL 100 185\nexpect closed\nexpect 43=Y|11=o1", {"--reconnect"});
  EXPECT_EQ(said.status, 0) << said.err << said.out;
}

TEST_F(Trade, ends_with_three_if_a_reconnect_is_not_answered) {
  Tool trade("trade", words());
  trade.prints("|35=A|34=1|49=IEXG|");
  exchange.control().ok("lapse 600000");
  trade.type("timeout 0.3");  // not of the first Logon, which is to be answered
  trade.type("reconnect");
  const Said said = trade.end();
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, AllOf(StartsWith("quorl-trade: line 2: the exchange at "),
                              EndsWith(" does not answer the Logon within 0.3 s\n")));
}

TEST_F(Trade, gives_up_coming_back_where_there_is_no_exchange_any_more) {
  Tool trade("trade", words({"--reconnect"}));
  trade.type("timeout 60");
  trade.type("expect 150=0");
  trade.prints("|35=A|34=1|49=IEXG|");
  (void)exchange.simulator().terminate();
  trade.prints("! the exchange has closed the connection");
  const Said said = trade.end(std::chrono::seconds(40));
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, ContainsRegex("^quorl-trade: (line [12]: )?no exchange at 127.0.0.1:"));
  EXPECT_EQ(count_of(said.err, "\n"), 1U);
}

TEST_F(Trade, notices_after_a_silence_what_it_missed) {
  Tool trade("trade", words());
  trade.prints("|35=A|34=1|49=IEXG|");
  exchange.control().ok("lapse 600000");
  trade.type("buy AAPL 100 185");
  exchange.simulator().wait_for_line("going silent");
  trade.prints("|35=D|");
  await_accepted();
  exchange.control().ok("lapse 0");
  trade.type("test");
  EXPECT_THAT(trade.prints("|112=test-1|10="), StartsWith("> "));
  EXPECT_EQ(trade.prints("! missed"), "! missed: 2: 'resend' asks for it again");
  trade.type("resend");
  trade.type("expect 43=Y|34=2|150=0");
  trade.close_input();
  EXPECT_EQ(trade.end().status, 0);
}

TEST_F(Trade, asks_by_itself_after_a_silence_if_it_may) {
  Tool trade("trade", words({"--reconnect"}));
  trade.prints("|35=A|34=1|49=IEXG|");
  exchange.control().ok("lapse 600000");
  trade.type("buy AAPL 100 185");
  await_accepted();
  exchange.control().ok("lapse 0");
  trade.type("test");
  trade.type("expect 43=Y|34=2|150=0");
  trade.close_input();
  EXPECT_EQ(trade.end().status, 0);
}

TEST_F(Trade, shows_on_request_the_heartbeats_that_keep_a_session_alive) {
  Tool trade("trade", words({"--heartbeat", "1", "--all"}));
  EXPECT_THAT(trade.prints("|35=0|34=2|49=ALPHA|"), StartsWith("> "));
  EXPECT_THAT(trade.prints("|35=0|34=2|49=IEXG|"), StartsWith("< "));
  trade.close_input();
  EXPECT_EQ(trade.end().status, 0);
}

TEST_F(Trade, remarks_a_silence_once) {
  Tool trade("trade", words({"--heartbeat", "1"}));
  trade.prints("|35=A|34=1|49=IEXG|");
  exchange.simulator().stop_process();
  EXPECT_EQ(
      trade.prints("! nothing"),
      "! nothing from the exchange for 2 s, where a Heartbeat was due after 1 s: 'test' asks, "
      "'reconnect' logs on again");
  exchange.simulator().cont_process();
  trade.type("test");
  trade.type("wait 112=test-1");
  trade.close_input();
  const Said said = trade.end();
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_EQ(count_of(said.out, "! nothing"), 1U);
}

TEST_F(Trade, goes_on_where_another_start_left_the_session_and_gives_no_order_its_name) {
  const Said first = runs("buy AAPL 100 185\nexpect 150=0|11=o1");
  EXPECT_EQ(first.status, 0) << first.err;
  const Said second =
      runs("buy AAPL 100 184\nexpect 150=0|11=o1\nresend 1\nexpect 43=Y|44=185", {"--no-reset"});
  EXPECT_EQ(second.status, 0) << second.err << second.out;
  EXPECT_THAT(second.out, HasSubstr("! logging on again with number 4\n"));
  EXPECT_THAT(second.out, HasSubstr("! this session has been spoken to before: 'resend 1' asks"));
  EXPECT_EQ(exchange.count_lines("141=Y"), 1U);
  // With a reset too: the orders rest on.
  const Said third = runs("buy AAPL 100 183\nexpect 150=0|11=o1");
  EXPECT_EQ(third.status, 0) << third.err;
  EXPECT_EQ(exchange.count_lines("141=Y"), 2U);
}

TEST_F(Trade, names_orders_of_another_start_by_their_whole_name) {
  const Said first = runs("buy AAPL 100 185\nexpect 150=0");
  const size_t at = first.out.find("|11=o1-") + 4;
  const std::string id = first.out.substr(at, first.out.find('|', at) - at);
  const Said second = runs("cancel " + id + "\nexpect 150=4|41=" + id, {"--no-reset"});
  EXPECT_EQ(second.status, 0) << second.err;
}

TEST_F(Trade, sends_by_hand_and_fills_the_gap_that_its_numbers_tear) {
  const Said said = runs(R"(raw 35=1|34=9|112=high
expect 35=2|7=2|16=8
expect 35=0|112=high
raw 35=1|112=due
expect 35=0|112=due
raw 8=FIX.4.2|9=5|35=0|10=000|
seq 12
test
expect 35=2|7=3|16=11
expect 112=test-1
test
expect 112=test-2)");
  EXPECT_EQ(said.status, 0) << said.err << said.out;
  EXPECT_THAT(said.out, HasSubstr("> 8=FIX.4.2|9=5|35=0|10=000|\n"));
  EXPECT_THAT(said.out, ContainsRegex("> .*\\|35=4\\|34=2\\|.*\\|43=Y\\|123=Y\\|36=2\\|"));
  EXPECT_THAT(said.out, ContainsRegex("> .*\\|35=4\\|34=[0-9]+\\|.*\\|43=Y\\|123=Y\\|36=13\\|"));
  EXPECT_EQ(count_of(said.out, "|35=2|"), 2U);  // none behind the last GapFill
}

TEST_F(Trade, ends_the_connection_without_a_word_and_comes_back_anew) {
  const Said said = runs(
      "buy AAPL 100 185\nexpect 150=0\ndrop\nstatus\nreconnect reset\n"
      "expect 35=A|141=Y|34=1\nlogout\nstatus");
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_EQ(count_of(said.out, ": not connected, "), 2U);
  exchange.simulator().wait_for_line("bench: client ALPHA disconnected (1 resting order(s) kept)");
  exchange.simulator().wait_for_line("bench: client ALPHA logged out");
}

TEST_F(Trade, says_that_a_logon_is_not_answered) {
  exchange.control().ok("lapse 600000");
  const Said said = runs("buy AAPL 100 185", {"--timeout", "0.3"});
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, AllOf(StartsWith("quorl-trade: the exchange at 127.0.0.1:"),
                              EndsWith(" does not answer the Logon within 0.3 s\n")));
  EXPECT_THAT(said.out, Not(HasSubstr("|35=D|")));
}

TEST_F(Trade, logs_out_when_a_signal_ends_it) {
  Tool trade("trade", words());
  trade.type("sleep 1000");
  trade.prints("|35=A|34=1|49=IEXG|");
  trade.signal(SIGINT);
  const Said said = trade.end();
  EXPECT_EQ(said.status, 1);
  EXPECT_EQ(said.err, "quorl-trade: ended by a signal\n");
  EXPECT_THAT(said.out, HasSubstr("|35=5|"));
  exchange.simulator().wait_for_line("bench: client ALPHA logged out");
}

TEST(TradeAlone, ends_with_its_own_status_where_nobody_listens) {
  const client::PortSlot slot;
  const std::string port = std::to_string(slot.ports().fix);
  const Said said = run_tool("trade", {"ALPHA", port}, "buy AAPL 100 185");
  EXPECT_EQ(said.status, 3);
  EXPECT_EQ(said.out, "");
  EXPECT_THAT(said.err, StartsWith("quorl-trade: no exchange at 127.0.0.1:" + port + ": "));
  EXPECT_EQ(count_of(said.err, "\n"), 1U);
}

TEST(TradeAlone, refuses_what_it_cannot_do_in_one_line) {
  for (const auto& [words, complaint] : std::vector<std::pair<Words, std::string>>{
           {{"ALPHA", "0"}, "port"},
           {{"ALPHA", "65536"}, "port"},
           {{"ALPHA", "x"}, "port"},
           {{""}, "'' is no CompID"},
           {{"A B"}, "'A B' is no CompID"},
           {{"A|B"}, "'A|B' is no CompID"},
           {{"--host", "nowhere"}, "nowhere is no IPv4 address"},
           {{"--heartbeat", "0"}, "--heartbeat"},
           {{"--heartbeat", "soon"}, "--heartbeat"},
           {{"--timeout", "0"}, "0 is no time in seconds above 0"},
           {{"--timeout", "-1"}, "-1 is no time"},
           {{"ALPHA", "28500", "more"}, "more"}}) {
    const Said said = run_tool("trade", words);
    EXPECT_EQ(said.status, 2) << complaint;
    EXPECT_EQ(said.out, "");
    EXPECT_THAT(said.err, AllOf(StartsWith("quorl-trade: "), HasSubstr(complaint)));
  }
}

/// An exchange in the test's hand, and a trader that has logged on to it.
class Strange : public testing::Test {
 protected:
  void logs_on(Words more = {}) {
    Words words{"ALPHA", std::to_string(acceptor.port()), "--host", "127.0.0.1"};
    words.insert(words.end(), more.begin(), more.end());
    trade = std::make_unique<Tool>("trade", words);
    accepts_logon(1);
  }

  void accepts_logon(int seq) {
    acceptor.accept();
    logon = acceptor.hears_body("A");
    acceptor.sends("35=A|34=" + std::to_string(seq) + "|98=0|108=30");
  }

  FakeAcceptor acceptor;
  std::unique_ptr<Tool> trade;
  std::string logon;
};

TEST_F(Strange, test_request_is_answered) {
  logs_on();
  acceptor.sends("35=1|34=2|112=well");
  EXPECT_EQ(acceptor.hears_body("0"), "112=well|");
}

/// What is awaited is the silence of twice the time: by then a Heartbeat of its own was due, be it
/// that the tool has stood still.
TEST_F(Strange, session_is_kept_alive_quietly) {
  logs_on({"--heartbeat", "1"});
  trade->type("timeout 0.1");
  trade->type("sleep 3600");
  trade->prints("! nothing from the exchange for 2 s");
  acceptor.sends("35=1|34=2|112=well");
  trade->prints("|112=well|");
  EXPECT_EQ(acceptor.hears_body("0"), "") << "a Heartbeat, ahead of the answer";
  trade->signal(SIGINT);
  const Said said = trade->end();
  EXPECT_EQ(count_of(said.out, "|35=0|"), 1U) << "the answer alone: " << said.out;
}

TEST_F(Strange, message_that_is_none_is_remarked_and_garbage_ends_the_connection) {
  logs_on();
  std::string spoilt = client::compose_fix(
      {.type = "0", .seq = "2", .sender = "IEXG", .target = "ALPHA"}, {{112, "x"}});
  spoilt[spoilt.size() - 2] = spoilt[spoilt.size() - 2] == '0' ? '1' : '0';  // its CheckSum
  acceptor.sends_bytes(spoilt);
  EXPECT_THAT(trade->prints("! unreadable: "), HasSubstr("CheckSum is not "));
  acceptor.sends("35=0|34=2|112=fine");
  trade->prints("|112=fine|");
  const size_t so_far = trade->lines_printed();
  acceptor.sends_bytes("HTTP/1.1 400 Bad Request\r\n");
  trade->prints("! unreadable: ", so_far);
  trade->prints("! the exchange has closed the connection");
  trade->close_input();
  EXPECT_EQ(trade->end().status, 1);
}

TEST_F(Strange, refused_logon_ends_with_one) {
  Tool refused("trade", {"ALPHA", std::to_string(acceptor.port())});
  acceptor.accept();
  (void)acceptor.hears_body("A");
  acceptor.sends("35=5|34=1|58=Logon rejected: not today");
  acceptor.close();
  const Said said = refused.end();
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.err, EndsWith(" refuses the Logon: Logon rejected: not today\n"));
}

TEST_F(Strange, connection_closed_in_place_of_a_logon_ends_with_three) {
  Tool closed("trade", {"ALPHA", std::to_string(acceptor.port())});
  acceptor.accept();
  (void)acceptor.hears_body("A");
  acceptor.close();
  const Said said = closed.end();
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, EndsWith(" closes the connection instead of an answer\n"));
}

TEST_F(Strange, exchange_that_has_begun_anew_is_remarked) {
  logs_on({"--reconnect"});
  EXPECT_EQ(logon, "98=0|108=30|141=Y|");
  acceptor.sends("35=0|34=9|112=x");
  trade->prints("! missed: 2 to 8");
  (void)acceptor.hears_body("2");
  acceptor.close();
  accepts_logon(1);
  EXPECT_EQ(logon, "98=0|108=30|");
  trade->prints("! the exchange's number is 1 where 10 was due: it has begun anew");
  acceptor.sends("35=0|34=4|112=y");
  EXPECT_EQ(trade->prints("! missed: 2 to 3"), "! missed: 2 to 3");
}

TEST_F(Strange, goodbye_that_is_not_answered_ends_all_the_same) {
  logs_on();
  trade->type("timeout 0.3");  // not of the Logon, which is to be answered
  trade->close_input();
  (void)acceptor.hears_body("5");
  const Said said = trade->end();
  EXPECT_THAT(said.out, HasSubstr("! no answer to the Logout within 0.3 s\n"));
}

TEST_F(Strange, goodbye_of_one_who_is_interrupted_is_not_waited_for_long) {
  logs_on({"--timeout", "3600"});
  trade->prints("< 8=");
  trade->signal(SIGINT);
  (void)acceptor.hears_body("5");
  const Said said = trade->end();
  EXPECT_EQ(said.status, 1);
  EXPECT_THAT(said.out, HasSubstr("! no answer to the Logout within 2 s\n"));
}

/// The tool with a terminal for its standard input.
class AtTerminal : public Trade {
 protected:
  AtTerminal() {
    terminal_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal_ < 0 || ::grantpt(terminal_) != 0 || ::unlockpt(terminal_) != 0) {
      throw client::SystemError("posix_openpt");
    }
    const int slave = ::open(::ptsname(terminal_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    int out[2];
    if (slave < 0 || ::pipe2(out, O_CLOEXEC) != 0) throw client::SystemError("ptsname");
    out_ = std::make_unique<client::LineCollector>(out[0]);
    process_ = std::make_unique<client::ChildProcess>(
        client::ChildProcess::Command{.program = built_program("quorl-trade"),
                                      .arguments = words(),
                                      .stdin_fd = slave,
                                      .stdout_fd = out[1]});
    ::close(slave);
    ::close(out[1]);
    prints("|35=A|34=1|49=IEXG|");
  }
  ~AtTerminal() override {
    process_.reset();  // ahead of what collects its lines
    ::close(terminal_);
  }

  void types(const std::string& line) {
    const std::string text = line + "\n";
    ASSERT_EQ(::write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  std::string prints(const std::string& text) {
    return out_->wait_for(
        [&text](const std::string& line) { return line.find(text) != std::string::npos; }, text, 0,
        client::Deadline::after(client::PATIENCE));
  }

  int ends() { return process_->wait_exit(client::Deadline::after(client::PATIENCE)).code; }

 private:
  int terminal_ = -1;
  std::unique_ptr<client::LineCollector> out_;
  std::unique_ptr<client::ChildProcess> process_;
};

TEST_F(AtTerminal, mistakes_and_refusals_are_said_and_end_nothing) {
  types("bye AAPL 100");
  EXPECT_EQ(prints("! there"), "! there is no command 'bye': 'help' lists them");
  types("buy AAPL");
  EXPECT_EQ(prints("! a symbol"),
            "! a symbol and a quantity are needed: buy SYMBOL QTY [PRICE] [WORD...]");
  types("buy NOPE 100 185");
  EXPECT_THAT(prints("|150=8|"), HasSubstr("|34=2|"));  // the first message since the Logon
  types("quit");
  EXPECT_EQ(ends(), 0);
}

TEST_F(AtTerminal, lost_connection_is_offered_to_be_taken_up_again) {
  exchange.control().ok("disconnect");
  types("buy AAPL 100 185");
  EXPECT_EQ(prints("! the exchange"),
            "! the exchange has closed the connection: log on again with number 3? [Y/n]");
  types("n");
  types("buy AAPL 100 184");
  EXPECT_EQ(prints("! not connected"), "! not connected: 'reconnect' logs on again with number 3");
  types("reconnect");
  prints("|35=A|34=3|49=IEXG|");
  exchange.control().ok("disconnect");
  types("buy AAPL 100 183");
  prints("log on again with number 5? [Y/n]");
  types("");
  prints("|35=A|34=5|49=IEXG|");
  types("resend");
  prints("|43=Y|");
  types("quit");
  EXPECT_EQ(ends(), 0);
  EXPECT_EQ(exchange.count_lines("141=Y"), 1U);
}

}  // namespace
}  // namespace tools_test
