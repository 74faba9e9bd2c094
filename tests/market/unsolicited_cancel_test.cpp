#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

// Times within a turn, and what no message shows. All else is in
// tests/stories/unasked_cancels.story.

namespace quorl::test {
namespace {

using testing::IsEmpty;

constexpr std::string_view SELL_100 = "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i";

std::string sell(std::string_view changes = "") { return altered(SELL_100, changes); }

/// An order of ALPHA that the exchange will cancel by itself 300 ms from now.
FixPeer doomed_order(Exchange& exchange, std::string_view changes = "") {
  FixPeer client = exchange.logs_on("ALPHA");
  exchange.scenario.unsolicited_cancels.next = 1;
  client.says(sell(changes));
  client.hears("150=0|34=1");
  exchange.feed();
  return client;
}

void fires(Exchange& exchange) { fire_scheduled_cancels(exchange.engine); }

TEST(ExchangeCancel, shows_on_the_feed_at_once_and_is_told_later_in_the_turn) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = doomed_order(exchange);
  advance_ms(300);
  fires(exchange);
  exchange.feed_shows({"5 0 @ 190.00 last"});
  client.hears_nothing();
  exchange.drains_deferred();
  client.hears(
      "35=8|34=2|37=1000|11=a1|41=a1|17=E2|20=0|150=4|39=4|55=AAPL|54=2|38=100|44=190|32=0|31=0|"
      "151=0|14=0|6=0|58=AdminCancel|!30|!103");
  client.hears_nothing();
  EXPECT_EQ(exchange.scenario.counters.unsolicited_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancels, 0U);
  EXPECT_EQ(exchange.scenario.counters.fills, 0U);
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
  EXPECT_EQ(exchange.stock().volume, 0U);
  EXPECT_EQ(exchange.stock().last_price, 0);
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  EXPECT_EQ(order_count(exchange.engine), 0U);
}

TEST(ExchangeCancel, a_late_pass_fires_it_all_the_same) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = doomed_order(exchange);
  advance_ms(60000);
  fires(exchange);
  exchange.drains_deferred();
  client.hears("150=4|58=AdminCancel");
}

TEST(ExchangeCancel, reads_the_clock_once_and_not_at_all_with_nothing_scheduled) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  uint64_t before = steady_readings();
  fires(exchange);
  EXPECT_EQ(steady_readings(), before);
  for (const char* id : {"x", "y", "z"}) {
    schedule_cancel(exchange.engine, {"ALPHA", id, 0});
  }
  before = steady_readings();
  fires(exchange);
  EXPECT_EQ(steady_readings(), before + 1);
  EXPECT_THAT(scheduled_cancels(exchange.engine), IsEmpty());
}

TEST(ExchangeCancel, passes_over_entries_that_are_not_due_and_keeps_them_in_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  const int64_t now = START_STEADY_MS;
  for (const auto& [id, due_ms] : std::vector<std::pair<std::string, int64_t>>{
           {"a1", now + 50}, {"a2", now}, {"a3", now + 1}, {"a4", now - 20}, {"a5", now + 40}}) {
    client.says(sell("11=" + id));
    schedule_cancel(exchange.engine, {"ALPHA", id, due_ms});
  }
  client.skips_all();
  fires(exchange);
  exchange.drains_deferred();
  client.hears("11=a2|58=AdminCancel");
  client.hears("11=a4|58=AdminCancel");
  client.hears_nothing();
  const std::vector<Scheduled> left = scheduled_cancels(exchange.engine);
  ASSERT_EQ(left.size(), 3U);
  EXPECT_EQ(left[0].cl_ord_id, "a1");
  EXPECT_EQ(left[1].cl_ord_id, "a3");
  EXPECT_EQ(left[2].cl_ord_id, "a5");
  advance_ms(1);
  fires(exchange);
  exchange.drains_deferred();
  client.hears("11=a3");
  client.hears_nothing();
}

TEST(ExchangeCancel, each_entry_is_an_event_of_its_own) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  FixPeer client = exchange.logs_on("ALPHA");
  exchange.scenario.unsolicited_cancels.every = 1;
  client.says(sell("11=a1|38=100"));
  client.says(sell("11=a2|38=200"));
  client.says(sell("11=a3|55=MSFT|44=410.00"));
  exchange.feed();
  advance_ms(300);
  step_system_clock_by(1000);
  fires(exchange);
  std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 3U);
  EXPECT_EQ(feed[0].size, 200U);
  EXPECT_EQ(feed[1].size, 0U);
  EXPECT_EQ(feed[2].symbol, "MSFT    ");
  for (const FeedMessage& message : feed) EXPECT_EQ(message.flags, 1);
  EXPECT_LT(feed[0].timestamp_ns, feed[1].timestamp_ns);
  EXPECT_LT(feed[1].timestamp_ns, feed[2].timestamp_ns);
}

TEST(ExchangeCancel, two_entries_for_one_order_cancel_it_once) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = doomed_order(exchange);
  schedule_cancel(exchange.engine, scheduled_cancels(exchange.engine).at(0));
  advance_ms(300);
  fires(exchange);
  exchange.drains_deferred();
  client.hears("58=AdminCancel");
  client.hears_nothing();
  EXPECT_EQ(exchange.scenario.counters.unsolicited_cancels, 1U);
}

TEST(ExchangeCancel, never_touches_an_order_without_an_owner) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00"});
  schedule_cancel(exchange.engine, {"", "", 0});  // the very names that such an order has
  fires(exchange);
  exchange.book_holds({"sell 100 @ 190.00"});
  EXPECT_EQ(exchange.scenario.counters.unsolicited_cancels, 0U);
}

TEST(ExchangeCancel, asks_neither_the_partial_fill_script_nor_the_race) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  exchange.scenario.fills_on_cancel.every = 1;
  FixPeer client = doomed_order(exchange);
  advance_ms(300);
  fires(exchange);
  exchange.drains_deferred();
  client.hears("150=4|58=AdminCancel");
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
  EXPECT_EQ(exchange.scenario.counters.cancel_requests, 0U);
}

TEST(ExchangeCancel, is_an_order_event_told_as_unsolicited) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.writes_order_events();
  doomed_order(exchange);
  advance_ms(300);
  fires(exchange);
  EXPECT_EQ(exchange.order_events().size(), 1U) << "written when it is composed";
  exchange.drains_deferred();
  ASSERT_EQ(exchange.order_events().size(), 2U);
  EXPECT_EQ(exchange.order_events()[1],
            R"("ev":"cancel","cl":"a1","oid":1000,"symbol":"AAPL","side":"S","qty":100,"px":190,)"
            R"("cum":0,"leaves":0,"last_qty":0,"text":"unsolicited"})");
}

TEST(ExchangeCancel, stands_behind_a_fill_of_the_same_turn) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = doomed_order(exchange, "38=300");
  advance_ms(300);
  exchange.is_hit("AAPL buy 100");
  fires(exchange);
  exchange.drains_deferred();
  client.hears("34=2|150=1|14=100|151=200");
  client.hears("34=3|150=4|14=100|151=0|58=AdminCancel");
}

}  // namespace
}  // namespace quorl::test
