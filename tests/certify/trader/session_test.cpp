#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/certify/trader/session_fixture.h"

namespace certify::trader {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(SessionTest, logs_on_with_number_one_and_goes_on_with_its_numbers_after_a_drop) {
  connects();
  EXPECT_THAT(says(), ElementsAre("35=A|34=1|98=0|108=1|141=Y"));
  EXPECT_FALSE(session.ready());
  hears("35=A|34=1|98=0|108=1|141=Y");
  EXPECT_TRUE(session.ready());
  session.send("D", {{11, "o1"}}, now);
  EXPECT_THAT(says(), ElementsAre("35=D|34=2|11=o1"));
  line_breaks();
  EXPECT_FALSE(session.ready());
  connects();
  EXPECT_THAT(says(), ElementsAre("35=A|34=3|98=0|108=1"));
}

TEST_F(SessionTest, asks_once_for_what_a_drop_has_left_behind) {
  logs_on();
  line_breaks();
  connects();
  says();
  hears("35=A|34=4|98=0|108=1");
  EXPECT_FALSE(session.ready());
  EXPECT_THAT(says(), IsEmpty()) << "a Replaced overtakes its fills: it waits a moment";
  passes(milliseconds(59));
  EXPECT_THAT(says(), IsEmpty());
  passes(milliseconds(1));
  EXPECT_THAT(says(), ElementsAre("35=2|34=3|7=2|16=3"));
  hears("35=8|34=2|43=Y|17=E1");
  hears("35=8|34=3|43=Y|17=E2");
  EXPECT_THAT(takes(), ElementsAre("1 2", "1 3"));
  EXPECT_TRUE(session.ready());
  passes(milliseconds(900));
  EXPECT_THAT(says(), IsEmpty());
}

TEST_F(SessionTest, does_not_ask_for_what_is_right_behind) {
  logs_on();
  hears("35=8|34=4|17=E3");
  hears("35=8|34=2|17=E1");
  hears("35=8|34=3|17=E2");
  EXPECT_THAT(takes(), ElementsAre("1 4", "1 2", "1 3"));
  passes(milliseconds(900));
  EXPECT_THAT(says(), IsEmpty());
}

TEST_F(SessionTest, asks_for_a_second_hole_without_asking_for_the_first_again) {
  logs_on();
  hears("35=0|34=3");
  passes(milliseconds(60));
  EXPECT_THAT(says(), ElementsAre("35=2|34=2|7=2|16=2"));
  hears("35=0|34=6");
  passes(milliseconds(60));
  EXPECT_THAT(says(), ElementsAre("35=2|34=3|7=3|16=5"));
}

TEST_F(SessionTest, asks_again_if_the_answer_does_not_come_but_not_for_ever) {
  logs_on();
  hears("35=0|34=3");
  unsigned asks = 0;
  for (int second = 0; second < 60; ++second) {
    passes(milliseconds(1000));
    for (const std::string& message : says()) asks += message.starts_with("35=2|") ? 1 : 0;
    hears("35=0|34=" + std::to_string(4 + second));
  }
  EXPECT_EQ(asks, 3u);
}

TEST_F(SessionTest, passes_over_what_comes_again_with_43) {
  logs_on();
  hears("35=8|34=2|17=E1");
  hears("35=8|34=2|43=Y|17=E1");
  EXPECT_THAT(takes(), ElementsAre("1 2"));
}

TEST_F(SessionTest, tests_a_silent_line_then_drops_it_and_logs_on_again) {
  logs_on();
  passes(milliseconds(1399));
  EXPECT_THAT(says(), ElementsAre("35=0|34=2")) << "its own heartbeat only";
  passes(milliseconds(1));
  EXPECT_THAT(says(), ElementsAre("35=1|34=3|112=silence-1"));
  EXPECT_FALSE(session.ready());
  passes(milliseconds(1399));
  EXPECT_FALSE(hung_up);
  passes(milliseconds(1));
  EXPECT_TRUE(hung_up);
  line_breaks();
  EXPECT_EQ(session.connect_at(), now + milliseconds(250));
}

TEST_F(SessionTest, trusts_a_line_again_on_which_anything_comes) {
  logs_on();
  passes(milliseconds(1400));
  hears("35=0|34=2|112=silence-1");
  EXPECT_TRUE(session.ready());
  passes(milliseconds(1399));
  EXPECT_FALSE(hung_up);
}

TEST_F(SessionTest, takes_any_answer_for_that_to_its_logon_as_a_silence_may_swallow_the_real_one) {
  logs_on();
  line_breaks();
  connects();
  hears("35=0|34=3");
  EXPECT_TRUE(session.up());
  EXPECT_FALSE(session.ready());
  hears("35=4|34=2|43=Y|123=Y|36=3");
  EXPECT_TRUE(session.ready());
}

TEST_F(SessionTest, tries_again_if_the_logon_is_not_answered) {
  connects();
  passes(milliseconds(1999));
  EXPECT_FALSE(hung_up);
  passes(milliseconds(1));
  EXPECT_TRUE(hung_up);
}

TEST_F(SessionTest, waits_longer_each_time_before_it_connects) {
  std::vector<Milliseconds> pauses;
  for (int i = 0; i < 7; ++i) {
    connects();
    line_breaks();
    pauses.push_back(std::chrono::duration_cast<Milliseconds>(*session.connect_at() - now));
  }
  EXPECT_THAT(pauses, ElementsAre(milliseconds(250), milliseconds(500), milliseconds(1000),
                                  milliseconds(2000), milliseconds(4000), milliseconds(5000),
                                  milliseconds(5000)));
  connects();
  hears("35=A|34=1|98=0|108=1");
  now += milliseconds(2000);
  line_breaks();
  EXPECT_EQ(*session.connect_at() - now, milliseconds(250));
}

TEST_F(SessionTest, answers_a_test_request) {
  logs_on();
  hears("35=1|34=2|112=here");
  EXPECT_THAT(says(), ElementsAre("35=0|34=2|112=here"));
}

TEST_F(SessionTest, answers_a_resend_request_by_one_gap_fill_up_to_its_next_number) {
  logs_on();
  session.send("D", {{11, "o1"}}, now);
  session.send("D", {{11, "o2"}}, now);
  says();
  hears("35=2|34=2|7=2|16=2");
  EXPECT_THAT(says(), ElementsAre("35=4|34=2|43=Y|123=Y|36=4"));
  hears("35=2|34=3|7=4|16=0");
  EXPECT_THAT(says(), IsEmpty()) << "it has not sent 4 yet";
}

class ReplayingSession : public SessionTest {
 protected:
  ReplayingSession() : SessionTest({.replays = true}) {}
};

TEST_F(ReplayingSession, sends_orders_again_and_covers_the_rest) {
  logs_on();
  session.send("D", {{11, "o1"}}, now);
  session.send("1", {{112, "x"}}, now);
  session.send("F", {{11, "c1"}}, now);
  session.send("0", {}, now);
  says();
  hears("35=2|34=2|7=1|16=4");
  EXPECT_THAT(says(), ElementsAre("35=4|34=1|43=Y|123=Y|36=2", "35=D|34=2|43=Y|11=o1",
                                  "35=4|34=3|43=Y|123=Y|36=4", "35=F|34=4|43=Y|11=c1",
                                  "35=4|34=5|43=Y|123=Y|36=6"));
}

class ContinuingSession : public SessionTest {
 protected:
  ContinuingSession() : SessionTest({.reset = false}) {}
};

TEST_F(ContinuingSession, takes_the_number_that_a_refused_logon_names) {
  connects();
  EXPECT_THAT(says(), ElementsAre("35=A|34=1|98=0|108=1"));
  hears("35=5|34=7|58=Logon rejected: MsgSeqNum too low, expecting 5 but received 1");
  EXPECT_TRUE(hung_up);
  line_breaks();
  connects();
  EXPECT_THAT(says(), ElementsAre("35=A|34=5|98=0|108=1"));
  hears("35=A|34=8|98=0|108=1");
  passes(milliseconds(60));
  EXPECT_THAT(says(), ElementsAre("35=2|34=6|7=1|16=6")) << "7 was the Logout";
}

TEST_F(ContinuingSession, begins_anew_if_it_is_refused_for_a_reason_it_does_not_know) {
  connects();
  hears("35=5|34=7|58=go away");
  line_breaks();
  connects();
  EXPECT_THAT(says(), ElementsAre("35=A|34=1|98=0|108=1", "35=A|34=1|98=0|108=1|141=Y"));
}

TEST_F(SessionTest, begins_a_new_life_of_the_numbers_with_an_exchange_that_has_begun_anew) {
  logs_on();
  hears("35=8|34=2|17=E1");
  line_breaks();
  connects();
  hears("35=A|34=1|98=0|108=1");
  hears("35=8|34=2|17=E1");
  EXPECT_THAT(takes(), ElementsAre("1 2", "2 2"));
}

TEST_F(SessionTest, answers_a_logout_and_comes_back) {
  logs_on();
  hears("35=5|34=2");
  EXPECT_THAT(says(), ElementsAre("35=5|34=2"));
  EXPECT_TRUE(hung_up);
  line_breaks();
  EXPECT_TRUE(session.connect_at());
}

TEST_F(SessionTest, logs_out_and_waits_for_the_answer) {
  logs_on();
  session.log_out(now);
  EXPECT_THAT(says(), ElementsAre("35=5|34=2"));
  EXPECT_FALSE(hung_up);
  hears("35=5|34=2");
  EXPECT_TRUE(hung_up);
  line_breaks();
  EXPECT_TRUE(session.over());
  EXPECT_FALSE(session.connect_at());
}

TEST_F(SessionTest, does_not_wait_for_ever_for_the_answer_to_its_logout) {
  logs_on();
  session.log_out(now);
  passes(milliseconds(1999));
  EXPECT_FALSE(hung_up);
  passes(milliseconds(1));
  EXPECT_TRUE(hung_up);
}

TEST_F(SessionTest, leaves_at_once_where_it_is_not_logged_on) {
  session.log_out(now);
  EXPECT_TRUE(session.over());
}

TEST_F(SessionTest, knows_by_a_test_request_what_has_been_settled) {
  logs_on();
  const Moment asked = now += milliseconds(10);
  session.settle(now);
  EXPECT_THAT(says(), ElementsAre("35=1|34=2|112=settle-1"));
  EXPECT_LT(session.settled(), asked);
  now += milliseconds(10);
  hears("35=0|34=3|112=settle-1");
  EXPECT_LT(session.settled(), asked) << "2 may be the report";
  says();
  session.settle(now);
  EXPECT_THAT(says(), IsEmpty()) << "an answer is there, and waits for 2 as the next one would";
  hears("35=8|34=2|43=Y|17=E1");
  EXPECT_EQ(session.settled(), asked);
  session.settle(now);
  EXPECT_THAT(says(), ElementsAre(HasSubstr("112=settle-2")));
}

TEST_F(SessionTest, hangs_up_on_a_stream_that_is_no_fix) {
  logs_on();
  session.on_bytes("HTTP/1.1 400 Bad Request\r\n", now);
  EXPECT_TRUE(hung_up);
}

}  // namespace
}  // namespace certify::trader
