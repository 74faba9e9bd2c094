#include <gtest/gtest.h>

#include <ctime>

#include "tests/certify/checks/support/order_talk.h"

namespace certify {
namespace {

using namespace std::chrono_literals;
using Names = std::set<std::string>;

// The grace is a second; each event of a dialogue is a millisecond behind the one before.

TEST(OrderChecks, a_good_day_fails_nothing) {
  OrderTalk talk;
  talk.order("o1", 300).accepts("o1").fills("o1", 100).wait(2s);
  talk.replace("o2", "o1", 200).replaces("o1", "o2", 200).wait(2s);
  talk.cancel("o3", "o2").cancels("o2", "o3").wait(2s);
  talk.order("o4").refuses("o4").wait(2s).order("o5").accepts("o5").fills("o5", 100).wait(2s);
  talk.closing().ends();
  EXPECT_EQ(talk.failures(), Names{});
  auto verdicts = talk.verdicts();
  for (const CheckKind& kind : order_checks()) {
    EXPECT_EQ(verdicts[kind.name].outcome, Outcome::PASSED) << kind.name;
  }
}

TEST(OrderChecks, without_an_order_nothing_is_seen) {
  OrderTalk talk;
  talk.wait(2s).closing().ends();
  for (const auto& [name, verdict] : talk.verdicts()) {
    EXPECT_EQ(verdict.outcome, Outcome::NOT_SEEN) << name;
  }
}

// --- orders.tags ---

struct Tags {
  const char* message;
  bool good;
};
class OrderTags : public testing::TestWithParam<Tags> {};

TEST_P(OrderTags, are_judged_by_the_fields_of_one_message) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").says(GetParam().message).closing();
  EXPECT_EQ(talk.failures(), GetParam().good ? Names{} : Names{"orders.tags"});
}

INSTANTIATE_TEST_SUITE_P(
    OneMessage, OrderTags,
    testing::Values(Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185|18=i", true},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|40=1|18=i|59=3|47=A", true},
                    Tags{"35=D|11=12345678901234567890|55=AAPL|54=1|38=10000000|44=0.9999|18=i",
                         true},
                    Tags{"35=D|11=a|55=AAPL|54=5|38=1|44=1.00|18=i|114=N", true},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100.0|44=185.010|18=i", true},
                    Tags{"35=D|11=123456789012345678901|55=AAPL|54=1|38=100|44=185|18=i", false},
                    Tags{"35=D|11=a,b|55=AAPL|54=1|38=100|44=185|18=i", false},
                    Tags{"35=D|55=AAPL|54=1|38=100|44=185|18=i", false},
                    Tags{"35=D|11=a|54=1|38=100|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|38=100|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=3|38=100|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=5|38=100|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=0|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=10000001|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=1e3|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=1.5|44=185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=0|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185.001|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=0.99999|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44= 185|18=i", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185|18=1", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185|18=i|40=3", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185|18=i|59=1", false},
                    Tags{"35=D|11=a|55=AAPL|54=1|38=100|44=185|18=i|47=X", false},
                    Tags{"35=F|11=a|41=o1", true}, Tags{"35=F|41=o1", false},
                    Tags{"35=F|11=a", false}, Tags{"35=G|11=a|41=o1|55=AAPL|54=1|38=100", true},
                    Tags{"35=G|11=a|41=o1|55=AAPL|54=1|38=100|44=0.5", true},
                    Tags{"35=G|11=a|55=AAPL|54=1|38=100", false},
                    Tags{"35=G|11=a|41=o1|54=1|38=100", false},
                    Tags{"35=G|11=a|41=o1|55=MSFT|54=1|38=100", false},
                    Tags{"35=G|11=a|41=o1|55=AAPL|54=2|38=100", false},
                    Tags{"35=G|11=a|41=o1|55=AAPL|54=1", false},
                    Tags{"35=G|11=a|41=o1|55=AAPL|54=1|38=100|44=-1", false}));

TEST(OrderChecks, a_frame_that_the_exchange_drops_is_no_order) {
  OrderTalk talk;
  talk.dialogue.client_frame("8=FIX.4.2|9=12|35=D|34=2|11=|10=000|");
  EXPECT_EQ(talk.verdicts()["orders.tags"].outcome, Outcome::NOT_SEEN);
}

// --- orders.names_unique ---

TEST(OrderChecks, a_name_is_used_again_while_its_order_is_live) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  talk.says("35=D|11=o1|55=AAPL|54=1|38=100|44=185|18=i")
      .refuses("o1", "BrokerOption: duplicate ClOrdID among live orders");
  // The first order stands, and may be cancelled.
  talk.wait(3s).cancel("c1", "o1").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_unique"});
  EXPECT_EQ(talk.verdicts()["orders.names_unique"].fault_count, 1U);
}

TEST(OrderChecks, a_name_is_free_as_soon_as_the_client_is_told) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").fills("o1", 100).order("o1").accepts("o1");
  talk.fills("o1", 100).wait(2s).order("o1").refuses("o1").order("o1").accepts("o1");
  talk.wait(2s).cancel("c1", "o1").closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, a_name_is_not_free_before_the_client_is_told) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").order("o1").fills("o1", 100).closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_unique"});
}

TEST(OrderChecks, a_requests_name_is_not_used_again_while_it_is_on_its_way) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").order("o2").accepts("o2");
  talk.cancel("c1", "o1").cancel("c1", "o2").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_unique"});
}

TEST(OrderChecks, a_replace_that_keeps_its_orders_name_uses_it_again) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").replace("o1", "o1", 200);
  talk.refuses_replace("o1", "o1", '2', "Invalid or duplicate ClOrdID");
  talk.wait(2s).cancel("c1", "o1").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_unique"});
}

TEST(OrderChecks, an_order_that_never_arrived_may_be_sent_again_by_its_name) {
  OrderTalk talk;
  talk.order("o1");
  talk.dialogue.exchange_closes().closes();
  talk.logs_on_again().order("o1").accepts("o1").closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, an_order_whose_report_waits_on_the_stream_may_not) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").loses(false);
  talk.dialogue.exchange_closes().closes();
  talk.logs_on_again().order("o1").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_unique"});
}

TEST(OrderChecks, an_order_sent_again_with_43_is_no_new_use_of_its_name) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  talk.dialogue.client(
      "35=D|34=2|43=Y|122=20261121-12:00:00|11=o1|55=AAPL|54=1|38=100|44=185|18=i");
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, two_comp_ids_may_use_one_name) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  talk.dialogue.as("OTHER").logs_on();
  talk.dialogue.client("35=D|34=2|11=o1|55=AAPL|54=1|38=100|44=185|18=i");
  EXPECT_EQ(talk.failures(), Names{});
}

// --- orders.names_live and orders.closed_left_alone ---

TEST(OrderChecks, a_cancel_of_a_name_that_never_was_sent) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").cancel("c1", "o9").refuses_cancel("c1", "o9", '1').closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_live"});
}

TEST(OrderChecks, another_clients_order_is_unknown) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  talk.dialogue.as("OTHER").logs_on().client("35=F|34=2|11=c1|41=o1");
  EXPECT_EQ(talk.failures(), Names{"orders.names_live"});
}

TEST(OrderChecks, a_retired_name_may_be_used_for_the_grace_and_no_longer) {
  for (const auto& [pause, fails] : {std::pair{999ms, false}, std::pair{1000ms, true}}) {
    OrderTalk talk;
    talk.order("o1").accepts("o1").replace("o2", "o1", 200).replaces("o1", "o2", 200);
    // The cancel itself is a millisecond behind.
    talk.wait(pause).cancel("c1", "o1").closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"orders.names_live"} : Names{}) << pause.count();
  }
}

TEST(OrderChecks, replaces_in_flight_upon_each_other_are_fine_refused_or_not) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  talk.replace("o2", "o1", 200).replace("o3", "o2", 300).cancel("c1", "o3");
  talk.refuses_replace("o2", "o1", '2', "bench:scripted_replace_reject");
  talk.refuses_replace("o3", "o2", '1', "Unknown order").refuses_cancel("c1", "o3", '1');
  talk.wait(2s).cancel("c2", "o1").cancels("o1", "c2").closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, the_name_of_a_refused_replace_is_no_order) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").replace("o2", "o1", 200);
  talk.refuses_replace("o2", "o1", '2', "bench:scripted_replace_reject");
  talk.wait(2s).cancel("c1", "o2").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.names_live"});
}

TEST(OrderChecks, a_closed_order_may_be_named_for_the_grace_and_no_longer) {
  for (const auto& [pause, fails] : {std::pair{999ms, false}, std::pair{1000ms, true}}) {
    OrderTalk talk;
    talk.order("o1").accepts("o1").fills("o1", 100);
    talk.wait(pause).cancel("c1", "o1").closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"orders.closed_left_alone"} : Names{});
  }
}

TEST(OrderChecks, a_lost_race_is_nobodys_fault) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").wait(2s).cancel("c1", "o1").fills("o1", 100);
  talk.refuses_cancel("c1", "o1", '0').wait(2s).closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, an_order_refused_or_cancelled_by_the_exchange_is_closed_too) {
  OrderTalk talk;
  talk.order("o1").refuses("o1").order("o2", 200).accepts("o2").cancels("o2", "o2").wait(2s);
  talk.cancel("c1", "o1").cancel("c2", "o2").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.closed_left_alone"});
  EXPECT_EQ(talk.verdicts()["orders.closed_left_alone"].fault_count, 2U);
}

TEST(OrderChecks, what_is_sent_again_does_not_open_a_closed_order_nor_close_its_successor) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").fills("o1", 100).order("o1").accepts("o1");
  talk.replays(2).replays(3).wait(2s).cancel("c1", "o1").closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, a_replaced_ahead_of_its_fills_is_borne) {
  OrderTalk talk;
  talk.order("o1", 500).accepts("o1").replace("o2", "o1", 500, "190.03");
  auto& d = talk.dialogue;
  d.exchange("35=8|34=5|37=1000|11=o2|17=E4|150=5|39=5|41=o1|38=500|151=0|14=500|6=190");
  d.exchange("35=8|34=3|37=1000|11=o2|17=E2|150=1|39=1|38=500|32=300|151=200|14=300|6=190");
  talk.cancel("c1", "o2");
  d.exchange("35=8|34=4|37=1000|11=o2|17=E3|150=2|39=2|38=500|32=200|151=0|14=500|6=190");
  EXPECT_EQ(talk.failures(), Names{});
}

// --- orders.replace_above_filled ---

TEST(OrderChecks, a_replace_is_above_what_was_known_to_be_filled) {
  struct Case {
    unsigned qty;
    std::chrono::milliseconds pause;
    bool fails;
  };
  for (const auto& [qty, pause, fails] :
       {Case{200, 2s, true}, Case{199, 2s, true}, Case{201, 2s, false}, Case{200, 999ms, false},
        Case{200, 1000ms, true}}) {
    OrderTalk talk;
    talk.order("o1", 500).accepts("o1").fills("o1", 200).wait(pause).replace("o2", "o1", qty);
    talk.closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"orders.replace_above_filled"} : Names{}) << qty;
  }
}

TEST(OrderChecks, a_fill_in_the_grace_does_not_hide_an_older_one) {
  OrderTalk talk;
  talk.order("o1", 500).accepts("o1").fills("o1", 200).wait(2s).fills("o1", 100);
  talk.replace("o2", "o1", 150).closing();
  EXPECT_EQ(talk.failures(), Names{"orders.replace_above_filled"});
}

// --- orders.session_up ---

TEST(OrderChecks, an_order_before_the_logon_is_answered) {
  OrderTalk talk;
  talk.dialogue.connects().client("35=A|34=2|98=0|108=30");
  talk.dialogue.client("35=D|34=3|11=o1|55=AAPL|54=1|38=100|44=185|18=i");
  EXPECT_EQ(talk.failures(), Names{"orders.session_up"});
}

TEST(OrderChecks, behind_a_lapse_whatever_is_heard_shows_the_session) {
  OrderTalk talk;
  talk.dialogue.connects().client("35=A|34=2|98=0|108=30").exchange("35=0|34=9");
  talk.dialogue.client("35=D|34=3|11=o1|55=AAPL|54=1|38=100|44=185|18=i");
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, an_order_behind_the_clients_own_logout) {
  OrderTalk talk;
  talk.says("35=5").order("o1").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.session_up"});
}

TEST(OrderChecks, an_order_behind_the_exchanges_end_of_stream_has_the_grace) {
  for (const auto& [pause, fails] : {std::pair{999ms, false}, std::pair{1000ms, true}}) {
    OrderTalk talk;
    talk.dialogue.exchange_closes();
    talk.wait(pause).order("o1").closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"orders.session_up"} : Names{});
  }
}

TEST(OrderChecks, an_order_behind_the_exchanges_logout_has_the_grace) {
  for (const auto& [pause, fails] : {std::pair{999ms, false}, std::pair{1000ms, true}}) {
    OrderTalk talk;
    talk.answers("35=5|58=bye").wait(pause).order("o1").closing();
    EXPECT_EQ(talk.failures(), fails ? Names{"orders.session_up"} : Names{});
  }
}

// --- orders.no_blind_repetition ---

TEST(OrderChecks, a_refused_order_is_sent_again_once_and_no_more) {
  OrderTalk talk;
  talk.order("o1").refuses("o1").order("o2").refuses("o2");
  EXPECT_EQ(talk.failures(), Names{});
  talk.order("o3");
  EXPECT_EQ(talk.failures(), Names{"orders.no_blind_repetition"});
}

TEST(OrderChecks, the_plan_says_how_often) {
  OrderTalk talk;
  talk.plan.allow.repetitions = 2;
  talk.order("o1").refuses("o1").order("o2").refuses("o2").order("o3").refuses("o3");
  EXPECT_EQ(talk.failures(), Names{});
  talk.order("o4");
  EXPECT_EQ(talk.failures(), Names{"orders.no_blind_repetition"});
}

TEST(OrderChecks, several_at_once_a_change_or_a_pause_are_no_blind_repetition) {
  OrderTalk talk;
  talk.order("o1").order("o2").order("o3").refuses("o1").refuses("o2").refuses("o3");
  talk.order("o4").refuses("o4").order("o5", 200).refuses("o5").order("o6", 300);
  talk.refuses("o6").wait(4s).order("o7").refuses("o7").order("o8").accepts("o8");
  talk.order("o9").refuses("o9").order("o10").closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, a_refused_replace_is_not_sent_over_and_over) {
  OrderTalk talk;
  talk.order("o1").accepts("o1");
  for (const char* name : {"r1", "r2", "r3"}) {
    talk.replace(name, "o1", 200);
    talk.refuses_replace(name, "o1", '2', "bench:scripted_replace_reject");
  }
  EXPECT_EQ(talk.failures(), Names{"orders.no_blind_repetition"});
}

// --- Size ---

TEST(OrderChecks, ten_thousand_orders_are_judged_in_seconds) {
  OrderTalk talk;
  constexpr int ORDERS = 10'000;
  for (int i = 0; i < ORDERS; ++i) {
    const std::string name = "o" + std::to_string(i);
    talk.order(name).accepts(name).fills(name, 100);
  }
  const std::clock_t begin = std::clock();  // processor time, whatever else the machine does
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 20);
}

// --- Several clients, drops, and the way out ---

TEST(OrderChecks, an_order_of_another_client_tells_nothing_of_one_that_was_lost) {
  OrderTalk talk;
  talk.order("o1");
  talk.dialogue.exchange_closes().closes().as("OTHER").logs_on();
  talk.dialogue.client("35=D|34=2|11=o1|55=AAPL|54=1|38=100|40=2|44=185|18=i");
  talk.accepts("o1");
  talk.dialogue.as("TRADER");
  talk.logs_on_again().order("o1").accepts("o1").closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, a_late_refusal_is_of_the_order_that_was_meant) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").cancel("c1", "o1").fills("o1", 100);
  talk.loses().refuses_cancel("c1", "o1", '0').loses(false);
  talk.order("o1").accepts("o1").replays(4).wait(2s).cancel("c2", "o1").cancels("o1", "c2");
  talk.wait(2s).closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, an_answer_behind_the_own_logout_is_no_order) {
  OrderTalk talk;
  talk.order("o1").says("35=5").answers("35=2|7=2|16=2");
  talk.dialogue.client(
      "35=D|34=2|43=Y|122=20261121-12:00:00|11=o1|55=AAPL|54=1|38=100|44=185|18=i");
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(OrderChecks, a_replace_is_above_what_is_filled_in_whatever_digits) {
  OrderTalk talk;
  talk.order("o1", 500).accepts("o1").fills("o1", 200).wait(2s);
  talk.says("35=G|11=o2|41=o1|55=AAPL|54=1|38=150.0|44=185").closing();
  EXPECT_EQ(talk.failures(), Names{"orders.replace_above_filled"});
}

TEST(OrderChecks, the_way_out_is_not_judged) {
  OrderTalk talk;
  talk.order("o1", 500).accepts("o1").fills("o1", 200).order("o2").accepts("o2");
  talk.fills("o2", 100).order("o3").refuses("o3").order("o3").refuses("o3").wait(2s).closing();
  talk.cancel("o1", "o2").cancel("c1", "o9").replace("r1", "o1", 100).order("o3");
  talk.says("35=D|11=bad").says("35=5").order("o4").ends();
  EXPECT_EQ(talk.failures(), Names{});
}

}  // namespace
}  // namespace certify
