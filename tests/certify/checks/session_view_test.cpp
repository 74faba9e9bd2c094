#include "certify/checks/session_view.h"

#include <gtest/gtest.h>

#include "tests/certify/checks/support/dialogue.h"

namespace certify {
namespace {

using namespace std::chrono_literals;

/// What the view made of the last event.
Noted last_noted(SessionView& view, const Dialogue& dialogue) {
  Noted noted;
  for (const Event& event : dialogue.events()) noted = view.take(event);
  return noted;
}

TEST(SessionView, a_logon_and_its_reply_make_the_session) {
  Dialogue d;
  d.logs_on(1, 1, 20);
  SessionView view;
  const Noted noted = last_noted(view, d);
  ASSERT_NE(noted.session, nullptr);
  EXPECT_EQ(noted.session->comp_id, "TRADER");
  EXPECT_EQ(noted.session->out.next, 2U);
  EXPECT_EQ(noted.session->next_in, 2U);
  ASSERT_NE(noted.connection, nullptr);
  EXPECT_TRUE(noted.connection->up());
  EXPECT_EQ(noted.connection->heartbeat_s, 20U);
  EXPECT_EQ(noted.connection->logged_on, d.now());
}

TEST(SessionView, numbers_of_both_ways_outlive_the_connection) {
  Dialogue d;
  d.logs_on().client("35=D|34=2|11=o1").exchange("35=8|34=2|150=0").exchange_closes().closes();
  d.logs_on(3, 5);
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_EQ(noted.session->out.next, 4U);
  EXPECT_EQ(noted.hole, (NumberRange{3, 4}));
  EXPECT_TRUE(noted.session->missing.covers({3, 4}));
  EXPECT_EQ(noted.session->next_in, 6U);
  EXPECT_EQ(view.connection(1), nullptr);
}

TEST(SessionView, what_was_missing_is_filled_by_late_ones_by_replays_and_by_gap_fills) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=9").exchange("35=8|34=3").exchange("35=8|34=4|43=Y");
  d.exchange("35=4|34=5|43=Y|123=Y|36=8");
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_TRUE(noted.filled);
  EXPECT_EQ(noted.stands_for, (NumberRange{5, 7}));
  EXPECT_TRUE(noted.session->missing.contains(2));
  EXPECT_TRUE(noted.session->missing.contains(8));
  EXPECT_FALSE(noted.session->missing.first_within({3, 7}));
}

TEST(SessionView, a_reset_takes_both_ways_back_to_one) {
  Dialogue d;
  d.logs_on().client("35=D|34=2").exchange("35=8|34=7").exchange_closes().closes();
  d.connects().client("35=A|34=1|98=0|108=30|141=Y").exchange("35=A|34=1|98=0|108=30|141=Y");
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_EQ(noted.session->out.next, 2U);
  EXPECT_EQ(noted.session->next_in, 2U);
  EXPECT_TRUE(noted.session->missing.empty());
}

TEST(SessionView, a_reset_whose_reply_a_lapse_took_shows_by_the_next_message) {
  Dialogue d;
  d.logs_on().exchange("35=8|34=7").exchange_closes().closes();
  d.connects().client("35=A|34=1|98=0|108=30|141=Y").exchange("35=8|34=3");
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_EQ(noted.session->next_in, 4U);
  EXPECT_EQ(noted.hole, (NumberRange{1, 2}));
}

TEST(SessionView, a_refused_logon_is_remembered_with_what_was_expected) {
  Dialogue d;
  d.connects().client("35=A|34=1|98=0|108=30");
  d.exchange("35=5|34=7|58=Logon rejected: MsgSeqNum too low, expecting 5 but received 1");
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_TRUE(noted.connection->refused);
  EXPECT_FALSE(noted.connection->up());
  EXPECT_EQ(noted.session->out.refused_logon, 1U);
  EXPECT_EQ(noted.session->out.refused_expecting, 5U);
}

TEST(SessionView, messages_of_the_client_are_told_apart) {
  const auto sent = [](std::string_view text) {
    Dialogue d;
    d.logs_on().client("35=D|34=2").client("35=D|34=3").exchange("35=2|34=2|7=2|16=2");
    d.client(text);
    SessionView view;
    return last_noted(view, d).sent;
  };
  EXPECT_EQ(sent("35=D|34=4"), SentKind::NEW);
  EXPECT_EQ(sent("35=D|34=9"), SentKind::NEW);
  EXPECT_EQ(sent("35=D|34=3"), SentKind::REPEAT);
  EXPECT_EQ(sent("35=D|34=3|43=Y"), SentKind::AGAIN);
  EXPECT_EQ(sent("35=D|34=2"), SentKind::AGAIN);
  EXPECT_EQ(sent("35=4|34=2|123=Y|36=4"), SentKind::FILL);
  EXPECT_EQ(sent("35=4|34=2|36=9"), SentKind::RESET);
  EXPECT_EQ(sent("35=A|34=4|98=0|108=30"), SentKind::LOGON);
  EXPECT_EQ(sent("35=D|11=o1"), SentKind::UNREADABLE);
}

TEST(SessionView, behind_what_could_not_be_read_the_next_number_is_not_certain) {
  Dialogue d;
  d.logs_on().client_garbage("rubbish").client("35=D|34=5");
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_FALSE(noted.before.certain);
  EXPECT_EQ(noted.session->out.next, 6U);
  EXPECT_TRUE(noted.session->out.certain);
}

TEST(SessionView, a_logout_by_either_side_takes_the_connection_down) {
  Dialogue d;
  d.logs_on().client("35=5|34=2").exchange("35=5|34=2");
  SessionView view;
  const Noted noted = last_noted(view, d);
  EXPECT_FALSE(noted.connection->up());
  EXPECT_FALSE(noted.connection->refused);
  EXPECT_GT(noted.connection->logout_sent, 0);
}

}  // namespace
}  // namespace certify
