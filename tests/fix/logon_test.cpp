#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "fix/session.h"
#include "support/fix_wire.h"
#include "support/fix_wire_gateway.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

class Logon : public testing::Test {
 protected:
  /// One Logon on a connection of its own, and what is said of it on standard error.
  std::pair<WirePeer, std::string> attempt(const std::string& logon) {
    WirePeer peer = gateway.connects();
    const std::string log = standard_error_of([&] { peer.says(logon); });
    return {peer, log};
  }

  /// The log line of a refused Logon, its Logout and the close.
  void expect_refused(const std::string& logon, const std::string& sender,
                      const std::string& reason) {
    SCOPED_TRACE(logon);
    auto [peer, log] = attempt(logon);
    EXPECT_EQ(log, "bench: logon of " + sender + " rejected (" + reason + ")\n");
    peer.hears("35=5|49=IEXG|56=" + sender + "|58=Logon rejected: " + reason);
    peer.is_disconnected();
    EXPECT_EQ(gateway.exchange.scenario.counters.logons, 0U);
  }

  SessionMemory stream(const std::string& comp_id = "ALPHA") {
    return {gateway.exchange.engine, comp_id};
  }

  WireGateway gateway;
};

const char* const AHEAD = " — the client's sequence is ahead of ours: ResendRequest sent";

// --- Acceptance ---

TEST_F(Logon, of_a_new_client_is_answered_and_told_byte_for_byte) {
  auto [alpha, log] = attempt("35=A|34=1|49=ALPHA|56=IEXG|98=0|108=30");
  alpha.hears_exactly(
      "8=FIX.4.2|9=64|35=A|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|98=0|108=30|10=127|");
  alpha.hears_nothing();
  EXPECT_EQ(log, "bench: logon ALPHA 34=1 141=N (stream expected 1, next out 1)\n");
  EXPECT_TRUE(alpha.client().logged_on);
  EXPECT_EQ(alpha.client().comp_id, "ALPHA");
  EXPECT_EQ(alpha.client().heartbeat_s, 30);
  EXPECT_EQ(alpha.client().last_seq, 1U);
  EXPECT_EQ(stream().next_in(), 2U);
  EXPECT_EQ(stream().next_out(), 2U);
  EXPECT_EQ(stream().stored_count(), 0U);
  EXPECT_EQ(gateway.exchange.scenario.counters.logons, 1U);
}

TEST_F(Logon, with_a_reset_is_answered_and_told_byte_for_byte) {
  auto [alpha, log] = attempt("35=A|34=1|49=ALPHA|56=IEXG|108=5|141=Y");
  alpha.hears_exactly(
      "8=FIX.4.2|9=69|35=A|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|98=0|108=5|141=Y|10="
      "131|");
  EXPECT_EQ(log, "bench: logon ALPHA 34=1 141=Y (stream expected 1, next out 1)\n");
}

TEST_F(Logon, ahead_of_a_new_stream_is_accepted_and_draws_a_resend_request) {
  auto [alpha, log] = attempt("35=A|34=5|49=ALPHA|56=IEXG|108=30");
  EXPECT_EQ(log, std::string("bench: logon ALPHA 34=5 141=N (stream expected 1, next out 1)") +
                     AHEAD + "\n");
  alpha.hears("35=A|34=1");
  alpha.hears_exactly(
      "8=FIX.4.2|9=61|35=2|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|7=1|16=4|10=212|");
  alpha.hears_nothing();
  EXPECT_EQ(stream().next_in(), 6U);
  EXPECT_EQ(stream().next_out(), 3U);
}

TEST_F(Logon, one_ahead_asks_for_the_one_number) {
  auto [alpha, log] = attempt("35=A|34=2|49=ALPHA|56=IEXG|108=30");
  alpha.hears("35=A");
  alpha.hears("35=2|7=1|16=1");
}

TEST_F(Logon, ahead_with_a_reset_asks_for_nothing) {
  auto [alpha, log] = attempt("35=A|34=5|49=ALPHA|56=IEXG|108=30|141=Y");
  EXPECT_EQ(log, "bench: logon ALPHA 34=5 141=Y (stream expected 1, next out 1)\n");
  alpha.hears("35=A|34=1|141=Y");
  alpha.hears_nothing();
  EXPECT_EQ(stream().next_in(), 6U);
}

TEST_F(Logon, says_who_was_accepted_with_which_heartbeat_unless_the_run_is_quiet) {
  WireGateway talkative("AAPL:190.00", /*quiet=*/false);
  WirePeer alpha = talkative.connects();
  EXPECT_EQ(standard_error_of([&] { alpha.says("35=A|34=3|49=ALPHA|56=IEXG|108=0"); }),
            std::string("bench: logon ALPHA 34=3 141=N (stream expected 1, next out 1)") + AHEAD +
                "\n[quorl] logon ALPHA accepted (heartbeat 1 s)\n");
}

TEST_F(Logon, needs_no_sending_time_and_no_encrypt_method) {
  auto [alpha, log] = attempt("35=A|49=ALPHA|108=30|56=IEXG|34=1");
  alpha.hears("35=A|34=1");
}

TEST_F(Logon, does_not_read_the_encrypt_method_and_always_answers_with_0) {
  for (const char* method : {"98=1", "98=6", "98=", "98=none", "98=0|98=9"}) {
    SCOPED_TRACE(method);
    auto [alpha, log] = attempt("35=A|34=" + std::to_string(stream().next_in()) +
                                "|49=ALPHA|56=IEXG|" + method + "|108=30");
    EXPECT_THAT(log, testing::StartsWith("bench: logon ALPHA "));
    alpha.hears("35=A|98=0|108=30");
    alpha.hears_nothing();
  }
}

TEST_F(Logon, reads_a_minus_as_the_highest_number_and_the_stream_goes_on_from_0) {
  auto [alpha, log] = attempt("35=A|34=-1|49=ALPHA|56=IEXG|108=30");
  EXPECT_THAT(log, testing::StartsWith("bench: logon ALPHA 34=4294967295 141=N "));
  alpha.hears("35=A");
  alpha.hears("35=2|7=1|16=4294967294");
  EXPECT_EQ(stream().next_in(), 0U);
  attempt("35=A|34=0|49=ALPHA|56=IEXG|108=30").first.hears("35=A");
}

TEST_F(Logon, reads_only_an_exact_y_as_a_reset) {
  for (const char* flag : {"N", "y", "YES", "", " Y"}) {
    SCOPED_TRACE(flag);
    auto [alpha, log] = attempt("35=A|34=" + std::to_string(stream().next_in()) +
                                "|49=ALPHA|56=IEXG|108=30|141=" + std::string(flag));
    EXPECT_THAT(log, testing::HasSubstr(" 141=N "));
    alpha.hears("35=A|!141");
  }
  EXPECT_EQ(stream().next_out(), 6U);
}

TEST_F(Logon, takes_an_empty_or_odd_heartbeat_for_one_second) {
  for (const auto& [sent, accepted] :
       std::vector<std::pair<std::string, int>>{{"30", 30},
                                                {"1", 1},
                                                {"0", 1},
                                                {"-5", 1},
                                                {"abc", 1},
                                                {"", 1},
                                                {"4294967326", 30},  // low 32 bits
                                                {"4294967295", 1},   // that is -1
                                                {"2147483648", 1},
                                                {"2147483647", 2147483647},
                                                {"99999999999999999999", 1},
                                                {" 7", 7},
                                                {"7.9", 7},
                                                {"5s", 5}}) {
    SCOPED_TRACE(sent);
    auto [alpha, log] =
        attempt("35=A|34=" + std::to_string(stream().next_in()) + "|49=ALPHA|56=IEXG|108=" + sent);
    alpha.hears("35=A|108=" + std::to_string(accepted));
    EXPECT_EQ(alpha.client().heartbeat_s, accepted);
  }
}

// --- Refusal ---

TEST_F(Logon, refused_is_answered_byte_for_byte) {
  WirePeer peer = attempt("35=A|34=1|49=ALPHA|56=NYSE|108=30").first;
  peer.hears_exactly(
      "8=FIX.4.2|9=103|35=5|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|"
      "58=Logon rejected: TargetCompID 'NYSE' is not IEXG|10=216|");
  peer.is_disconnected();
}

TEST_F(Logon, for_another_exchange_is_refused) {
  expect_refused("35=A|34=1|49=ALPHA|56=NYSE|108=30", "ALPHA", "TargetCompID 'NYSE' is not IEXG");
  expect_refused("35=A|34=1|49=ALPHA|56=IEXGX|108=30", "ALPHA", "TargetCompID 'IEXGX' is not IEXG");
  expect_refused("35=A|34=1|49=ALPHA|56=iexg|108=30", "ALPHA", "TargetCompID 'iexg' is not IEXG");
  expect_refused("35=A|34=1|49=ALPHA|56=|108=30", "ALPHA", "TargetCompID '' is not IEXG");
  expect_refused("35=A|34=1|49=ALPHA|108=30", "ALPHA", "TargetCompID '' is not IEXG");
}

TEST_F(Logon, without_a_sender_is_refused) {
  expect_refused("35=A|34=1|56=IEXG|108=30", "", "SenderCompID (49) missing");
  expect_refused("35=A|34=1|49=|56=IEXG|108=30", "", "SenderCompID (49) missing");
}

TEST_F(Logon, without_a_heartbeat_is_refused) {
  expect_refused("35=A|34=1|49=ALPHA|56=IEXG", "ALPHA", "HeartBtInt (108) missing");
}

TEST_F(Logon, below_the_expected_number_is_refused) {
  expect_refused("35=A|34=0|49=ALPHA|56=IEXG|108=30", "ALPHA",
                 "MsgSeqNum too low, expecting 1 but received 0");
  expect_refused("35=A|49=ALPHA|56=IEXG|108=30", "ALPHA",
                 "MsgSeqNum too low, expecting 1 but received 0");
  expect_refused("35=A|34=abc|49=ALPHA|56=IEXG|108=30", "ALPHA",
                 "MsgSeqNum too low, expecting 1 but received 0");
  stream().set_next_in(7);
  expect_refused("35=A|34=6|49=ALPHA|56=IEXG|108=30", "ALPHA",
                 "MsgSeqNum too low, expecting 7 but received 6");
}

TEST_F(Logon, is_tested_for_target_then_sender_then_heartbeat_then_number) {
  expect_refused("35=A|34=0|56=NYSE", "", "TargetCompID 'NYSE' is not IEXG");
  expect_refused("35=A|34=0|49=ALPHA|56=NYSE", "ALPHA", "TargetCompID 'NYSE' is not IEXG");
  expect_refused("35=A|34=0|56=IEXG", "", "SenderCompID (49) missing");
  expect_refused("35=A|34=0|49=ALPHA|56=IEXG", "ALPHA", "HeartBtInt (108) missing");
}

TEST_F(Logon, refused_creates_the_stream_and_spends_one_of_its_numbers) {
  EXPECT_FALSE(stream().exists());
  attempt("35=A|34=1|49=ALPHA|56=NYSE|108=30").first.hears("35=5|34=1");
  EXPECT_TRUE(stream().exists());
  EXPECT_EQ(stream().next_out(), 2U);
  EXPECT_EQ(stream().next_in(), 1U);
  EXPECT_EQ(stream().stored_count(), 0U);
  attempt("35=A|34=1|49=ALPHA|56=IEXG|108=30").first.hears("35=A|34=2");
}

TEST_F(Logon, refused_without_a_sender_spends_numbers_of_the_nameless_stream) {
  attempt("35=A|34=1|56=IEXG|108=30").first.hears("35=5|34=1|56=");
  attempt("35=A|34=1|56=IEXG|108=30").first.hears("35=5|34=2|56=");
  EXPECT_EQ(stream("").next_out(), 3U);
}

TEST_F(Logon, refused_leaves_the_sender_in_the_record_even_an_empty_one) {
  WirePeer peer = gateway.logs_on("ALPHA");
  peer.says("35=A|34=2|56=NYSE|108=30");
  EXPECT_EQ(peer.client().comp_id, "");
  EXPECT_EQ(attempt("35=A|34=1|49=BETA|56=NYSE|108=30").first.client().comp_id, "BETA");
}

// --- The remembered stream ---

TEST_F(Logon, continues_the_numbers_of_an_earlier_connection) {
  WirePeer first = gateway.logs_on("ALPHA");
  first.says("35=1|34=2");
  first.says("35=5|34=3");
  auto [second, log] = attempt("35=A|34=4|49=ALPHA|56=IEXG|108=30");
  EXPECT_EQ(log, "bench: logon ALPHA 34=4 141=N (stream expected 4, next out 4)\n");
  second.hears("35=A|34=4");
  second.hears_nothing();
  EXPECT_EQ(stream().next_in(), 5U);
}

TEST_F(Logon, from_1_on_a_remembered_stream_is_refused_and_costs_a_number) {
  WirePeer first = gateway.logs_on("ALPHA");
  for (int seq = 2; seq < 7; ++seq) first.says("35=0|34=" + std::to_string(seq));
  first.closes();
  gateway.serves();
  auto [second, log] = attempt("35=A|34=1|49=ALPHA|56=IEXG|108=30");
  EXPECT_EQ(log,
            "bench: logon of ALPHA rejected (MsgSeqNum too low, expecting 7 but received 1)\n");
  second.hears("35=5|34=2|58=Logon rejected: MsgSeqNum too low, expecting 7 but received 1");
  second.is_disconnected();
  EXPECT_EQ(stream().next_in(), 7U);
  EXPECT_EQ(stream().next_out(), 3U);
  attempt("35=A|34=7|49=ALPHA|56=IEXG|108=30").first.hears("35=A|34=3");
}

TEST_F(Logon, ahead_of_a_remembered_stream_asks_for_what_is_between) {
  gateway.logs_on("ALPHA").closes();
  gateway.serves();
  auto [second, log] = attempt("35=A|34=5|49=ALPHA|56=IEXG|108=30");
  EXPECT_EQ(log, std::string("bench: logon ALPHA 34=5 141=N (stream expected 2, next out 2)") +
                     AHEAD + "\n");
  second.hears("35=A|34=2");
  second.hears("35=2|34=3|7=2|16=4");
}

TEST_F(Logon, with_a_reset_empties_the_store_and_starts_both_numbers_over) {
  WirePeer first = gateway.logs_on("ALPHA");
  first.says("35=D|34=2|11=a1|55=AAPL|54=1|38=100|40=2|44=100|18=i");
  ASSERT_EQ(stream().stored_count(), 1U);
  auto [second, log] = attempt("35=A|34=1|49=ALPHA|56=IEXG|108=30|141=Y");
  EXPECT_EQ(log, "bench: logon ALPHA 34=1 141=Y (stream expected 1, next out 1)\n");
  second.hears("35=A|34=1|141=Y");
  EXPECT_EQ(stream().stored_count(), 0U);
  EXPECT_EQ(stream().next_in(), 2U);
  EXPECT_EQ(stream().next_out(), 2U);
}

TEST_F(Logon, with_a_reset_that_is_refused_for_its_number_has_reset_all_the_same) {
  gateway.logs_on("ALPHA").says("35=D|34=2|11=a1|55=AAPL|54=1|38=100|40=2|44=100|18=i");
  attempt("35=A|34=0|49=ALPHA|56=IEXG|108=30|141=Y")
      .first.hears("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 1 but received 0");
  EXPECT_EQ(stream().stored_count(), 0U);
  EXPECT_EQ(stream().next_in(), 1U);
  attempt("35=A|34=1|49=ALPHA|56=IEXG|108=30").first.hears("35=A|34=2");
}

TEST_F(Logon, refused_for_another_reason_has_not_reset_anything) {
  gateway.logs_on("ALPHA").says("35=D|34=2|11=a1|55=AAPL|54=1|38=100|40=2|44=100|18=i");
  attempt("35=A|34=1|49=ALPHA|56=NYSE|108=30|141=Y").first.hears("35=5|34=3");
  attempt("35=A|34=1|49=ALPHA|56=IEXG|141=Y").first.hears("35=5|34=4");
  EXPECT_EQ(stream().stored_count(), 1U);
  EXPECT_EQ(stream().next_in(), 3U);
}

TEST_F(Logon, of_each_sender_has_a_stream_of_its_own_by_its_exact_bytes) {
  gateway.logs_on("ALPHA");
  attempt("35=A|34=1|49=alpha|56=IEXG|108=30").first.hears("35=A|34=1");
  attempt("35=A|34=1|49=ALPHA |56=IEXG|108=30").first.hears("35=A|34=1");
  attempt(std::string("35=A|34=1|49=A\0B|56=IEXG|108=30", 31)).first.hears("35=A|34=1");
  attempt(std::string("35=A|34=1|49=A\0C|56=IEXG|108=30", 31)).first.hears("35=A|34=1");
  EXPECT_EQ(session_memory_count(gateway.exchange.engine), 5U);
}

TEST_F(Logon, of_one_sender_on_two_connections_at_once_shares_the_stream) {
  WirePeer first = gateway.logs_on("ALPHA");
  WirePeer second = gateway.logs_on("ALPHA");
  first.says("35=1|34=3|112=one");
  second.says("35=1|34=4|112=two");
  first.hears("35=0|34=3|112=one");
  second.hears("35=0|34=4|112=two");
  EXPECT_EQ(gateway.exchange.scenario.counters.logons, 2U);
}

// --- A second Logon on a live connection ---

TEST_F(Logon, on_a_live_connection_is_treated_like_a_first) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  const std::string log =
      standard_error_of([&] { alpha.says("35=A|34=4|49=ALPHA|56=IEXG|108=9"); });
  EXPECT_EQ(log, std::string("bench: logon ALPHA 34=4 141=N (stream expected 2, next out 2)") +
                     AHEAD + "\n");
  alpha.hears("35=A|34=2|108=9");
  alpha.hears("35=2|34=3|7=2|16=3");
  EXPECT_EQ(alpha.client().heartbeat_s, 9);
  EXPECT_EQ(gateway.exchange.scenario.counters.logons, 2U);
}

TEST_F(Logon, on_a_live_connection_that_is_refused_closes_it) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("35=A|34=1|49=ALPHA|56=IEXG|108=30");
  alpha.hears("35=5|34=2|58=Logon rejected: MsgSeqNum too low, expecting 2 but received 1");
  alpha.is_disconnected();
}

TEST_F(Logon, on_a_live_connection_under_another_name_moves_it_to_that_stream) {
  WirePeer peer = gateway.logs_on("ALPHA");
  peer.says("35=A|34=1|49=BETA|56=IEXG|108=30");
  peer.hears("35=A|34=1|56=BETA");
  peer.says("35=1|34=2");
  peer.hears("35=0|34=2|56=BETA");
  EXPECT_EQ(stream("ALPHA").next_in(), 2U);
}

TEST_F(Logon, marked_as_a_replay_is_not_dropped_for_its_low_number) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("35=A|34=1|43=Y|49=ALPHA|56=IEXG|108=30");
  alpha.hears("35=5|58=Logon rejected: MsgSeqNum too low, expecting 2 but received 1");
}

// --- The lapse ---

class LogonWithLapse : public Logon {
 protected:
  LogonWithLapse() { gateway.exchange.scenario.lapse_ms = 1000; }

  Lapse& lapse() { return gateway.exchange.scenario.lapse; }
};

TEST_F(LogonWithLapse, falls_silent_only_behind_its_reply_and_its_resend_request) {
  WirePeer alpha = attempt("35=A|34=3|49=ALPHA|56=IEXG|108=30").first;
  alpha.hears("35=A|34=1");
  alpha.hears("35=2|34=2|7=1|16=2");
  EXPECT_TRUE(gateway.exchange.scenario.lapse_fired);
  EXPECT_EQ(lapse().until_ms(), START_STEADY_MS + 1000);
  alpha.says("35=1|34=4|112=x");
  alpha.hears_nothing();
}

TEST_F(LogonWithLapse, counts_the_silence_from_the_present) {
  WirePeer alpha = gateway.connects();
  advance_ms(777);
  alpha.says("35=A|34=1|49=ALPHA|56=IEXG|108=30");
  EXPECT_EQ(lapse().until_ms(), START_STEADY_MS + 1777);
}

TEST_F(LogonWithLapse, makes_it_announced_even_behind_another_one) {
  lapse().start(5);
  EXPECT_TRUE(lapse().announce_once());
  advance_ms(5);
  gateway.logs_on("ALPHA");
  EXPECT_TRUE(lapse().announce_once());
}

TEST_F(LogonWithLapse, falls_silent_once_in_a_run) {
  gateway.logs_on("ALPHA");
  EXPECT_TRUE(lapse().announce_once());
  attempt("35=A|34=1|49=BETA|56=IEXG|108=30");
  EXPECT_FALSE(lapse().announce_once());
  advance_ms(5000);
  gateway.logs_on("GAMMA");
  EXPECT_EQ(lapse().until_ms(), START_STEADY_MS + 1000);
}

TEST_F(LogonWithLapse, does_not_fall_silent_if_it_is_refused) {
  attempt("35=A|34=0|49=ALPHA|56=IEXG|108=30");
  EXPECT_FALSE(gateway.exchange.scenario.lapse_fired);
  EXPECT_EQ(lapse().until_ms(), 0U);
}

TEST_F(LogonWithLapse, does_not_fall_silent_for_no_time_or_less) {
  for (const int32_t none : {0, -5}) {
    gateway.exchange.scenario.lapse_ms = none;
    gateway.logs_on("ALPHA");
    EXPECT_FALSE(gateway.exchange.scenario.lapse_fired);
    EXPECT_EQ(lapse().until_ms(), 0U);
  }
}

TEST_F(Logon, during_a_lapse_is_accepted_and_its_reply_is_lost) {
  gateway.is_silent_for(100);
  WirePeer alpha = attempt("35=A|34=3|49=ALPHA|56=IEXG|108=30").first;
  alpha.hears_nothing();
  EXPECT_TRUE(alpha.client().logged_on);
  EXPECT_EQ(stream().next_out(), 3U);  // the reply and the ResendRequest have taken their numbers
}

TEST_F(Logon, refused_during_a_lapse_still_gets_its_logout) {
  gateway.is_silent_for(100);
  WirePeer peer = attempt("35=A|34=0|49=ALPHA|56=IEXG|108=30").first;
  peer.hears("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 1 but received 0");
  peer.is_disconnected();
}

// --- Hostile texts ---

TEST_F(Logon, prints_a_sender_with_format_characters_as_it_stands) {
  auto [refused, log] = attempt("35=A|34=1|49=%s%n%d|56=%s%n|108=30");
  EXPECT_EQ(log, "bench: logon of %s%n%d rejected (TargetCompID '%s%n' is not IEXG)\n");
  auto [accepted, second_log] = attempt("35=A|34=1|49=%s%n%d|56=IEXG|108=30");
  EXPECT_THAT(second_log, testing::StartsWith("bench: logon %s%n%d 34=1 141=N "));
}

TEST_F(Logon, loses_what_stands_behind_a_refused_one_in_the_same_read) {
  WirePeer peer = gateway.connects();
  peer.writes(framed("35=A|34=0|49=ALPHA|56=IEXG|108=30") +
              framed("35=A|34=1|49=ALPHA|56=IEXG|108=30"));
  gateway.serves();
  peer.hears("35=5");
  peer.is_disconnected();
  EXPECT_EQ(gateway.exchange.scenario.counters.logons, 0U);
}

}  // namespace
}  // namespace quorl::test
