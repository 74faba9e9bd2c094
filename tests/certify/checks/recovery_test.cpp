#include <gtest/gtest.h>

#include "tests/certify/checks/support/order_talk.h"

namespace client = quorl::client;

namespace certify {
namespace {

using namespace std::chrono_literals;
using Names = std::set<std::string>;

// The grace is 1 s, the time for recovery 10 s, for an answer 3 s.

Verdict of(const OrderTalk& talk, const char* check) { return talk.verdicts().at(check); }

/// An order event of long ago.
client::OrderEvent decided(const char* ev, const char* cl, uint64_t oid, uint32_t leaves,
                           const char* text = "") {
  client::OrderEvent event;
  event.t_ns = 1;
  event.ev = ev;
  event.cl = cl;
  event.oid = oid;
  event.leaves = leaves;
  event.text = text;
  return event;
}

// --- recovery.reports ---

TEST(RecoveryReports, what_is_fetched_by_a_replay_is_no_fault) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").fills("o1", 100).loses(false);
  talk.dialogue.exchange_closes().closes();
  talk.logs_on_again().says("35=2|7=2|16=0").replays(2).replays(3).wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(of(talk, "recovery.reports").outcome, Outcome::PASSED);
  EXPECT_EQ(of(talk, "recovery.reports").occasions, 2U);
}

TEST(RecoveryReports, a_client_that_stays_away_never_learns_of_its_fill) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").wait(2s).loses().fills("o1", 100);
  talk.dialogue.exchange_closes().closes();
  talk.wait(12s).closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
  const Verdict verdict = of(talk, "recovery.reports");
  ASSERT_EQ(verdict.faults.size(), 1U);
  EXPECT_EQ(verdict.faults[0].what,
            "o1: fill of 100 never fetched; it believes it open with 0 filled");
}

TEST(RecoveryReports, it_has_the_grace_and_the_time_for_recovery_to_come_back) {
  for (const auto& [pause, fails] : {std::pair{10990ms, false}, std::pair{11010ms, true}}) {
    OrderTalk talk;
    talk.order("o1").loses().accepts("o1");
    talk.dialogue.exchange_closes().closes();
    talk.wait(pause).closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"recovery.reports"} : Names{}) << pause.count();
  }
}

TEST(RecoveryReports, a_client_that_ends_upon_a_drop_gives_up) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1");
  talk.dialogue.exchange_closes().closes().happens(ClientEnded{"exit status 0", true});
  talk.wait(2s).closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
}

TEST(RecoveryReports, what_is_decided_behind_a_logout_is_only_named) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").says("35=5").answers("35=5");
  talk.dialogue.exchange_closes().closes();
  talk.loses().wait(2s).fills("o1", 100).wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  ASSERT_EQ(of(talk, "recovery.reports").remarks.size(), 1U);
  EXPECT_NE(of(talk, "recovery.reports")
                .remarks[0]
                .find("logged out (o1: fill of 100, it believes it open with 0 filled)"),
            std::string::npos);
}

TEST(RecoveryReports, what_a_reset_threw_away_is_only_named) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false);
  talk.dialogue.exchange_closes().closes().connects();
  talk.dialogue.client("35=A|34=1|98=0|108=30|141=Y").exchange("35=A|34=1|98=0|108=30|141=Y");
  talk.wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(of(talk, "recovery.reports").remarks.size(), 1U);
}

TEST(RecoveryReports, what_is_decided_within_the_grace_of_the_end_is_not_asked_for) {
  for (const auto& [pause, fails] : {std::pair{990ms, false}, std::pair{1010ms, true}}) {
    OrderTalk talk;
    talk.plan.allow.recovery = 0ms;
    talk.order("o1").loses().accepts("o1");
    talk.dialogue.exchange_closes().closes();
    talk.wait(pause).closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"recovery.reports"} : Names{}) << pause.count();
  }
}

TEST(RecoveryReports, a_hole_that_nothing_showed_is_not_held_against_the_client) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(RecoveryReports, a_client_whose_logon_was_answered_into_a_silence_is_back) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").loses().fills("o1", 100).loses(false);
  talk.dialogue.exchange_closes().closes().connects().client("35=A|34=3|98=0|108=30");
  talk.answers("35=0").wait(20s).closing();
  // It is back, and never asked.
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(RecoveryReports, a_hole_that_was_never_asked_for_is_anothers_fault) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false).answers("35=0").wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(of(talk, "recovery.reports").remarks.size(), 1U);
}

TEST(RecoveryReports, an_answer_lost_in_a_silence_is_asked_for_again_when_the_exchange_speaks) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false).answers("35=0").says("35=2|7=2|16=0");
  EXPECT_EQ(talk.failures(), Names{});
  talk.wait(6s).answers("35=0").wait(6s).closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
}

TEST(RecoveryReports, decisions_may_come_late_and_behind_their_messages) {
  OrderTalk talk;
  talk.dialogue.client("35=D|34=2|11=o1|55=AAPL|54=1|38=100|44=185|18=i");
  talk.dialogue.exchange("35=8|34=2|37=1|11=o1|17=E1|150=0|38=100|151=100|14=0");
  talk.dialogue.exchange("35=9|34=3|37=NONE|11=c1|41=o9|39=8|102=1|434=1|58=Unknown order");
  talk.dialogue.happens(Decision{decided("new", "o1", 1, 100)});
  talk.dialogue.happens(Decision{decided("cancel_reject", "o9", 0, 0, "Unknown order")});
  talk.wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_TRUE(of(talk, "recovery.reports").remarks.empty());
}

TEST(RecoveryReports, a_lost_refusal_of_a_cancel_is_missed_though_others_read_alike) {
  OrderTalk talk;
  talk.plan.skip.insert("orders.names_live");
  talk.order("o1").accepts("o1").cancel("c1", "o1").cancel("c2", "o1");
  talk.refuses_cancel("c1", "o1", '0').loses().refuses_cancel("c2", "o1", '0');
  talk.dialogue.exchange_closes().closes();
  talk.wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
}

TEST(RecoveryReports, order_events_that_do_not_fit_the_reports_say_nothing) {
  OrderTalk talk;
  talk.dialogue.exchange("35=8|34=2|37=1|11=o1|17=E1|150=0|38=100|151=100|14=0");
  talk.dialogue.happens(Decision{decided("new", "o2", 2, 100)});
  talk.wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(of(talk, "recovery.reports").remarks.size(), 1U);
}

TEST(RecoveryReports, asking_for_other_things_is_no_excuse) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false).answers("35=0").says("35=2|7=2|16=2");
  for (uint64_t lost = 4; lost < 14; lost += 2) {
    talk.wait(3s).loses().answers("35=0").loses(false).answers("35=0");
    talk.says("35=2|7=" + std::to_string(lost) + "|16=" + std::to_string(lost));
  }
  talk.wait(2s).answers("35=0").wait(1500ms).closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
}

TEST(RecoveryReports, what_is_asked_for_again_has_the_time_for_an_answer_again) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false).answers("35=0").says("35=2|7=2|16=2");
  talk.wait(6s).answers("35=0").says("35=2|7=2|16=0").wait(2s).answers("35=0").wait(1500ms);
  talk.closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(RecoveryReports, who_leaves_before_it_can_have_asked_has_to_come_back) {
  for (const bool logs_out : {false, true}) {
    OrderTalk talk;
    talk.order("o1").loses().accepts("o1").loses(false);
    talk.dialogue.exchange_closes().closes();
    talk.logs_on_again().wait(1s);
    if (logs_out) talk.says("35=5").answers("35=5");
    talk.dialogue.closes().exchange_closes();
    talk.wait(20s).closing();
    EXPECT_EQ(talk.failures(), Names{"recovery.reports"}) << logs_out;
  }
}

TEST(RecoveryReports, who_leaves_when_it_should_have_asked_is_anothers_matter) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false);
  talk.dialogue.exchange_closes().closes();
  talk.logs_on_again().wait(4s).dialogue.closes().exchange_closes();
  talk.wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(RecoveryReports, the_way_out_is_no_excuse) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false).answers("35=0").says("35=2|7=2|16=0");
  talk.wait(6s).answers("35=0").wait(6s).closing().dialogue.closes().exchange_closes();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
}

TEST(RecoveryReports, of_two_clients_of_one_mind_about_names_each_has_its_own_orders) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  talk.dialogue.as("OTHER").logs_on();
  talk.dialogue.client("35=D|34=2|11=o1|55=AAPL|54=1|38=100|40=2|44=185|18=i");
  talk.loses().accepts("o1");
  talk.dialogue.exchange_closes().closes();
  talk.wait(20s).closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
}

// --- recovery.lapse ---

// With 108=2 and the grace of 1 s a TestRequest is due 4 s behind the last message, the end of the
// connection 8 s behind it.
class RecoveryLapse : public testing::Test {
 protected:
  RecoveryLapse() {
    talk.dialogue.exchange_closes().closes();
    talk.logs_on_again(2);
  }
  void goes_silent(unsigned ms) {
    talk.dialogue.happens(ExchangeSaid{"bench: going silent for " + std::to_string(ms) +
                                       " ms (no heartbeats, no reports on the wire"});
  }
  Outcome outcome() const { return of(talk, "recovery.lapse").outcome; }

  OrderTalk talk;
};

TEST_F(RecoveryLapse, a_short_silence_is_no_occasion) {
  goes_silent(3900);
  talk.wait(3900ms).answers("35=0").closing();
  EXPECT_EQ(outcome(), Outcome::NOT_SEEN);
}

TEST_F(RecoveryLapse, a_test_request_in_time_is_enough_if_the_silence_ends) {
  goes_silent(6000);
  talk.wait(3900ms).says("35=1|112=a").wait(2s).answers("35=0").closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(outcome(), Outcome::PASSED);
}

TEST_F(RecoveryLapse, no_test_request_is_a_fault) {
  goes_silent(6000);
  talk.wait(6s).answers("35=0").closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.lapse"});
}

TEST_F(RecoveryLapse, a_late_one_is_a_fault) {
  goes_silent(6000);
  talk.wait(4100ms).says("35=1|112=a").wait(2s).answers("35=0").closing();
  EXPECT_EQ(talk.failures(), Names{"recovery.lapse"});
}

TEST_F(RecoveryLapse, a_silence_that_lasts_is_left) {
  for (const auto& [pause, fails] : {std::pair{3900ms, false}, std::pair{4200ms, true}}) {
    OrderTalk another;
    another.dialogue.exchange_closes().closes();
    another.logs_on_again(2);
    another.dialogue.happens(Commanded{"lapse 20000", "ok lapse 20000\n"});
    another.wait(3900ms).says("35=1|112=a").wait(pause);
    another.dialogue.closes().exchange_closes();
    another.logs_on_again(30).wait(20s).closing();
    EXPECT_EQ(another.failures(), fails ? Names{"recovery.lapse"} : Names{}) << pause.count();
  }
}

TEST_F(RecoveryLapse, and_the_client_logs_on_again) {
  goes_silent(20000);
  talk.wait(3900ms).says("35=1|112=a").wait(3s);
  talk.dialogue.closes().exchange_closes();
  talk.wait(9900ms).closing();
  EXPECT_EQ(talk.failures(), Names{});
  OrderTalk away;
  away.dialogue.exchange_closes().closes();
  away.logs_on_again(2);
  away.dialogue.happens(Commanded{"lapse", "ok lapse\n"});
  away.wait(3900ms).says("35=1|112=a").wait(3s);
  away.dialogue.closes().exchange_closes();
  away.wait(10100ms).closing();
  EXPECT_EQ(away.failures(), Names{"recovery.lapse"});
}

TEST_F(RecoveryLapse, a_silence_that_is_taken_back_is_over) {
  goes_silent(20000);
  talk.dialogue.happens(Commanded{"lapse 0", "ok lapse 0\n"});
  talk.answers("35=0").wait(9s).answers("35=0").closing();
  EXPECT_EQ(outcome(), Outcome::NOT_SEEN);
}

TEST_F(RecoveryLapse, a_client_that_logs_out_in_it_need_not_test) {
  goes_silent(20000);
  talk.wait(1s).says("35=5").wait(9s).closing();
  EXPECT_EQ(talk.failures(), Names{});
}

}  // namespace
}  // namespace certify
