#include "market/engine.h"

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
using testing::Pair;

constexpr std::string_view SELL_100 = "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i";

TEST(Engine, begins_with_the_counts_that_a_bench_knows) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.50");
  EXPECT_FALSE(exchange.engine.paused);
  EXPECT_EQ(exchange.engine.next_order_id, 1000U);
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
  EXPECT_EQ(exchange.engine.next_exec_id, 0U);
  EXPECT_EQ(exchange.engine.snapshots_served, 0U);
  EXPECT_EQ(exchange.engine.system_status, 'O');
  ASSERT_EQ(exchange.engine.stocks.size(), 2U);
  EXPECT_EQ(exchange.stock(0).symbol, "AAPL");
  EXPECT_EQ(exchange.stock(0).locate, 1);
  EXPECT_EQ(exchange.stock(0).mid, 190.0);
  EXPECT_EQ(exchange.stock(1).symbol, "MSFT");
  EXPECT_EQ(exchange.stock(1).locate, 2);
  EXPECT_EQ(exchange.stock(1).mid, 410.5);
}

TEST(Engine, beginning_an_event_reads_the_clock_once) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  set_system_ns(987654321);
  exchange.engine.begin_event();
  EXPECT_EQ(exchange.engine.event_time, 987654321U);
  EXPECT_EQ(system_readings(), 1U);
}

TEST(Engine, all_messages_of_an_event_carry_its_one_time) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 200 @ 190.01"});
  step_system_clock_by(1000);
  exchange.is_hit("AAPL buy 200");
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 4U);  // two trades, two levels
  for (const FeedMessage& message : feed) {
    EXPECT_EQ(message.timestamp_ns, feed[0].timestamp_ns);
  }
  exchange.is_hit("AAPL buy 10");
  EXPECT_GT(exchange.feed()[0].timestamp_ns, feed[0].timestamp_ns);
}

// --- Resting and leaving ---

TEST(Engine, an_order_rests_behind_those_at_its_price_and_changes_its_level) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.begin_event();
  Order order;
  order.locate = 1;
  order.price = 1900000;
  order.leaves = 100;
  for (const uint64_t id : {7U, 5U, 6U}) {
    order.id = id;
    exchange.engine.rest_order(exchange.stock(), order);
  }
  EXPECT_THAT(queue_at(exchange.engine, exchange.stock(), BUYS, 1900000), ElementsAre(7, 5, 6));
  EXPECT_EQ(order_count(exchange.engine), 3U);
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), SELLS), IsEmpty());
  exchange.engine.publish_dirty(exchange.stock());
  exchange.feed_shows({"8 300 @ 190.00 last"});
}

TEST(Engine, an_order_that_has_left_may_rest_again_under_its_id) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  Order order;
  order.id = 7;
  order.locate = 1;
  order.buy = false;
  order.price = 1900000;
  order.leaves = 100;
  exchange.engine.rest_order(exchange.stock(), order);
  withdraw_order(exchange.engine, 7);
  EXPECT_FALSE(has_order(exchange.engine, 7));
  order.leaves = 40;
  exchange.engine.rest_order(exchange.stock(), order);
  EXPECT_EQ(order_by_id(exchange.engine, 7).leaves, 40U);
  EXPECT_EQ(order_count(exchange.engine), 1U);
  EXPECT_THAT(queue_at(exchange.engine, exchange.stock(), SELLS, 1900000), ElementsAre(7));
}

TEST(Engine, the_last_order_of_a_level_takes_the_level_with_it) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  const std::vector<uint64_t> ids =
      exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 200 @ 190.00"});
  exchange.engine.begin_event();
  withdraw_order(exchange.engine, ids[0]);
  EXPECT_THAT(queue_at(exchange.engine, exchange.stock(), SELLS, 1900000), ElementsAre(ids[1]));
  withdraw_order(exchange.engine, ids[1]);
  EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), SELLS), IsEmpty());
  EXPECT_EQ(order_count(exchange.engine), 0U);
}

TEST(Engine, an_order_leaves_from_the_middle_of_its_queue) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  const std::vector<uint64_t> ids =
      exchange.rests({"AAPL buy 100 @ 190.00", "AAPL buy 200 @ 190.00", "AAPL buy 300 @ 190.00"});
  exchange.engine.begin_event();
  withdraw_order(exchange.engine, ids[1]);
  EXPECT_THAT(queue_at(exchange.engine, exchange.stock(), BUYS, 1900000),
              ElementsAre(ids[0], ids[2]));
}

TEST(Engine, a_shown_size_is_the_sum_of_what_rests_at_the_price) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  Engine& engine = exchange.engine;
  Stock& stock = exchange.stock();
  exchange.rests({"AAPL sell 100 @ 190.00"});
  EXPECT_EQ(shares_at(engine, stock, SELLS, 1900000), 100U);
  EXPECT_EQ(shares_at(engine, stock, BUYS, 1900000), 0U);
  EXPECT_EQ(shares_at(engine, stock, SELLS, 1900100), 0U);
  exchange.rests({"AAPL sell 200 @ 190.00"});
  EXPECT_EQ(shares_at(engine, stock, SELLS, 1900000), 300U);
  EXPECT_THAT(shown_levels(engine, stock, SELLS), ElementsAre(Pair(1900000, 300)));
}

TEST(Engine, a_shown_size_is_the_sum_cut_to_32_bits) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 4294967295 @ 190.00", "AAPL sell 100 @ 190.00"});
  EXPECT_EQ(shares_at(exchange.engine, exchange.stock(), SELLS, 1900000), 99U);
}

// --- Finding ---

TEST(Engine, a_stock_is_found_by_its_whole_symbol) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,LONGSYMBOL1:10,AAPL:5");
  EXPECT_EQ(exchange.engine.stock_by_symbol("AAPL"), &exchange.stock(0));
  EXPECT_EQ(exchange.engine.stock_by_symbol("LONGSYMBOL1"), &exchange.stock(1));
  EXPECT_EQ(exchange.engine.stock_by_symbol("LONGSYMB"), nullptr);
  EXPECT_EQ(exchange.engine.stock_by_symbol(""), nullptr);
  EXPECT_EQ(exchange.engine.stock_by_symbol("AAPL "), nullptr);
}

TEST(Engine, a_locate_that_was_cut_to_nothing_finds_no_stock) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  Order order;
  order.locate = 2;
  EXPECT_EQ(exchange.engine.stock_of(order), &exchange.stock(1));
  order.locate = 0;
  EXPECT_EQ(exchange.engine.stock_of(order), nullptr);
  order.locate = 3;
  EXPECT_EQ(exchange.engine.stock_of(order), nullptr);
}

TEST(Engine, stock_65536_has_no_locate_and_its_orders_touch_nothing) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  for (int i = 1; i < 65536; ++i) exchange.engine.add_stock("S" + std::to_string(i), 1.0);
  EXPECT_EQ(exchange.stock(65534).locate, 65535);
  EXPECT_EQ(exchange.stock(65535).locate, 0);
  FixPeer client = exchange.logs_on("ALPHA");
  exchange.scenario.unsolicited_cancels.next = 1;
  client.says("35=D|11=a1|55=S65535|54=2|38=100|40=2|44=1.00|18=i");
  client.hears("150=0|55=S65535");
  client.says("35=F|11=c1|41=a1");
  client.hears("35=9");
  client.says("35=G|11=g1|41=a1|55=S65535|54=2|38=50");
  client.hears("35=9");
  advance_ms(300);
  fire_scheduled_cancels(exchange.engine);
  EXPECT_EQ(exchange.scenario.counters.unsolicited_cancels, 0U);
}

TEST(Engine, a_client_reaches_an_order_only_by_its_own_name_for_it) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(SELL_100);
  EXPECT_NE(exchange.engine.live_order("ALPHA", "a1"), nullptr);
  EXPECT_EQ(exchange.engine.live_order("BETA", "a1"), nullptr);
  EXPECT_EQ(exchange.engine.live_order("ALPHA", "a2"), nullptr);
  exchange.is_hit("AAPL buy 100");
  EXPECT_EQ(exchange.engine.live_order("ALPHA", "a1"), nullptr) << "it has been filled";
}

TEST(Engine, resting_orders_are_counted_by_owner_and_no_owner_counts_the_synthetic) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.rests({"AAPL buy 100 @ 189.00", "MSFT sell 100 @ 411.00", "MSFT sell 100 @ 412.00"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(SELL_100);
  client.says(altered(SELL_100, "11=a2|55=MSFT|44=411.00"));
  EXPECT_EQ(exchange.engine.resting_orders_of("ALPHA"), 2U);
  EXPECT_EQ(exchange.engine.resting_orders_of("BETA"), 0U);
  EXPECT_EQ(exchange.engine.resting_orders_of(""), 3U);
}

// --- What is remembered of a closed order ---

TEST(Engine, a_closing_is_just_now_for_1999_ms_and_long_ago_from_2000) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  EXPECT_EQ(exchange.engine.closing_of("ALPHA", "a1"), Closing::UNKNOWN);
  exchange.engine.note_closed("ALPHA", "a1");
  EXPECT_EQ(exchange.engine.closing_of("ALPHA", "a1"), Closing::JUST_NOW);
  EXPECT_EQ(exchange.engine.closing_of("BETA", "a1"), Closing::UNKNOWN);
  advance_ms(1999);
  EXPECT_EQ(exchange.engine.closing_of("ALPHA", "a1"), Closing::JUST_NOW);
  advance_ms(1);
  EXPECT_EQ(exchange.engine.closing_of("ALPHA", "a1"), Closing::LONG_AGO);
}

TEST(Engine, a_second_closing_of_a_name_counts_from_anew) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.note_closed("ALPHA", "a1");
  advance_ms(2000);
  exchange.engine.note_closed("ALPHA", "a1");
  EXPECT_EQ(closing_count(exchange.engine), 1U);
  EXPECT_EQ(exchange.engine.closing_of("ALPHA", "a1"), Closing::JUST_NOW);
}

TEST(Engine, at_50001_closings_all_are_forgotten_the_newest_too) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  for (int i = 1; i <= 50000; ++i) exchange.engine.note_closed("ALPHA", std::to_string(i));
  EXPECT_EQ(closing_count(exchange.engine), 50000U);
  exchange.engine.note_closed("ALPHA", "50000");  // a known name adds no entry
  EXPECT_EQ(closing_count(exchange.engine), 50000U);
  exchange.engine.note_closed("ALPHA", "50001");
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  EXPECT_EQ(exchange.engine.closing_of("ALPHA", "50001"), Closing::UNKNOWN);
}

// --- Reports that are owed ---

TEST(DeferredReports, go_to_the_owner_in_the_order_of_the_events) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer alpha = exchange.logs_on("ALPHA");
  FixPeer beta = exchange.logs_on("BETA");
  alpha.says(altered(SELL_100, "11=a1"));
  beta.says(altered(SELL_100, "11=b1"));
  alpha.says(altered(SELL_100, "11=a2"));
  alpha.skips_all();
  beta.skips_all();
  exchange.is_hit("AAPL buy 250");
  alpha.hears_nothing();
  EXPECT_THAT(owed_to(exchange.engine), ElementsAre("ALPHA", "BETA", "ALPHA"));

  const std::vector<OwedMessage>& to_send = exchange.engine.drain_deferred();
  ASSERT_EQ(to_send.size(), 3U);
  const auto field = [&](size_t index, int tag) {
    return value_of(fields_of(std::string(to_send[index].message)), tag);
  };
  EXPECT_EQ(to_send[0].client, 0U);
  EXPECT_EQ(to_send[1].client, 1U);
  EXPECT_EQ(to_send[2].client, 0U);
  EXPECT_EQ(field(0, 11), "a1");
  EXPECT_EQ(field(1, 11), "b1");
  EXPECT_EQ(field(2, 11), "a2");
  EXPECT_EQ(field(2, 151), "50");
  EXPECT_THAT(owed_to(exchange.engine), IsEmpty());
  EXPECT_TRUE(exchange.engine.drain_deferred().empty());
}

TEST(DeferredReports, for_an_absent_owner_are_numbered_stored_and_counted_all_the_same) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(SELL_100);
  client.hears("34=1|17=E1");
  client.disconnects();
  EXPECT_EQ(exchange.engine.resting_orders_of("ALPHA"), 1U) << "a disconnect touches no order";
  exchange.is_hit("AAPL buy 100");
  EXPECT_EQ(exchange.scenario.counters.fills, 0U);
  EXPECT_EQ(client.stream().stored_count(), 1U);
  EXPECT_TRUE(exchange.engine.drain_deferred().empty());
  EXPECT_EQ(exchange.scenario.counters.fills, 1U);
  EXPECT_EQ(client.stream().next_out(), 3U);
  const std::vector<Stored> stored = client.stream().stored();
  ASSERT_EQ(stored.size(), 2U);
  EXPECT_EQ(stored[1].seq, 2U);
  EXPECT_EQ(stored[1].msg_type, "8");
  EXPECT_EQ(exchange.engine.next_exec_id, 2U);
  exchange.feed_shows({"5 100 @ 190.00 last", "T 100 @ 190.00", "5 0 @ 190.00 last"});
}

TEST(DeferredReports, take_number_and_time_at_the_drain_and_the_rest_from_the_fill) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(altered(SELL_100, "38=300"));
  client.hears("34=1|17=E1|60=20231114-22:13:20.123");
  exchange.is_hit("AAPL buy 100");
  client.says("35=G|11=a2|41=a1|55=AAPL|54=2|38=250");
  client.hears("34=2|17=E2|150=5|11=a2|41=a1|151=150|14=100");
  advance_ms(7);
  exchange.drains_deferred();
  client.hears(
      "34=3|17=E3|150=1|39=1|11=a1|!41|38=300|32=100|31=190|151=200|14=100|6=190|880=1|851=1|"
      "9730=ML|60=20231114-22:13:20.130");
}

}  // namespace
}  // namespace quorl::test
