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

TEST_F(Logon, refused_leaves_the_sender_in_the_record_even_an_empty_one) {
  WirePeer peer = gateway.logs_on("ALPHA");
  peer.says("35=A|34=2|56=NYSE|108=30");
  EXPECT_EQ(peer.client().comp_id, "");
  EXPECT_EQ(attempt("35=A|34=1|49=BETA|56=NYSE|108=30").first.client().comp_id, "BETA");
}

// --- The remembered stream ---

TEST_F(Logon, of_each_sender_has_a_stream_of_its_own_by_its_exact_bytes) {
  gateway.logs_on("ALPHA");
  attempt("35=A|34=1|49=alpha|56=IEXG|108=30").first.hears("35=A|34=1");
  attempt("35=A|34=1|49=ALPHA |56=IEXG|108=30").first.hears("35=A|34=1");
  attempt(std::string("35=A|34=1|49=A\0B|56=IEXG|108=30", 31)).first.hears("35=A|34=1");
  attempt(std::string("35=A|34=1|49=A\0C|56=IEXG|108=30", 31)).first.hears("35=A|34=1");
  EXPECT_EQ(session_memory_count(gateway.exchange.engine), 5U);
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

}  // namespace
}  // namespace quorl::test
