// One FIX session and all that can happen to it, but the recovery of lost messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/errors.h"
#include "quorl/client/fix_message.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/said.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixFields;
using client::FixMessage;
using client::FixSession;
using client::SimulatorOptions;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::MatchesRegex;

constexpr const char* SCRIPTED =
    "scripted: the last order's reports stayed on the stream; the client must log on again, "
    "continue its sequence and ResendRequest what it missed";

std::string drop_line(const std::string& comp_id, const std::string& reason, int resting) {
  return "bench: dropping the connection of " + comp_id + " (" + reason + "); " +
         std::to_string(resting) +
         " resting order(s) kept \xE2\x80\x94 the IEX FIX spec defines no cancel-on-disconnect";
}

/// A buy far below the market, which rests.
client::NewOrder far_order(const std::string& cl_ord_id) {
  return {.cl_ord_id = cl_ord_id, .price = "1"};
}

TEST(Session, logon_is_answered_and_told_of) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  EXPECT_EQ(said(alpha.logon({.heartbeat_s = "17"})), "35=A|34=1|49=IEXG|56=ALPHA|98=0|108=17|");
  EXPECT_EQ(exchange.simulator().wait_for_line("bench: logon"),
            "bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)");
  EXPECT_EQ(exchange.simulator().wait_for_line("[quorl] logon"),
            "[quorl] logon ALPHA accepted (heartbeat 17 s)");
  EXPECT_EQ(exchange.counter("logons"), 1U);
  EXPECT_TRUE(exchange.control().stats().session_up);
  alpha.logout();
  EXPECT_FALSE(exchange.control().stats().session_up);
}

struct RefusedLogon {
  std::string named;  // 49, as sent
  std::string target;
  FixFields body;
  std::string seq;
  std::string reason;
};

TEST(Session, refused_logon_gets_a_logout_with_the_first_reason_and_is_closed) {
  const FixFields good{{98, "0"}, {108, "30"}};
  const std::vector<RefusedLogon> refusals = {
      {"ALPHA", "NYSE", good, "1", "TargetCompID 'NYSE' is not IEXG"},
      {"ALPHA", "", good, "1", "TargetCompID '' is not IEXG"},
      {"ALPHA", "iexg", good, "1", "TargetCompID 'iexg' is not IEXG"},
      {"", "NYSE", {}, "0", "TargetCompID 'NYSE' is not IEXG"},
      {"", "IEXG", {}, "0", "SenderCompID (49) missing"},
      {"ALPHA", "IEXG", {{98, "0"}}, "0", "HeartBtInt (108) missing"},
      {"ALPHA", "IEXG", good, "0", "MsgSeqNum too low, expecting 1 but received 0"},
      {"ALPHA", "IEXG", good, "", "MsgSeqNum too low, expecting 1 but received 0"},
      {"ALPHA", "IEXG", good, "x", "MsgSeqNum too low, expecting 1 but received 0"}};
  Exchange exchange(still());
  std::map<std::string, uint32_t> next_out;
  for (const RefusedLogon& refusal : refusals) {
    const size_t from = exchange.simulator().line_count();
    FixSession session = exchange.session(refusal.named);
    session.next_in = ++next_out[refusal.named];  // each refusal takes a number of its stream
    session.connect();
    session.send_message("A", refusal.body, {.seq = refusal.seq, .target = refusal.target});
    EXPECT_EQ(said(session.expect("5")), "35=5|34=" + std::to_string(next_out[refusal.named]) +
                                             "|49=IEXG|56=" + refusal.named +
                                             "|58=Logon rejected: " + refusal.reason + "|");
    session.expect_closed();
    EXPECT_EQ(exchange.simulator().wait_for_line("bench: logon", from),
              "bench: logon of " + refusal.named + " rejected (" + refusal.reason + ")");
  }
  EXPECT_EQ(exchange.counter("logons"), 0U);
  FixSession alpha = exchange.session("ALPHA");
  alpha.next_in = ++next_out["ALPHA"];
  EXPECT_EQ(alpha.logon().seq(), next_out["ALPHA"]);
}

TEST(Session, stream_is_remembered_over_logout_and_disconnect) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order(far_order("a1"));
  alpha.expect_report('0');
  alpha.logout();
  EXPECT_EQ(exchange.simulator().wait_for_line("logged out"),
            "bench: client ALPHA logged out (1 resting order(s) kept)");
  EXPECT_EQ(alpha.logon().seq(), 4U);
  EXPECT_EQ(exchange.simulator().wait_for_line("bench: logon ALPHA 34=4"),
            "bench: logon ALPHA 34=4 141=N (stream expected 4, next out 4)");
  alpha.disconnect();
  EXPECT_EQ(exchange.simulator().wait_for_line("disconnected"),
            "bench: client ALPHA disconnected (1 resting order(s) kept)");
  EXPECT_EQ(alpha.logon().seq(), 5U);
  alpha.abort();
  exchange.simulator().wait_for_line_if(
      [seen = 0](const std::string& line) mutable {
        return line == "bench: client ALPHA disconnected (1 resting order(s) kept)" && ++seen == 2;
      },
      "a second disconnected line");

  FixSession amnesiac = exchange.session("ALPHA");
  amnesiac.next_in = 6;
  amnesiac.connect();
  amnesiac.send_logon();
  amnesiac.hears("35=5|34=6|58=Logon rejected: MsgSeqNum too low, expecting 6 but received 1");
  amnesiac.expect_closed();
  alpha.next_in = 7;
  EXPECT_EQ(alpha.logon().seq(), 7U);
  alpha.hears_nothing();
}

TEST(Session, reset_flag_begins_the_stream_anew_even_if_the_logon_is_then_refused) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order(far_order("a1"));
  alpha.expect_report('0');
  alpha.disconnect();
  EXPECT_EQ(said(alpha.logon({.reset = true})), "35=A|34=1|49=IEXG|56=ALPHA|98=0|108=30|141=Y|");
  EXPECT_EQ(exchange.simulator().wait_for_line("141=Y"),
            "bench: logon ALPHA 34=1 141=Y (stream expected 1, next out 1)");
  alpha.hears_nothing();
  alpha.logout();

  FixSession zero = exchange.session("ALPHA");
  zero.connect();
  zero.send_message("A", {{98, "0"}, {108, "30"}, {141, "Y"}}, {.seq = "0"});
  zero.hears("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 1 but received 0");
  zero.expect_closed();
  FixSession good = exchange.session("ALPHA");
  good.next_in = 2;
  EXPECT_EQ(good.logon().seq(), 2U);
}

TEST(Session, logon_ahead_of_the_stream_is_accepted_and_draws_a_resend_request) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  alpha.next_out = 5;
  EXPECT_EQ(alpha.logon().seq(), 1U);
  EXPECT_EQ(said(alpha.expect("2")), "35=2|34=2|49=IEXG|56=ALPHA|7=1|16=4|");
  EXPECT_EQ(exchange.simulator().wait_for_line("bench: logon"),
            "bench: logon ALPHA 34=5 141=N (stream expected 1, next out 1) \xE2\x80\x94 the "
            "client's sequence is ahead of ours: ResendRequest sent");
  alpha.hears_nothing();
}

TEST(Session, heartbeat_interval_that_is_no_number_above_zero_becomes_one_second) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  for (const auto& [asked, granted] : std::vector<std::pair<std::string, std::string>>{
           {"0", "1"}, {"-5", "1"}, {"abc", "1"}, {"", "1"}, {"7x", "7"}, {"4294967326", "30"}}) {
    if (!alpha.connected()) alpha.connect();
    alpha.send_message("A", {{98, "0"}, {108, asked}});
    EXPECT_EQ(alpha.expect("A").get(108), granted) << "asked for " << asked;
    alpha.logout();
  }
  EXPECT_EQ(exchange.count_lines("[quorl] logon ALPHA accepted (heartbeat 1 s)"), 4U);
}

TEST(Session, second_logon_on_a_live_session_is_like_a_first_and_if_refused_ends_it) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  EXPECT_EQ(alpha.logon({.heartbeat_s = "7"}).seq(), 2U);
  EXPECT_EQ(exchange.counter("logons"), 2U);
  alpha.send_message("A", {{98, "0"}});
  alpha.hears("35=5|58=Logon rejected: HeartBtInt (108) missing");
  alpha.expect_closed();
}

TEST(Session, heartbeats_come_each_second_of_silence) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  const auto before = steady_clock::now();
  alpha.logon({.heartbeat_s = "1"});
  for (int i = 1; i <= 4; ++i) {
    const auto message = alpha.receive();
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(said(*message), "35=0|34=" + std::to_string(i + 1) + "|49=IEXG|56=ALPHA|");
    EXPECT_GE(steady_clock::now() - before, milliseconds(1000 * i - 10));
    alpha.heartbeat();
  }
  EXPECT_EQ(exchange.count_lines("timed out"), 0U);
}

TEST(Session, silent_client_is_closed_after_two_and_a_half_intervals_without_a_word) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  alpha.connect();
  alpha.new_order(far_order("too early"));
  alpha.expect_closed();
  const auto before = steady_clock::now();
  FixSession bravo = exchange.session("BRAVO");
  bravo.logon({.heartbeat_s = "1"});
  bravo.new_order(far_order("b1"));
  bravo.expect_report('0');
  const std::vector<FixMessage> heartbeats = bravo.read_to_close();
  EXPECT_GE(steady_clock::now() - before, milliseconds(2490));
  EXPECT_GE(heartbeats.size(), 1U);
  for (const FixMessage& message : heartbeats) EXPECT_EQ(message.type(), "0");
  EXPECT_EQ(exchange.simulator().wait_for_line("timed out"),
            "[quorl] client BRAVO timed out (no message for 2 s; resting orders kept)");
  EXPECT_EQ(exchange.count_lines("disconnected"), 0U);
}

TEST(Session, any_bytes_keep_a_session_alive_and_a_stranger_may_idle_for_ever) {
  Exchange exchange(still());
  FixSession stranger = exchange.session("STRANGER");
  stranger.connect();
  FixSession alpha = exchange.session("ALPHA");
  alpha.logon({.heartbeat_s = "1"});
  const auto before = steady_clock::now();
  while (steady_clock::now() - before < seconds(4)) {
    ASSERT_TRUE(alpha.send_bytes("x"));
    const auto heartbeat = alpha.receive(milliseconds(300));
    EXPECT_EQ(heartbeat ? heartbeat->type() : "0", "0");
    ASSERT_TRUE(alpha.connected());
  }
  alpha.hears_nothing();
  stranger.logon();  // on the connection that has idled all the time
  EXPECT_EQ(exchange.count_lines("timed out"), 0U);
}

TEST(Session, test_request_is_answered_with_its_text_or_without) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.test_request("are you there=?");
  EXPECT_EQ(said(alpha.next()), "35=0|34=2|49=IEXG|56=ALPHA|112=are you there=?|");
  alpha.test_request("");
  const auto bare = alpha.receive();
  ASSERT_TRUE(bare.has_value());
  EXPECT_EQ(said(*bare), "35=0|34=3|49=IEXG|56=ALPHA|");
  alpha.send_message("1", {{112, ""}});
  const auto empty = alpha.receive();
  ASSERT_TRUE(empty.has_value());
  EXPECT_EQ(said(*empty), "35=0|34=4|49=IEXG|56=ALPHA|");
}

TEST(Session, unknown_type_is_rejected_and_the_session_stays) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  uint32_t seq = 2;
  for (const std::string type : {"Q", "DD", "8", "3", "AA", ""}) {
    alpha.send_message(type, {});
    EXPECT_EQ(said(alpha.expect("3")), "35=3|34=" + std::to_string(seq) + "|49=IEXG|56=ALPHA|45=" +
                                           std::to_string(seq) + "|373=11|58=Invalid MsgType|");
    ++seq;
  }
  alpha.hears_nothing();
  EXPECT_EQ(exchange.count_lines("seq gap"), 0U);
}

TEST(Session, message_before_the_logon_closes_without_a_reply) {
  Exchange exchange(still());
  (void)exchange.news();
  for (const std::string type : {"D", "1", "5", "2", "Q", ""}) {
    const size_t from = exchange.simulator().line_count();
    FixSession alpha = exchange.session("ALPHA");
    alpha.connect();
    alpha.send_message(type,
                       {{11, "a1"}, {55, "AAPL"}, {54, "1"}, {38, "100"}, {44, "1"}, {18, "i"}});
    EXPECT_TRUE(alpha.read_to_close().empty());
    EXPECT_THAT(exchange.simulator().wait_for_line("before Logon", from),
                MatchesRegex("bench: message 35=" + type +
                             " before Logon from fd [0-9]+ \xE2\x80\x94 connection closed"));
  }
  EXPECT_EQ(exchange.counter("orders"), 0U);
  EXPECT_THAT(exchange.news(), ElementsAre());
  FixSession alpha = exchange.session("ALPHA");
  EXPECT_EQ(alpha.logon().seq(), 1U) << "nothing has been spent on its stream";
}

TEST(Session, logout_is_answered_without_a_text) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.send_message("5", {{58, "bye"}});
  EXPECT_EQ(said(alpha.expect("5")), "35=5|34=2|49=IEXG|56=ALPHA|");
  alpha.expect_closed();
  EXPECT_EQ(exchange.simulator().wait_for_line("logged out"),
            "bench: client ALPHA logged out (0 resting order(s) kept)");
  EXPECT_EQ(exchange.count_lines("disconnected"), 0U);
}

TEST(Session, low_number_is_handled_unless_it_says_it_is_a_duplicate) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.test_request("1");
  alpha.next();
  const auto low_order = [&](const std::string& cl_ord_id, const FixFields& header) {
    alpha.send_message(
        "D", {{11, cl_ord_id}, {55, "AAPL"}, {54, "1"}, {38, "100"}, {44, "1"}, {18, "i"}},
        {.seq = "1", .header_extra = header});
  };
  low_order("a1", {});
  alpha.hears("35=8|150=0|11=a1");
  low_order("a2", {{43, "Y"}});
  alpha.hears_nothing();
  low_order("a3", {{43, "N"}});
  alpha.hears("35=8|150=0|11=a3");
  low_order("a4", {{43, ""}});
  alpha.hears("35=8|150=0|11=a4");
  alpha.hears_nothing();
  EXPECT_EQ(exchange.counter("orders"), 3U);
  EXPECT_EQ(exchange.count_lines("seq gap"), 0U);
}

TEST(Session, high_number_draws_a_resend_request_and_is_handled_all_the_same) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.next_out = 7;
  alpha.new_order(far_order("a1"));
  EXPECT_EQ(said(alpha.expect("2")), "35=2|34=2|49=IEXG|56=ALPHA|7=2|16=6|");
  alpha.hears("35=8|34=3|150=0|11=a1");
  EXPECT_EQ(exchange.simulator().wait_for_line("seq gap"),
            "bench: client ALPHA seq gap expected 2 got 7 (D) \xE2\x80\x94 ResendRequest sent");
  alpha.hears_nothing();
  alpha.next_out = 12;
  alpha.send_message("5", {});
  alpha.hears("35=2|7=9|16=11");
  alpha.expect("5");
  alpha.expect_closed();
}

TEST(Session, later_of_two_connections_of_one_name_hears_of_fills_from_elsewhere) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession earlier = exchange.logs_on("ALPHA");
  FixSession later = exchange.session("ALPHA");
  later.next_out = 2;
  later.next_in = 2;
  EXPECT_EQ(later.logon().seq(), 2U) << "one stream for both";
  earlier.continuity = client::Continuity::UNCHECKED;
  later.continuity = client::Continuity::UNCHECKED;

  earlier.next_out = 3;
  earlier.new_order({.cl_ord_id = "a1", .side = "2", .price = "190"});
  earlier.hears("35=8|34=3|150=0|11=a1");
  FixSession bravo = exchange.logs_on("BRAVO");
  bravo.new_order({.cl_ord_id = "b1", .price = "190"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  later.hears("35=8|34=4|150=2|11=a1|851=1");
  earlier.hears_nothing();
  EXPECT_EQ(exchange.count_lines("FIX client connected"), 4U);

  later.disconnect();
  exchange.simulator().wait_for_line("bench: client ALPHA disconnected");
  earlier.new_order({.cl_ord_id = "a2", .side = "2", .price = "190"});
  earlier.hears("35=8|150=0|11=a2");
  bravo.new_order({.cl_ord_id = "b2", .price = "190"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  earlier.hears("35=8|150=2|11=a2|851=1");
}

TEST(Session, scripted_drop_comes_once_behind_the_order_and_keeps_its_reports_on_the_stream) {
  SimulatorOptions options = still();
  options.scenario = "disconnect_after=2";
  Exchange exchange(options);
  (void)exchange.news();
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order(far_order("a1"));
  alpha.expect_report('0');
  alpha.new_order({.cl_ord_id = "unknown", .symbol = "NONE", .price = "1"});
  alpha.expect_report('8');  // no order yet, so no drop
  alpha.new_order(far_order("a2"));
  alpha.expect_closed();
  EXPECT_EQ(exchange.simulator().wait_for_line("dropping"), drop_line("ALPHA", SCRIPTED, 2));
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 1 last", "8 AAPL 200 @ 1 last"));
  EXPECT_EQ(exchange.count_lines("disconnected"), 0U);

  alpha.continuity = client::Continuity::TRACK;
  EXPECT_EQ(alpha.logon().seq(), 5U);
  EXPECT_THAT(alpha.missing(), ElementsAre(4)) << "the report of a2";
  alpha.new_order(far_order("a3"));
  alpha.expect_report('0');
  alpha.hears_nothing();

  exchange.control().ok("disconnect");
  alpha.new_order(far_order("a4"));
  alpha.expect_closed();
  EXPECT_EQ(exchange.count_lines(drop_line("ALPHA", SCRIPTED, 4)), 1U);
}

TEST(Session, driven_drop_takes_the_next_order_whatever_becomes_of_it) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  exchange.control().ok("disconnect");
  exchange.control().ok("disconnect");
  alpha.hears_nothing();
  bravo.new_order({.cl_ord_id = "b1", .symbol = "NONE", .price = "1"});
  bravo.expect_closed();
  EXPECT_EQ(exchange.simulator().wait_for_line("dropping"), drop_line("BRAVO", "driven", 0));
  alpha.new_order(far_order("a1"));
  alpha.expect_report('0');
  bravo.continuity = client::Continuity::TRACK;
  EXPECT_EQ(bravo.logon().seq(), 3U);
  EXPECT_THAT(bravo.missing(), ElementsAre(2)) << "the refusal of b1";
}

TEST(Session, driven_drop_before_the_threshold_uses_up_the_scripted_one) {
  SimulatorOptions options = still();
  options.scenario = "disconnect_after=3";
  Exchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.control().ok("disconnect");
  alpha.new_order(far_order("a1"));
  alpha.expect_closed();
  EXPECT_EQ(exchange.simulator().wait_for_line("dropping"), drop_line("ALPHA", SCRIPTED, 1));
  alpha.continuity = client::Continuity::TRACK;
  alpha.logon();
  for (const std::string id : {"a2", "a3", "a4"}) {
    alpha.new_order(far_order(id));
    alpha.expect_report('0');
  }
  alpha.hears_nothing();
}

TEST(Session, what_stands_behind_a_dropped_order_in_one_read_never_acts) {
  SimulatorOptions options = still();
  options.scenario = "disconnect_after=1";
  Exchange exchange(options);
  (void)exchange.news();
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.simulator().stop_process();
  alpha.new_order(far_order("a1"));
  alpha.new_order(far_order("a2"));
  exchange.simulator().cont_process();
  alpha.expect_closed();
  exchange.turn();
  EXPECT_EQ(exchange.counter("orders"), 1U);
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 1 last"));
}

TEST(Session, messages_and_close_in_one_pass_leave_the_disconnected_line_alone) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession stranger = exchange.session("STRANGER");
  stranger.connect();
  const size_t from = exchange.settle_lines();
  exchange.simulator().stop_process();
  alpha.new_order(far_order("a1"));
  alpha.send_message("5", {});
  alpha.disconnect();
  stranger.send_logon();
  stranger.disconnect();
  exchange.simulator().cont_process();
  exchange.simulator().wait_for_line("bench: client  disconnected (", from);
  (void)exchange.settle_lines();
  std::vector<std::string> lines = exchange.simulator().lines();
  lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(from));
  std::erase_if(lines, [](const std::string& line) {
    return line.starts_with("bench: stats ") || line.starts_with("bench: mark ");
  });
  EXPECT_THAT(lines, ElementsAre("bench: client ALPHA disconnected (0 resting order(s) kept)",
                                 MatchesRegex("bench: client  disconnected \\([0-9]+ resting "
                                              "order\\(s\\) kept\\)")));
  EXPECT_EQ(exchange.counter("orders"), 0U);
  EXPECT_EQ(exchange.counter("logons"), 1U);
}

TEST(Session, lapse_of_the_scenario_begins_behind_the_first_logon_reply) {
  SimulatorOptions options = still();
  options.scenario = "lapse_ms=600000";
  Exchange exchange(options);
  (void)exchange.news();
  FixSession alpha = exchange.logs_on("ALPHA");
  EXPECT_THAT(exchange.simulator().wait_for_line("going silent"),
              MatchesRegex("bench: going silent for (600000|599...) ms .*"));
  alpha.test_request("anybody?");
  alpha.new_order(far_order("a1"));
  alpha.send_message("Q", {});
  exchange.turn();
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 1 last")) << "the market goes on";
  EXPECT_FALSE(alpha.receive(milliseconds(0)).has_value());

  FixSession bravo = exchange.session("BRAVO");
  bravo.connect();
  bravo.send_message("A", {{98, "0"}});
  bravo.hears("35=5|58=Logon rejected: HeartBtInt (108) missing");  // never held back
  bravo.expect_closed();
  FixSession charlie = exchange.session("CHARLIE");
  charlie.send_logon();
  exchange.simulator().wait_for_line("[quorl] logon CHARLIE accepted");
  exchange.turn();
  EXPECT_FALSE(charlie.receive(milliseconds(0)).has_value());
  EXPECT_TRUE(charlie.connected());

  exchange.control().ok("lapse 0");
  alpha.continuity = client::Continuity::TRACK;
  alpha.hears_nothing();
  EXPECT_THAT(alpha.missing(), ElementsAre(2, 3, 4)) << "Heartbeat, report and Reject are spent";
  charlie.continuity = client::Continuity::TRACK;
  charlie.hears_nothing();
  EXPECT_THAT(charlie.missing(), ElementsAre(1));
  EXPECT_EQ(exchange.count_lines("going silent"), 1U) << "once, and at one logon";
}

TEST(Session, logon_ahead_of_the_stream_gets_reply_and_resend_request_before_its_lapse) {
  SimulatorOptions options = still();
  options.scenario = "lapse_ms=600000";
  Exchange exchange(options);
  FixSession alpha = exchange.session("ALPHA");
  alpha.next_out = 9;
  alpha.logon();
  alpha.hears("35=2|34=2|7=1|16=8");
  exchange.simulator().wait_for_line("going silent");
}

TEST(Session, lapse_holds_heartbeats_back_and_lets_time_outs_run) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  FixSession bravo = exchange.session("BRAVO");
  bravo.logon({.heartbeat_s = "1"});
  alpha.logon({.heartbeat_s = "1"});
  exchange.control().ok("lapse 600000");
  exchange.turn();
  while (bravo.receive(milliseconds(0))) {
  }
  const size_t heard = bravo.received().size();
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (exchange.simulator().count_lines("client ALPHA timed out") == 0) {
    bravo.heartbeat();
    EXPECT_FALSE(bravo.receive(milliseconds(100)).has_value());
    ASSERT_FALSE(deadline.expired());
  }
  EXPECT_EQ(bravo.received().size(), heard);
  alpha.read_to_close();
  exchange.control().ok("lapse 0");
  const auto heartbeat = bravo.receive();
  ASSERT_TRUE(heartbeat.has_value());
  EXPECT_EQ(heartbeat->type(), "0");
}

// Framing, as a session sees it.

std::string test_request_frame(const FixSession& session, const std::string& text) {
  return client::compose_fix({.type = "1",
                              .seq = std::to_string(session.next_out),
                              .sender = session.comp_id(),
                              .target = "IEXG"},
                             {{112, text}});
}

TEST(Session, frame_cut_anywhere_behind_its_first_five_bytes_comes_out_whole) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  const size_t size = test_request_frame(alpha, "whole").size();
  for (size_t cut = 5; cut < size; ++cut) {
    const std::string frame = test_request_frame(alpha, "whole");
    ++alpha.next_out;
    alpha.send_bytes(frame.substr(0, cut));
    exchange.turn();
    alpha.send_bytes(frame.substr(cut));
    alpha.hears("35=0|112=whole");
  }
}

TEST(Session, frame_cut_in_its_first_five_bytes_is_lost) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  for (size_t cut = 1; cut < 5; ++cut) {
    const std::string frame = test_request_frame(alpha, "lost");
    alpha.send_bytes(frame.substr(0, cut));
    exchange.turn();
    alpha.send_bytes(frame.substr(cut));
    exchange.turn();
    alpha.hears_nothing();
  }
}

TEST(Session, bad_frames_are_dropped_in_silence_and_the_good_one_behind_them_is_handled) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  const auto good = [&] { return test_request_frame(alpha, "good"); };
  const auto expect_only_the_good_one = [&](const std::string& ahead, const std::string& why) {
    SCOPED_TRACE(why);
    alpha.send_bytes(ahead + good());
    ++alpha.next_out;
    alpha.hears("35=0|112=good");
    alpha.hears_nothing();
  };
  std::string bad_checksum = good();
  bad_checksum[bad_checksum.size() - 2] = bad_checksum[bad_checksum.size() - 2] == '9' ? '0' : '9';
  expect_only_the_good_one(bad_checksum, "checksum");
  expect_only_the_good_one("\x01garbage8=FI\x01", "garbage");
  expect_only_the_good_one(client::with_soh("8=FIX.4.2|9=abc|35=1|"), "length of letters");
  expect_only_the_good_one(client::with_soh("8=FIX.4.2|9=|35=1|"), "empty length");
  expect_only_the_good_one(client::with_soh("8=FIX.4.2|9=99999999999999999999999|35=1|"),
                           "length out of range");
  expect_only_the_good_one(client::with_soh("8=FIX.4.2|9=3|35=1|112=x|10=000|"),
                           "length too short");
}

TEST(Session, any_version_of_fix_is_framed_and_answered_in_our_own) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  alpha.connect();
  alpha.send_bytes(client::frame_fix("35=A|34=1|49=ALPHA|56=IEXG|98=0|108=30|", "FIXT.1.1"));
  alpha.next_out = 2;
  alpha.expect("A");
  alpha.hears_nothing();
}

TEST(Session, last_of_two_fields_of_one_tag_counts) {
  Exchange exchange(still());
  FixSession alpha = exchange.session("ALPHA");
  alpha.connect();
  alpha.send_bytes(
      client::frame_fix("35=0|35=A|34=9|34=1|49=BRAVO|49=ALPHA|56=X|56=IEXG|108=5|108=6|"));
  alpha.next_out = 2;
  alpha.hears("35=A|34=1|108=6");
}

}  // namespace
}  // namespace e2e
