// Clients that do right, what the exchange surprises them with included: nobody blames them.
#include <gtest/gtest.h>

#include "tests/certify/checks/support/session_verdicts.h"

namespace certify {
namespace {

using namespace std::chrono_literals;

SessionVerdicts expect_none(const Dialogue& dialogue) {
  SessionVerdicts verdicts(dialogue);
  EXPECT_EQ(verdicts.failed(), std::set<std::string>{}) << verdicts.text();
  return verdicts;
}

TEST(SessionGood, nothing_happens_and_nothing_is_seen) {
  const SessionVerdicts verdicts{Dialogue()};
  for (const CheckKind& kind : session_checks()) {
    EXPECT_EQ(verdicts.of(std::string(kind.name).substr(8)), Outcome::NOT_SEEN) << kind.name;
  }
}

TEST(SessionGood, a_calm_day) {
  Dialogue d;
  d.logs_on().client("35=D|34=2|11=o1").exchange("35=8|34=2|150=0");
  d.wait(30s).client("35=0|34=3").exchange("35=0|34=3");
  d.client("35=5|34=4").exchange("35=5|34=4").exchange_closes().closes();
  const SessionVerdicts verdicts = expect_none(d);
  for (const char* name : {"frames", "header", "times", "numbers", "logon", "heartbeats", "logout"})
    EXPECT_EQ(verdicts.of(name), Outcome::PASSED) << name;
  for (const char* name :
       {"test_request", "resend_answered", "gap_asked", "asked_once", "reconnects"})
    EXPECT_EQ(verdicts.of(name), Outcome::NOT_SEEN) << name;
}

TEST(SessionGood, a_replaced_that_overtakes_its_fills_asked_for_or_not) {
  Dialogue asks;
  asks.logs_on().exchange("35=8|34=5").exchange("35=8|34=2").exchange("35=8|34=3");
  asks.exchange("35=8|34=4").client("35=2|34=2|7=2|16=0");
  EXPECT_EQ(expect_none(asks.wait(5s)).of("asked_once"), Outcome::PASSED);
  Dialogue waits;
  waits.logs_on().exchange("35=8|34=5").exchange("35=8|34=2").exchange("35=8|34=3");
  waits.exchange("35=8|34=4");
  EXPECT_EQ(expect_none(waits.wait(5s).happens(ClientStarted{})).of("gap_asked"), Outcome::PASSED);
}

TEST(SessionGood, a_gap_fill_that_draws_another_resend_request) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").client("35=D|34=3").client("35=D|34=4");
  d.exchange("35=2|34=2|7=2|16=3").client("35=4|34=2|43=Y|123=Y|36=4").client("35=1|34=5|112=a");
  d.exchange("35=2|34=3|7=4|16=4").exchange("35=0|34=4|112=a");
  d.client("35=4|34=4|43=Y|123=Y|36=6").client("35=1|34=6|112=b").wait(5s);
  EXPECT_EQ(expect_none(d).of("resend_answered"), Outcome::PASSED);
}

TEST(SessionGood, orders_sent_again_instead) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").client("35=D|34=3").exchange("35=2|34=2|7=2|16=3");
  d.client("35=D|34=2|43=Y|122=20261121-12:00:00").client("35=D|34=3|43=Y|122=20261121-12:00:00");
  expect_none(d.wait(5s));
}

TEST(SessionGood, a_scripted_drop) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").exchange_closes().closes();
  d.logs_on(3, 4)
      .client("35=2|34=4|7=2|16=3")
      .exchange("35=8|34=2|43=Y")
      .exchange("35=8|34=3|43=Y");
  const SessionVerdicts verdicts = expect_none(d.wait(5s).happens(ClientStarted{}));
  EXPECT_EQ(verdicts.of("gap_asked"), Outcome::PASSED);
  EXPECT_EQ(verdicts.of("reconnects"), Outcome::PASSED);
}

TEST(SessionGood, numbers_that_went_with_the_connection) {
  Dialogue dropped;
  dropped.logs_on().client("35=D|34=2").exchange_closes().closes();
  expect_none(dropped.logs_on(5, 2));
  Dialogue cut;
  cut.logs_on().cut();
  expect_none(cut.logs_on(90, 2));
}

TEST(SessionGood, a_lapse_in_which_requests_are_spent) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=4");
  for (int number = 2; number < 8; ++number) {
    d.client("35=2|34=" + std::to_string(number) + "|7=2|16=0").wait(3s);
  }
  expect_none(d.exchange("35=8|34=2|43=Y").exchange("35=8|34=3|43=Y"));
}

TEST(SessionGood, a_refused_logon_and_what_may_follow) {
  for (const char* text :
       {"35=A|34=5|98=0|108=30", "35=A|34=2|98=0|108=30", "35=A|34=1|98=0|108=30|141=Y"}) {
    Dialogue d;
    d.connects().client("35=A|34=1|98=0|108=30");
    d.exchange("35=5|34=7|58=Logon rejected: MsgSeqNum too low, expecting 5 but received 1");
    expect_none(d.exchange_closes().closes().connects().client(text));
  }
}

TEST(SessionGood, a_refusal_that_was_never_read_looks_like_a_hole) {
  Dialogue d;
  d.connects().client("35=A|34=1|98=0|108=30");
  d.exchange("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 5 but received 1");
  d.exchange_closes().closes().wait(5s).logs_on(5, 2).client("35=2|34=6|7=1|16=1");
  expect_none(d.exchange("35=4|34=1|43=Y|123=Y|36=2"));
}

TEST(SessionGood, boundaries_of_time) {
  Dialogue d;
  d.logs_on(1, 1, 10).exchange("35=1|34=2|112=a").wait(2998ms).client("35=0|34=2|112=a");
  d.wait(11s).client("35=0|34=3").wait(12998ms).client("35=0|34=4");
  EXPECT_EQ(expect_none(d).of("test_request"), Outcome::PASSED);
}

TEST(SessionGood, what_a_bad_link_has_held_up) {
  for (const bool plain_again : {false, true}) {
    Dialogue d;
    d.logs_on().happens(LinkSaid{"FIX: stalled for 9 s, to the exchange"}).wait(9s);
    if (plain_again) d.happens(LinkSaid{"FIX: plain again"});
    for (const char* text : {"35=0|34=2", "35=0|34=3", "35=0|34=4", "35=0|34=5"}) {
      d.client(text + ("|52=" + d.fix_time(-9s)));
    }
    expect_none(d);
  }
}

TEST(SessionGood, the_way_out_is_not_judged) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=4").happens(Closing{"done"}).client("35=5|34=2").closes();
  expect_none(d);
}

TEST(SessionGood, many_sessions_beside_each_other_are_no_storm) {
  Dialogue d;
  for (int i = 0; i < 12; ++i) d.as("T" + std::to_string(i)).logs_on();
  expect_none(d);
}

TEST(SessionGood, ten_connections_in_ten_seconds_are_allowed) {
  Dialogue d;
  for (int i = 0; i < 10; ++i) d.connects().closes();
  EXPECT_EQ(expect_none(d).of("reconnects"), Outcome::PASSED);
}

TEST(SessionGood, what_is_asked_for_again_has_its_own_time) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").client("35=D|34=3").exchange("35=2|34=2|7=2|16=3");
  d.client("35=4|34=2|43=Y|123=Y|36=4").wait(2998ms).exchange("35=2|34=3|7=2|16=3").wait(100ms);
  d.client("35=4|34=2|43=Y|123=Y|36=4").wait(5s);
  EXPECT_EQ(expect_none(d.happens(ClientStarted{})).of("resend_answered"), Outcome::PASSED);
}

TEST(SessionGood, a_hole_shown_while_an_earlier_one_is_being_answered_may_wait) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=5").client("35=2|34=2|7=2|16=0").exchange("35=8|34=9");
  for (const char* number : {"2", "3", "4"}) {
    d.wait(2s).exchange("35=8|43=Y|34=" + std::string(number));
  }
  d.client("35=2|34=3|7=6|16=0");
  for (const char* number : {"6", "7", "8"}) d.exchange("35=8|43=Y|34=" + std::string(number));
  EXPECT_EQ(expect_none(d.wait(5s).happens(ClientStarted{})).of("gap_asked"), Outcome::PASSED);
}

TEST(SessionGood, a_logon_answered_into_a_silence_is_waited_for_or_given_up) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").exchange_closes().closes();
  d.connects().client("35=A|34=3|98=0|108=30").wait(2s).exchange("35=0|34=5").wait(4s).closes();
  expect_none(d.logs_on(4, 6).client("35=2|34=5|7=2|16=0").exchange("35=8|34=2|43=Y"));
}

TEST(SessionGood, bytes_on_the_way_out_are_not_judged_either) {
  Dialogue d;
  d.logs_on().happens(Closing{"done"}).client_frame("8=FIX.4.2|9=5|35=0|10=000|");
  d.client("35=0|34=2|52=20261121").client("35=0|34=3|56=OTHER").client_garbage("bye");
  expect_none(d.closes());
}

TEST(SessionGood, a_connection_that_nobody_took_has_nothing_to_wait_for) {
  Dialogue d;
  d.logs_on().exchange_closes().closes().connects(false).wait(10s);
  expect_none(d);
}

TEST(SessionGood, an_answer_is_waited_out_though_all_of_it_had_come_by_itself) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=5").client("35=2|34=2|7=2|16=0");
  for (const char* number : {"2", "3", "4"}) d.exchange("35=8|34=" + std::string(number));
  d.exchange("35=8|34=8");
  for (const char* number : {"2", "3", "4", "5"}) {
    d.wait(1s).exchange("35=8|43=Y|34=" + std::string(number));
  }
  d.client("35=2|34=3|7=6|16=7").exchange("35=4|34=6|43=Y|123=Y|36=8");
  EXPECT_EQ(expect_none(d.wait(5s).happens(ClientStarted{})).of("gap_asked"), Outcome::PASSED);
}

}  // namespace
}  // namespace certify
