// One fault fails one check, and no other one of the session.
#include <gtest/gtest.h>

#include "tests/certify/checks/support/session_verdicts.h"

namespace certify {
namespace {

using namespace std::chrono_literals;

void expect_only(const std::string& check, const Dialogue& dialogue) {
  const SessionVerdicts verdicts(dialogue);
  EXPECT_EQ(verdicts.failed(), std::set<std::string>{check}) << verdicts.text();
}

TEST(SessionFaults, a_wrong_checksum) {
  Dialogue d;
  d.logs_on().client_frame("8=FIX.4.2|9=5|35=0|10=000|").client("35=D|34=3");
  expect_only("frames", d);
}

TEST(SessionFaults, garbage_between_messages) {
  Dialogue d;
  d.logs_on().client_garbage("hello").client("35=D|34=2");
  expect_only("frames", d);
}

TEST(SessionFaults, half_a_message_at_the_clients_own_end) {
  Dialogue d;
  d.logs_on().client_garbage("8=FIX.4.2|9=", true).closes();
  expect_only("frames", d);
}

TEST(SessionFaults, a_header_field_missing_misplaced_or_wrong) {
  for (const char* text : {"35=D|34=2|52=-", "35=D|34=2|56=OTHER", "35=D|34=2|11=o1|97=N",
                           "35=D|34=2|49=SOMEONE", "35=D|11=o1"}) {
    Dialogue d;
    d.logs_on().client(text);
    expect_only("header", d);
  }
}

TEST(SessionFaults, times_of_wrong_form_zone_or_order) {
  for (const auto& [text, off] :
       std::initializer_list<std::pair<std::string, std::chrono::seconds>>{
           {"35=D|34=2|52=2026-11-21 12:00:00", 0s},
           {"35=D|34=2|60=20261121", 0s},
           {"35=D|34=2|52=", 6s},
           {"35=D|34=2|52=", -3600s},
           {"35=D|34=2|52=", -2s}}) {
    Dialogue d;
    d.logs_on();
    d.client(text.ends_with("52=") ? text + d.fix_time(off) : text);
    expect_only("times", d);
  }
}

TEST(SessionFaults, numbers_left_out_repeated_or_taken_back) {
  for (const char* text : {"35=D|34=4", "35=D|34=2", "35=D|34=2|43=Y", "35=4|34=3|36=2",
                           "35=4|34=2|43=Y|123=Y|36=3", "35=D|34=3|43=Y|122=20261121-12:00:00"}) {
    Dialogue d;
    d.logs_on().client("35=D|34=2").client(text);
    expect_only("numbers", d);
  }
}

TEST(SessionFaults, something_else_than_a_logon_first) {
  Dialogue d;
  d.connects().client("35=D|34=1").exchange_closes().closes();
  expect_only("logon", d);
}

TEST(SessionFaults, a_logon_with_a_field_or_a_number_wrong) {
  for (const char* text : {"35=A|34=3|98=0", "35=A|34=3|108=30", "35=A|34=2|98=0|108=30",
                           "35=A|34=3|98=0|108=30|141=Y", "35=A|34=9|98=0|108=30"}) {
    Dialogue d;
    d.logs_on().client("35=5|34=2").exchange("35=5|34=2").exchange_closes().closes();
    d.connects().client(text);
    expect_only("logon", d);
  }
}

TEST(SessionFaults, a_refused_number_tried_again) {
  Dialogue d;
  d.connects().client("35=A|34=1|98=0|108=30");
  d.exchange("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 5 but received 1");
  d.exchange_closes().closes().wait(2s).connects().client("35=A|34=1|98=0|108=30");
  expect_only("logon", d);
}

TEST(SessionFaults, a_client_that_only_connects) {
  Dialogue d;
  d.connects().wait(4s).closes();
  expect_only("logon", d);
}

TEST(SessionFaults, a_test_request_unanswered) {
  Dialogue d;
  d.logs_on().exchange("35=1|34=2|112=a").client("35=0|34=2|112=b").wait(4s);
  expect_only("test_request", d);
}

TEST(SessionFaults, a_silence_longer_than_the_interval_allows) {
  Dialogue d;
  d.logs_on(1, 1, 10).client("35=D|34=2").wait(14s);
  expect_only("heartbeats", d);
}

TEST(SessionFaults, a_silence_that_the_exchange_ended) {
  Dialogue d;
  d.logs_on(1, 1, 1).wait(2500ms).exchange_closes().closes();
  expect_only("heartbeats", d);
}

TEST(SessionFaults, a_flood_of_heartbeats) {
  Dialogue d;
  d.logs_on();
  for (const char* text : {"35=0|34=2", "35=0|34=3", "35=0|34=4", "35=0|34=5"}) {
    d.wait(1s).client(text);
  }
  expect_only("heartbeats", d);
}

TEST(SessionFaults, long_behind_a_bad_link_that_is_plain_again) {
  Dialogue flood;
  flood.logs_on().happens(LinkSaid{"FIX: delayed by 20 ms"}).wait(1s);
  flood.happens(LinkSaid{"FIX: plain again"}).wait(10s);
  for (const char* text : {"35=0|34=2", "35=0|34=3", "35=0|34=4", "35=0|34=5"}) {
    flood.wait(1s).client(text);
  }
  expect_only("heartbeats", flood);
  Dialogue late;
  late.logs_on().happens(LinkSaid{"FIX: stalled for 1 s, to the exchange"}).wait(1s);
  late.happens(LinkSaid{"FIX: plain again"}).wait(10s).client("35=D|34=2|52=" + late.fix_time(-8s));
  expect_only("times", late);
}

TEST(SessionFaults, a_resend_request_answered_in_part_or_not_well) {
  for (const char* text :
       {"35=1|34=5", "35=D|34=2|43=Y|122=20261121-12:00:00", "35=4|34=2|43=Y|123=Y|36=3"}) {
    Dialogue d;
    d.logs_on().client("35=D|34=2").client("35=D|34=3").client("35=0|34=4");
    d.exchange("35=2|34=2|7=2|16=3").client(text).wait(4s);
    expect_only("resend_answered", d);
  }
  for (const char* text :
       {"35=D|34=2|122=20261121-12:00:00", "35=D|34=2|43=Y", "35=4|34=2|123=Y|36=2"}) {
    Dialogue d;
    d.logs_on().client("35=D|34=2").exchange("35=2|34=2|7=2|16=2").client(text);
    expect_only("resend_answered", d);
  }
}

TEST(SessionFaults, a_session_message_replayed) {
  Dialogue d;
  d.logs_on()
      .exchange("35=2|34=2|7=1|16=1")
      .client("35=A|34=1|43=Y|122=20261121-12:00:00|98=0|108=30");
  expect_only("resend_answered", d);
}

TEST(SessionFaults, a_hole_not_asked_for_or_not_from_its_first_number) {
  for (const char* text : {"35=1|34=2|112=a", "35=2|34=2|7=3|16=0", "35=2|34=2|7=2|16=2"}) {
    Dialogue d;
    d.logs_on().exchange("35=8|34=4").client(text).wait(4s);
    expect_only("gap_asked", d);
  }
}

TEST(SessionFaults, a_hole_not_asked_for_while_others_close_by_themselves) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=4").wait(2s);
  d.exchange("35=8|34=6").exchange("35=8|34=5").wait(2s);  // a Replaced that overtakes its fill
  d.exchange("35=8|34=8").exchange("35=8|34=7").wait(2s).happens(ClientStarted{});
  expect_only("gap_asked", d);
}

TEST(SessionFaults, asking_for_what_had_come) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=2").wait(2s).client("35=2|34=2|7=1|16=0");
  expect_only("asked_once", d);
}

TEST(SessionFaults, asking_over_and_over) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=4");
  for (const char* text :
       {"35=2|34=2|7=2|16=0", "35=2|34=3|7=2|16=0", "35=2|34=4|7=2|16=0", "35=2|34=5|7=2|16=0"}) {
    d.client(text);
  }
  expect_only("asked_once", d);
}

TEST(SessionFaults, a_logout_not_waited_for_or_talked_behind) {
  Dialogue left;
  left.logs_on().client("35=5|34=2").closes();
  expect_only("logout", left);
  Dialogue talks;
  talks.logs_on().client("35=5|34=2").client("35=1|34=3|112=X");
  expect_only("logout", talks);
  Dialogue on;
  on.logs_on().exchange("35=5|34=2").wait(2s).client("35=1|34=2|112=X").closes();
  expect_only("logout", on);
  Dialogue stays;
  stays.logs_on().exchange("35=5|34=2").wait(4s);
  expect_only("logout", stays);
}

// Of a session they are in order: that it is down is for orders.session_up to say.
TEST(SessionFaults, orders_behind_a_logout_are_anothers) {
  Dialogue own;
  own.logs_on().client("35=5|34=2").client("35=D|34=3").exchange("35=5|34=2").closes();
  EXPECT_EQ(SessionVerdicts(own).failed(), std::set<std::string>{});
  Dialogue heard;
  heard.logs_on().exchange("35=5|34=2").wait(2s).client("35=D|34=2").closes();
  EXPECT_EQ(SessionVerdicts(heard).failed(), std::set<std::string>{});
}

TEST(SessionFaults, a_storm_of_connections) {
  Dialogue d;
  for (int i = 0; i < 11; ++i) d.connects().closes();
  expect_only("reconnects", d);
}

TEST(SessionFaults, coming_back_at_once_from_each_refusal) {
  Dialogue d;
  for (int i = 1; i <= 5; ++i) {
    d.connects().client("35=A|34=" + std::to_string(i) + "|98=0|108=30");
    d.exchange("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 9 but received 1");
    d.exchange_closes().closes();
  }
  expect_only("reconnects", d);
}

TEST(SessionFaults, a_hole_not_asked_for_while_later_ones_are) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=4");
  for (const int number : {2, 3, 4}) {
    const std::string hole = std::to_string(1 + 2 * number);
    d.wait(2s).exchange("35=8|34=" + std::to_string(2 + 2 * number));
    d.client("35=2|34=" + std::to_string(number) + "|7=" + hole + "|16=" + hole);
    d.exchange("35=8|43=Y|34=" + hole);
  }
  expect_only("gap_asked", d);
}

TEST(SessionFaults, a_hole_not_asked_for_on_two_connections_in_turns) {
  Dialogue d;
  d.logs_on().logs_on(2, 2).exchange("35=8|34=5");
  for (int number = 3; number < 9; ++number) {
    d.on(static_cast<uint32_t>(1 + number % 2))
        .wait(1s)
        .client("35=D|34=" + std::to_string(number));
  }
  expect_only("gap_asked", d);
}

TEST(SessionFaults, a_hole_not_asked_for_where_a_silence_took_the_answer_to_the_logon) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").exchange_closes().closes();
  d.connects().client("35=A|34=3|98=0|108=30").wait(2s).exchange("35=0|34=5");
  d.client("35=0|34=4").wait(2s).client("35=0|34=5").wait(2s).happens(ClientStarted{});
  expect_only("gap_asked", d);
}

TEST(SessionFaults, asking_over_and_over_for_two_holes_in_turns) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=4").exchange("35=8|34=7");
  for (int number = 2; number < 10; ++number) {
    d.client("35=2|34=" + std::to_string(number) + (number % 2 == 0 ? "|7=2|16=3" : "|7=5|16=6"));
  }
  const SessionVerdicts verdicts(d);
  EXPECT_EQ(verdicts.failed(), std::set<std::string>{"asked_once"}) << verdicts.text();
  EXPECT_EQ(verdicts.faults("asked_once"), 2U);
}

TEST(SessionFaults, a_client_that_comes_back_and_never_says_a_word) {
  Dialogue d;
  d.logs_on().exchange_closes().closes().connects().wait(4s).closes();
  expect_only("logon", d);
  Dialogue waits;
  waits.logs_on().exchange_closes().closes().connects().wait(4s).happens(Closing{"done"});
  expect_only("logon", waits);
  Dialogue beside;
  beside.connects().connects().closes().on(1).wait(4s).closes();
  expect_only("logon", beside);
}

TEST(SessionFaults, what_is_sent_again_bears_the_time_of_long_ago) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").wait(8s).exchange("35=2|34=2|7=2|16=2");
  const std::string then = d.fix_time(-8s);
  d.client("35=D|34=2|43=Y|52=" + then + "|122=" + then);
  expect_only("times", d);
}

TEST(SessionFaults, a_logout_not_followed_though_another_connection_is_opened) {
  Dialogue d;
  d.logs_on().exchange("35=5|34=2").as("OTHER").logs_on().wait(4s);
  expect_only("logout", d);
}

TEST(SessionFaults, a_storm_beside_connections_of_long_ago) {
  Dialogue d;
  for (int i = 0; i < 9; ++i) d.as("T" + std::to_string(i)).logs_on();
  d.wait(11s);
  for (int i = 0; i < 11; ++i) d.connects().closes();
  expect_only("reconnects", d);
}

TEST(SessionFaults, two_that_come_back_at_once_from_each_refusal) {
  Dialogue d;
  Plan plan;
  plan.allow.connects = 100;
  for (int i = 1; i <= 5; ++i) {
    for (const char* name : {"ONE", "TWO"}) {
      d.as(name).connects().client("35=A|34=" + std::to_string(i) + "|98=0|108=30");
    }
    for (const char* name : {"ONE", "TWO"}) {
      d.as(name).on(static_cast<uint32_t>(2 * i - (name[0] == 'O' ? 1 : 0)));
      d.exchange("35=5|34=1|58=Logon rejected: MsgSeqNum too low, expecting 9 but received 1");
      d.exchange_closes().closes();
    }
  }
  const SessionVerdicts verdicts(d, plan);
  EXPECT_EQ(verdicts.failed(), std::set<std::string>{"reconnects"}) << verdicts.text();
}

}  // namespace
}  // namespace certify
