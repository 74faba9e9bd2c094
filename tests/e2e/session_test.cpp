// One FIX session and all that can happen to it, but the recovery of lost messages.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "quorl/client/errors.h"
#include "quorl/client/fix_message.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/said.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixMessage;
using client::FixSession;
using client::SimulatorOptions;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::MatchesRegex;

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
  for (const FixMessage& message : alpha.drain()) EXPECT_EQ(message.type(), "0");
  stranger.logon();  // on the connection that has idled all the time
  EXPECT_EQ(exchange.count_lines("timed out"), 0U);
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
  bravo.logon({.heartbeat_s = "2"});  // due ahead of ALPHA's time-out after 2.5 s
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
