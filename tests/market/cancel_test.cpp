#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view SELL_100 = "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i";

std::string sell(std::string_view changes = "") { return altered(SELL_100, changes); }

// --- The cancel stands ---

TEST(Cancel, takes_a_live_order_off_the_book_without_a_trade) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.00"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.hears("34=1|150=0");
  exchange.feed();
  client.says("35=F|11=c1|41=a1|55=AAPL|54=2|38=100");
  client.hears(
      "35=8|34=2|37=1001|11=c1|17=E2|20=0|150=4|39=4|55=AAPL|54=2|38=100|18=i|40=2|47=P|59=0|41=a1|"
      "44=190|32=0|31=0|151=0|14=0|6=0|!30|!58|!103");
  client.hears_nothing();
  exchange.feed_shows({"5 300 @ 190.00 last"});
  exchange.book_holds({"sell 300 @ 190.00"});
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
  EXPECT_EQ(exchange.stock().volume, 0U);
  EXPECT_EQ(exchange.stock().last_price, 0);
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  EXPECT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a1"), 0);
  EXPECT_EQ(exchange.scenario.counters.cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_requests, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_rejects, 0U);
  EXPECT_EQ(exchange.scenario.counters.fills, 0U);
}

TEST(Cancel, of_a_part_filled_order_tells_what_was_executed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("38=300"));
  exchange.is_hit("AAPL buy 100");
  exchange.drains_deferred();
  client.skips_all();
  exchange.feed();
  client.says("35=F|11=c1|41=a1");
  client.hears("150=4|39=4|38=300|151=0|14=100|6=190");
  exchange.feed_shows({"5 0 @ 190.00 last"});
}

TEST(Cancel, stamps_the_feed_with_the_first_reading_of_its_own_time) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  exchange.feed();
  advance_ms(1000);
  step_system_clock_by(1'000'000);
  client.says("35=F|11=c1|41=a1");
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 1U);
  EXPECT_EQ(feed[0].timestamp_ns, START_SYSTEM_NS + 1'000'000'000);
}

TEST(Cancel, reads_nothing_of_the_request_but_the_two_names) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.skips_all();
  client.says("35=F|11=c1|41=a1|55=MSFT|54=1|38=99999|37=4711|44=1");
  client.hears("150=4|55=AAPL|54=2|38=100|37=1000|44=190");
}

TEST(Cancel, does_not_check_its_own_name) {
  for (const char* id : {"a1", "c2", "this-name-is-longer-than-20-bytes", "with,comma\"@"}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(sell());
    client.says(sell("11=c2"));  // live under the name of one of the requests
    client.skips_all();
    client.says(std::string("35=F|41=a1|11=") + id);
    client.hears(std::string("150=4|41=a1|11=") + id);
    exchange.book_holds({"sell 100 @ 190.00 ALPHA c2"});
  }
}

TEST(Cancel, without_a_name_is_answered_under_the_orders_own_and_no_other) {
  for (const char* request : {"35=F|41=a1", "35=F|11=|41=a1"}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(sell());
    client.skips_all();
    client.says(request);
    client.hears("150=4|11=a1|!41");
  }
}

TEST(Cancel, is_an_order_event_of_the_order_it_cancels) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.writes_order_events();
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.says("35=F|11=c1|41=a1");
  client.says("35=F|11=c2|41=a1");
  EXPECT_THAT(
      exchange.order_events(),
      testing::ElementsAre(
          R"("ev":"new","cl":"a1","oid":1000,"symbol":"AAPL","side":"S","qty":100,"px":190,"cum":0,)"
          R"("leaves":100,"last_qty":0,"text":""})",
          R"("ev":"cancel","cl":"a1","oid":1000,"symbol":"AAPL","side":"S","qty":100,"px":190,)"
          R"("cum":0,"leaves":0,"last_qty":0,"text":"cancel"})",
          R"("ev":"cancel_reject","cl":"a1","oid":0,"symbol":"","side":" ","qty":0,"px":0,"cum":0,)"
          R"("leaves":0,"last_qty":0,"text":"Too late to cancel"})"));
}

TEST(Cancel, leaves_reports_that_wait_for_their_own_time) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("38=300"));
  client.hears("34=1");
  exchange.is_hit("AAPL buy 100");
  client.says("35=F|11=c1|41=a1");
  client.hears("34=2|150=4|14=100|151=0");
  client.hears_nothing();
  exchange.drains_deferred();
  client.hears("34=3|150=1|39=1|14=100|151=200");
}

// --- The order is not live ---

TEST(Cancel, of_an_order_closed_1999_ms_ago_comes_too_late_without_a_line) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  exchange.is_hit("AAPL buy 100");
  exchange.drains_deferred();
  client.skips_all();
  advance_ms(1999);
  EXPECT_EQ(standard_error_of([&] { client.says("35=F|11=c1|41=a1"); }), "");
  client.hears("35=9|37=NONE|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel|!17|!150");
  client.hears_nothing();
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_rejects, 1U);
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 0U);
  EXPECT_EQ(exchange.scenario.counters.cancel_requests, 0U);
}

TEST(Cancel, of_an_order_closed_2000_ms_ago_is_for_an_unknown_order_that_was_filled) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  exchange.is_hit("AAPL buy 100");
  exchange.drains_deferred();
  client.skips_all();
  advance_ms(2000);
  EXPECT_EQ(standard_error_of([&] { client.says("35=F|11=c1|41=a1"); }),
            "bench: stale cancel for a1 (closed more than 2 s ago)\n");
  client.hears("35=9|37=NONE|11=c1|41=a1|39=2|102=1|434=1|58=Unknown order");
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_rejects, 1U);
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 0U);
}

TEST(Cancel, of_an_order_never_seen_is_for_an_unknown_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  EXPECT_EQ(standard_error_of([&] { client.says("35=F|11=c1|41=zz"); }),
            "bench: stale cancel for zz (unknown order)\n");
  client.hears("35=9|37=NONE|11=c1|41=zz|39=8|102=1|434=1|58=Unknown order");
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_rejects, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_requests, 0U);
  EXPECT_EQ(exchange.engine.next_exec_id, 0U);  // a reject takes no ExecID
  EXPECT_EQ(client.stream().next_out(), 2U);
}

TEST(Cancel, without_any_names_is_for_an_unknown_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  EXPECT_EQ(standard_error_of([&] { client.says("35=F|55=AAPL"); }),
            "bench: stale cancel for  (unknown order)\n");
  client.hears("35=9|37=NONE|11=|41=|39=8");
}

TEST(Cancel, names_in_a_line_are_not_a_format) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  EXPECT_EQ(standard_error_of([&] { client.says("35=F|11=c1|41=%s%n%d"); }),
            "bench: stale cancel for %s%n%d (unknown order)\n");
}

TEST(Cancel, of_an_order_of_another_owner_is_for_an_unknown_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer alpha = exchange.logs_on("ALPHA");
  FixPeer beta = exchange.logs_on("BETA");
  alpha.says(sell());
  beta.says("35=F|11=c1|41=a1");
  beta.hears("35=9|39=8|58=Unknown order");
  exchange.book_holds({"sell 100 @ 190.00 ALPHA a1"});
}

TEST(Cancel, a_second_time_comes_too_late) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.hears("150=0");
  client.says("35=F|11=c1|41=a1");
  client.hears("150=4");
  advance_ms(1999);
  client.says("35=F|11=c2|41=a1");
  client.hears("35=9|39=2|102=0|58=Too late to cancel");
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancels, 1U);
  advance_ms(1);  // a refused cancel does not renew the closing
  client.says("35=F|11=c3|41=a1");
  client.hears("35=9|39=2|102=1|58=Unknown order");
}

TEST(Cancel, of_a_fresh_closing_is_for_an_unknown_order_once_all_closings_were_forgotten) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  for (int i = 1; i <= 50000; ++i) exchange.engine.note_closed("BETA", std::to_string(i));
  client.says(sell("59=3"));  // closed at once, as number 50001
  client.skips_all();
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  client.says("35=F|11=c1|41=a1");
  client.hears("35=9|39=8|102=1|58=Unknown order");
}

// --- The cancel loses the race ---

TEST(CancelRace, the_client_gets_the_fill_and_then_the_refusal) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.every = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("38=300"));
  client.hears("34=1|17=E1");
  exchange.feed();
  const std::string said = standard_error_of([&] { client.says("35=F|11=c1|41=a1"); });
  EXPECT_EQ(said,
            "bench: cancel of a1 loses the race to a fill (filled in full, cancel rejected 'too "
            "late to cancel')\n");
  client.hears(
      "35=8|34=2|17=E2|37=1000|11=a1|!41|150=2|39=2|32=300|31=190|151=0|14=300|6=190|851=1|880=1|"
      "9730=ML|!58");
  client.hears("35=9|34=3|37=1000|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel");
  client.hears_nothing();
  exchange.feed_shows({"T 300 @ 190.00", "5 0 @ 190.00 last"});
  exchange.book_holds({});
  EXPECT_EQ(exchange.stock().last_price, price4("190.00"));
  EXPECT_EQ(exchange.stock().volume, 300U);
  EXPECT_THAT(owed_to(exchange.engine), IsEmpty());
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  const BenchCounters& counters = exchange.scenario.counters;
  EXPECT_EQ(counters.race_fills, 1U);
  EXPECT_EQ(counters.fills, 1U);
  EXPECT_EQ(counters.cancel_requests, 1U);
  EXPECT_EQ(counters.cancel_rejects, 1U);
  EXPECT_EQ(counters.cancels, 0U);
  EXPECT_EQ(counters.late_cancels, 0U);
  EXPECT_EQ(counters.stale_cancels, 0U);
}

TEST(CancelRace, stamps_its_trade_and_its_level_with_the_first_reading_of_its_own_time) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.every = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  exchange.feed();
  advance_ms(1000);
  step_system_clock_by(1'000'000);
  client.says("35=F|11=c1|41=a1");
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 2U);
  EXPECT_EQ(feed[0].type, 'T');
  for (const FeedMessage& message : feed) {
    EXPECT_EQ(message.timestamp_ns, START_SYSTEM_NS + 1'000'000'000);
  }
}

TEST(CancelRace, fills_at_the_orders_own_limit_whatever_the_book_offers) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 189.00", "AAPL buy 100 @ 188.00"});
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("44=250.00"));
  client.skips_all();
  exchange.feed();
  client.says("35=F|11=c1|41=a1");
  client.hears("150=2|31=250");
  client.hears("35=9");
  exchange.feed_shows({"T 100 @ 250.00", "5 0 @ 250.00 last"});
  exchange.book_holds({"sell 100 @ 189.00", "buy 100 @ 188.00"});
}

TEST(CancelRace, is_never_cut_by_the_partial_fill_script) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.skips_all();
  client.says("35=F|11=c1|41=a1");
  client.hears("150=2|32=100|151=0");
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
  EXPECT_EQ(exchange.scenario.counters.partials, 0U);
}

TEST(CancelRace, brings_what_this_owner_is_owed_and_leaves_the_others_in_their_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer alpha = exchange.logs_on("ALPHA");
  FixPeer beta = exchange.logs_on("BETA");
  alpha.says(sell("11=a1|38=100"));
  beta.says(sell("11=b1|38=100"));
  alpha.says(sell("11=a2|38=300"));
  beta.says(sell("11=b2|38=300|44=190.01"));
  alpha.skips_all();
  beta.skips_all();
  exchange.is_hit("AAPL buy 300");           // a1, b1, and 100 of a2
  exchange.is_hit("AAPL buy 250 @ 190.01");  // the rest of a2, and 50 of b2
  alpha.says(sell("11=a3|38=500"));
  alpha.hears("34=3|150=0");
  ASSERT_THAT(owed_to(exchange.engine), ElementsAre("ALPHA", "BETA", "ALPHA", "ALPHA", "BETA"));

  alpha.says("35=F|11=c1|41=a3");
  alpha.hears("34=4|150=2|11=a1|32=100|880=1");
  alpha.hears("34=5|150=1|11=a2|32=100|880=3");
  alpha.hears("34=6|150=2|11=a2|32=200|880=4");
  alpha.hears("34=7|150=2|11=a3|32=500|880=6");
  alpha.hears("34=8|35=9|11=c1|41=a3");
  alpha.hears_nothing();
  beta.hears_nothing();
  EXPECT_THAT(owed_to(exchange.engine), ElementsAre("BETA", "BETA"));
  exchange.drains_deferred();
  beta.hears("150=2|11=b1|880=2");
  beta.hears("150=1|11=b2|880=5");
  beta.hears_nothing();
  alpha.hears_nothing();
}

TEST(CancelRace, of_a_part_filled_order_fills_what_is_left) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("38=300"));
  exchange.is_hit("AAPL buy 100");
  exchange.drains_deferred();
  client.skips_all();
  client.says("35=F|11=c1|41=a1");
  client.hears("150=2|39=2|32=200|14=300|151=0");
  client.hears("35=9|39=2");
}

TEST(CancelRace, leaves_a_closing_that_the_next_cancel_is_too_late_for) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.says("35=F|11=c1|41=a1");
  client.skips_all();
  EXPECT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a1"), 0);
  client.says("35=F|11=c2|41=a1");
  client.hears("35=9|37=NONE|58=Too late to cancel");
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_rejects, 2U);
  EXPECT_EQ(exchange.scenario.counters.race_fills, 1U);
}

TEST(CancelRace, counts_only_cancels_that_found_a_live_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.every = 2;
  FixPeer client = exchange.logs_on("ALPHA");
  for (const char* id : {"a1", "a2", "a3", "a4"}) client.says(sell(std::string("11=") + id));
  client.skips_all();
  client.says("35=F|11=c1|41=a1");
  client.hears("150=4");
  client.says("35=F|11=c2|41=a1");  // too late, and not counted
  client.hears("35=9|37=NONE");
  client.says("35=F|11=c3|41=zz");  // unknown, and not counted
  client.hears("35=9|37=NONE");
  client.says("35=F|11=c4|41=a2");
  client.hears("150=2");
  client.hears("35=9|37=1001");
  client.says("35=F|11=c5|41=a3");
  client.hears("150=4");
  client.says("35=F|11=c6|41=a4");
  client.hears("150=2");
  EXPECT_EQ(exchange.scenario.counters.cancel_requests, 4U);
  EXPECT_EQ(exchange.scenario.counters.race_fills, 2U);
  EXPECT_EQ(exchange.scenario.counters.cancels, 2U);
}

TEST(CancelRace, one_shots_take_the_next_cancels_and_a_refused_one_spends_none) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("11=a1"));
  client.says(sell("11=a2"));
  client.says("35=F|11=c0|41=zz");
  EXPECT_EQ(exchange.scenario.fills_on_cancel.next, 1U);
  client.skips_all();
  client.says("35=F|11=c1|41=a1");
  client.hears("150=2");
  client.hears("35=9");
  EXPECT_EQ(exchange.scenario.fills_on_cancel.next, 0U);
  client.says("35=F|11=c2|41=a2");
  client.hears("150=4");
}

TEST(CancelRace, a_recurring_race_spends_a_one_shot_too) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.every = 1;
  exchange.scenario.fills_on_cancel.next = 3;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.says("35=F|11=c1|41=a1");
  EXPECT_EQ(exchange.scenario.fills_on_cancel.next, 2U);
  EXPECT_EQ(exchange.scenario.counters.race_fills, 1U);
}

TEST(CancelRace, its_order_events_come_in_the_order_of_its_messages) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.writes_order_events();
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.says("35=F|11=c1|41=a1");
  EXPECT_THAT(
      exchange.order_events(),
      testing::ElementsAre(
          testing::StartsWith(R"("ev":"new")"),
          R"("ev":"fill","cl":"a1","oid":1000,"symbol":"AAPL","side":"S","qty":100,"px":190,)"
          R"("cum":100,"leaves":0,"last_qty":100,"text":""})",
          R"("ev":"cancel_reject","cl":"a1","oid":1000,"symbol":"","side":" ","qty":0,"px":0,)"
          R"("cum":0,"leaves":0,"last_qty":0,"text":"Too late to cancel"})"));
}

}  // namespace
}  // namespace quorl::test
