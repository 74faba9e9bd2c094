#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view SELL = "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i";

std::string sell(std::string_view cl_ord_id, uint32_t shares, std::string_view price = "190.00") {
  return altered(SELL, "11=" + std::string(cl_ord_id) + "|38=" + std::to_string(shares) +
                           "|44=" + std::string(price));
}

/// A synthetic aggressor outside the fixture's language, for what it has left.
Order aggressor(bool buy, uint32_t shares, Price4 limit = 0) {
  Order order;
  order.locate = 1;
  order.buy = buy;
  order.price = limit;
  order.leaves = order.qty = shares;
  return order;
}

void meets_market(Exchange& exchange, Order& order) {
  exchange.engine.begin_event();
  exchange.engine.match_order(exchange.stock(), order, nullptr);
  exchange.engine.publish_dirty(exchange.stock());
}

// --- Price and time ---

TEST(Matching, goes_by_price_and_then_by_time_across_clients_and_background) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer alpha = exchange.logs_on("ALPHA");
  FixPeer beta = exchange.logs_on("BETA");
  exchange.rests({"AAPL sell 100 @ 190.01", "AAPL sell 100 @ 190.00"});
  alpha.says(sell("a1", 100));
  exchange.rests({"AAPL sell 100 @ 190.00"});
  beta.says(sell("b1", 100, "189.99"));
  exchange.feed();
  exchange.book_holds({"sell 100 @ 189.99 BETA b1", "sell 100 @ 190.00",
                       "sell 100 @ 190.00 ALPHA a1", "sell 100 @ 190.00", "sell 100 @ 190.01"});
  exchange.is_hit("AAPL buy 250");
  exchange.feed_shows({"T 100 @ 189.99", "T 100 @ 190.00", "T 50 @ 190.00 odd", "5 0 @ 189.99",
                       "5 150 @ 190.00 last"});
  exchange.book_holds({"sell 50 @ 190.00 ALPHA a1", "sell 100 @ 190.00", "sell 100 @ 190.01"});
}

TEST(Matching, a_limit_equal_to_the_best_price_trades_and_one_beyond_does_not) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.01", "AAPL buy 100 @ 189.99"});
  exchange.is_hit("AAPL buy 100 @ 190.00");
  exchange.is_hit("AAPL sell 100 @ 190.00");
  exchange.feed_shows({});
  exchange.is_hit("AAPL buy 100 @ 190.01");
  exchange.is_hit("AAPL sell 100 @ 189.99");
  exchange.feed_shows(
      {"T 100 @ 190.01", "5 0 @ 190.01 last", "T 100 @ 189.99", "8 0 @ 189.99 last"});
}

TEST(Matching, the_resting_order_sets_the_price) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00", "AAPL buy 100 @ 180.00"});
  exchange.is_hit("AAPL buy 100 @ 200.00");
  exchange.is_hit("AAPL sell 100 @ 1.00");
  exchange.feed_shows(
      {"T 100 @ 190.00", "5 0 @ 190.00 last", "T 100 @ 180.00", "8 0 @ 180.00 last"});
}

TEST(Matching, an_aggressor_without_a_limit_sweeps_however_far_the_book_goes) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 100 @ 500.00", "AAPL sell 100 @ 99999.00",
                  "AAPL buy 100 @ 0.0001", "AAPL buy 100 @ -5.00"});
  exchange.is_hit("AAPL buy 300");
  exchange.feed_shows({"T 100 @ 190.00", "T 100 @ 500.00", "T 100 @ 99999.00", "5 0 @ 190.00",
                       "5 0 @ 500.00", "5 0 @ 99999.00 last"});
  exchange.is_hit("AAPL sell 200");
  exchange.feed_shows({"T 100 @ 0.0001", "T 100 @ -5.00", "8 0 @ -5.00", "8 0 @ 0.0001 last"});
  exchange.book_holds({});
}

TEST(Matching, stops_at_a_best_price_of_0) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL buy 100 @ 0.01", "AAPL buy 100 @ 0", "AAPL buy 100 @ -0.01"});
  Order sweeper = aggressor(false, 300);
  meets_market(exchange, sweeper);
  EXPECT_EQ(sweeper.leaves, 200U);
  exchange.feed_shows({"T 100 @ 0.01", "8 0 @ 0.01 last"});
  exchange.book_holds({"buy 100 @ 0.00", "buy 100 @ -0.01"});
}

TEST(Matching, updates_the_aggressor_in_place) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 100 @ 190.10"});
  Order buyer = aggressor(true, 500);
  meets_market(exchange, buyer);
  EXPECT_EQ(buyer.leaves, 300U);
  EXPECT_EQ(buyer.cum, 200U);
  EXPECT_DOUBLE_EQ(buyer.notional, 19000.0 + 19010.0);
  EXPECT_EQ(buyer.qty, 500U);
  exchange.book_holds({});
}

TEST(Matching, an_aggressor_that_is_done_looks_no_further) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  const std::vector<uint64_t> ids = exchange.rests({"AAPL sell 300 @ 190.00"});
  Order buyer = aggressor(true, 100);
  meets_market(exchange, buyer);
  EXPECT_THAT(queue_at(exchange.engine, exchange.stock(), SELLS, price4("190.00")),
              ElementsAre(ids[0]));
  exchange.book_holds({"sell 200 @ 190.00"});
  Order nothing = aggressor(true, 0);
  meets_market(exchange, nothing);
  exchange.book_holds({"sell 200 @ 190.00"});
}

TEST(Matching, passes_by_what_has_left_earlier_in_the_same_event) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  Engine& engine = exchange.engine;
  Stock& stock = exchange.stock();
  const std::vector<uint64_t> ids = exchange.rests(
      {"AAPL sell 100 @ 190.00", "AAPL sell 100 @ 190.00", "AAPL sell 100 @ 190.00",
       "AAPL sell 100 @ 190.01", "AAPL sell 100 @ 189.00", "AAPL sell 100 @ 188.00"});
  Order buyer = aggressor(true, 150);
  engine.begin_event();
  for (const size_t leaver : {5U, 4U, 0U, 1U}) withdraw_order(engine, ids[leaver]);
  engine.match_order(stock, buyer, nullptr);
  engine.publish_dirty(stock);
  exchange.feed_shows({"T 100 @ 190.00", "T 50 @ 190.01 odd", "5 0 @ 188.00", "5 0 @ 189.00",
                       "5 0 @ 190.00", "5 50 @ 190.01 last"});
  EXPECT_THAT(level_prices(engine, stock, SELLS), ElementsAre(price4("190.01")));
  EXPECT_THAT(queue_at(engine, stock, SELLS, price4("190.01")), ElementsAre(ids[3]));
}

TEST(Matching, meets_nobody_on_a_side_that_has_emptied_within_the_event) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  Engine& engine = exchange.engine;
  Stock& stock = exchange.stock();
  const std::vector<uint64_t> ids =
      exchange.rests({"AAPL buy 100 @ 190.00", "AAPL buy 100 @ 190.00"});
  Order seller = aggressor(false, 100);
  engine.begin_event();
  for (const uint64_t id : ids) withdraw_order(engine, id);
  engine.match_order(stock, seller, nullptr);
  engine.publish_dirty(stock);
  EXPECT_EQ(seller.leaves, 100U);
  EXPECT_THAT(level_prices(engine, stock, BUYS), IsEmpty());
  exchange.feed_shows({"8 0 @ 190.00 last"});
  exchange.rests({"AAPL buy 200 @ 190.00"});  // the side goes on like any other
  exchange.is_hit("AAPL sell 150");
  exchange.feed_shows({"T 150 @ 190.00", "8 50 @ 190.00 last"});
}

// --- What a trade leaves behind ---

TEST(Trades, up_to_99_shares_are_an_odd_lot) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.00"});
  exchange.is_hit("AAPL buy 99");
  exchange.is_hit("AAPL buy 100");
  exchange.is_hit("AAPL buy 1");
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 6U);
  EXPECT_EQ(feed[0].type, 'T');
  EXPECT_EQ(feed[0].flags, 0x20);
  EXPECT_EQ(feed[2].flags, 0);
  EXPECT_EQ(feed[4].flags, 0x20);
}

TEST(Trades, take_ids_from_1_up_over_all_symbols) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.rests({"AAPL sell 200 @ 190.00", "MSFT sell 200 @ 410.00"});
  exchange.is_hit("AAPL buy 100");
  exchange.is_hit("MSFT buy 100");
  exchange.is_hit("AAPL buy 100");
  std::vector<std::pair<uint64_t, std::string>> trades;
  for (const FeedMessage& message : exchange.feed()) {
    if (message.type == 'T') trades.emplace_back(message.trade_id, message.symbol);
  }
  EXPECT_EQ(trades, (std::vector<std::pair<uint64_t, std::string>>{
                        {1, "AAPL    "}, {2, "MSFT    "}, {3, "AAPL    "}}));
}

TEST(Trades, move_the_last_price_and_add_to_the_volume) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.rests({"AAPL sell 200 @ 190.00", "AAPL sell 200 @ 190.01"});
  EXPECT_EQ(exchange.stock().last_price, 0);
  exchange.is_hit("AAPL buy 300");
  EXPECT_EQ(exchange.stock().last_price, price4("190.01"));
  EXPECT_EQ(exchange.stock().volume, 300U);
  EXPECT_EQ(exchange.stock(1).volume, 0U);
  EXPECT_EQ(exchange.stock(1).last_price, 0);
}

TEST(Trades, the_volume_goes_beyond_32_bits) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 4000000000 @ 190.00", "AAPL sell 4000000000 @ 190.01"});
  exchange.is_hit("AAPL buy 4000000000");
  exchange.is_hit("AAPL buy 4000000000");
  EXPECT_EQ(exchange.stock().volume, 8000000000U);
}

TEST(Trades, a_synthetic_order_is_hit_without_a_report_or_a_memory) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  const std::vector<uint64_t> ids =
      exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 100 @ 190.01"});
  exchange.is_hit("AAPL buy 150");
  EXPECT_THAT(owed_to(exchange.engine), IsEmpty());
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  EXPECT_EQ(session_memory_count(exchange.engine), 0U);
  EXPECT_EQ(order_by_id(exchange.engine, ids[1]).cum, 0U);
  EXPECT_EQ(order_by_id(exchange.engine, ids[1]).notional, 0.0);
  EXPECT_FALSE(has_order(exchange.engine, ids[0]));
  EXPECT_EQ(exchange.scenario.counters.fills, 0U);
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
}

TEST(Trades, a_part_filled_order_is_not_closed_and_keeps_its_place) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 300));
  exchange.rests({"AAPL sell 100 @ 190.00"});
  exchange.is_hit("AAPL buy 299");
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  EXPECT_EQ(exchange.order("ALPHA", "a1").cum, 299U);
  exchange.book_holds({"sell 1 @ 190.00 ALPHA a1", "sell 100 @ 190.00"});
}

TEST(Trades, a_trade_is_on_the_feed_ahead_of_the_levels_it_changed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 100 @ 190.01", "AAPL sell 100 @ 190.02"});
  exchange.is_hit("AAPL buy 300");
  exchange.feed_shows({"T 100 @ 190.00", "T 100 @ 190.01", "T 100 @ 190.02", "5 0 @ 190.00",
                       "5 0 @ 190.01", "5 0 @ 190.02 last"});
}

// --- reduce ---

TEST(Reduce, a_withdrawal_is_no_trade) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 100));
  exchange.feed();
  exchange.scenario.partial_fills.every = 1;
  Engine& engine = exchange.engine;
  engine.begin_event();
  withdraw_order(engine, 1000);
  engine.publish_dirty(exchange.stock());
  exchange.feed_shows({"5 0 @ 190.00 last"});
  EXPECT_EQ(engine.next_trade_id, 0U);
  EXPECT_EQ(exchange.stock().last_price, 0);
  EXPECT_EQ(exchange.stock().volume, 0U);
  EXPECT_THAT(owed_to(engine), IsEmpty());
  EXPECT_EQ(closing_count(engine), 0U);
  EXPECT_THAT(live_names(engine), IsEmpty());
  EXPECT_EQ(order_count(engine), 0U);
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
  exchange.book_holds({});
}

TEST(Reduce, a_trade_is_at_the_price_of_the_order_that_rests) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  const std::vector<uint64_t> ids = exchange.rests({"AAPL sell 100 @ 190.00"});
  Engine& engine = exchange.engine;
  engine.begin_event();
  EXPECT_EQ(trade_with_order(engine, exchange.stock(), ids[0], 40), 40U);
  engine.publish_dirty(exchange.stock());
  exchange.feed_shows({"T 40 @ 190.00 odd", "5 60 @ 190.00 last"});
  engine.begin_event();
  EXPECT_EQ(trade_with_order(engine, exchange.stock(), ids[0], 60), 60U);
  engine.publish_dirty(exchange.stock());
  exchange.feed_shows({"T 60 @ 190.00 odd", "5 0 @ 190.00 last"});
  EXPECT_EQ(order_count(engine), 0U);
}

// --- The partial-fill script ---

TEST(PartialFills, leave_half_of_the_order_in_whole_lots_if_there_are_any) {
  for (const auto& [shares, cut] : std::vector<std::pair<uint32_t, uint32_t>>{{1000, 500},
                                                                              {450, 200},
                                                                              {400, 200},
                                                                              {399, 100},
                                                                              {200, 100},
                                                                              {199, 99},
                                                                              {150, 75},
                                                                              {99, 49},
                                                                              {3, 1},
                                                                              {2, 1}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(shares));
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.scenario.partial_fills.every = 1;
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(sell("a1", shares));
    client.skips_all();
    Order buyer = aggressor(true, shares);
    const std::string said = standard_error_of([&] { meets_market(exchange, buyer); });
    EXPECT_EQ(said, "bench: partial fill of a1: " + std::to_string(cut) + " of " +
                        std::to_string(shares) + "\n");
    EXPECT_EQ(buyer.leaves, shares - cut);
    EXPECT_EQ(exchange.order("ALPHA", "a1").leaves, shares - cut);
    EXPECT_EQ(exchange.scenario.counters.partials, 1U);
    EXPECT_EQ(exchange.scenario.counters.partial_candidates, 1U);
    EXPECT_EQ(exchange.stock().volume, cut);
    EXPECT_EQ(closing_count(exchange.engine), 0U);
    exchange.drains_deferred();
    client.hears("150=1|39=1|32=" + std::to_string(cut) + "|151=" + std::to_string(shares - cut) +
                 "|14=" + std::to_string(cut));
  }
}

TEST(PartialFills, an_order_of_one_share_is_never_cut_nor_counted) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  exchange.scenario.partial_fills.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 1));
  exchange.is_hit("AAPL buy 1");
  exchange.book_holds({});
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
  EXPECT_EQ(exchange.scenario.partial_fills.next, 1U);
}

TEST(PartialFills, candidates_are_counted_with_no_script_armed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 2));
  exchange.is_hit("AAPL buy 2");
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 1U);
  EXPECT_EQ(exchange.scenario.counters.partials, 0U);
  exchange.book_holds({});
}

TEST(PartialFills, a_fill_of_part_of_an_order_does_not_ask_the_script) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 1000));
  exchange.is_hit("AAPL buy 999");
  exchange.book_holds({"sell 1 @ 190.00 ALPHA a1"});
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
}

TEST(PartialFills, a_trade_against_another_client_is_never_cut) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  FixPeer alpha = exchange.logs_on("ALPHA");
  FixPeer beta = exchange.logs_on("BETA");
  alpha.says(sell("a1", 1000));
  beta.says("35=D|11=b1|55=AAPL|54=1|38=1000|40=1|18=i");
  beta.hears("150=0");
  beta.hears("150=2|32=1000");
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
}

TEST(PartialFills, a_synthetic_order_is_never_cut) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  exchange.rests({"AAPL sell 1000 @ 190.00"});
  exchange.is_hit("AAPL buy 1000");
  exchange.book_holds({});
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
}

TEST(PartialFills, the_sweep_ends_at_the_cut) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 1000));
  exchange.rests({"AAPL sell 500 @ 190.00", "AAPL sell 500 @ 190.01"});
  exchange.feed();
  Order buyer = aggressor(true, 2000);
  meets_market(exchange, buyer);
  EXPECT_EQ(buyer.leaves, 1500U);
  exchange.feed_shows({"T 500 @ 190.00", "5 1000 @ 190.00 last"});
  exchange.book_holds({"sell 500 @ 190.00 ALPHA a1", "sell 500 @ 190.00", "sell 500 @ 190.01"});
}

TEST(PartialFills, an_order_that_was_cut_is_completed_by_a_later_aggressor) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 1000));
  client.skips_all();
  exchange.is_hit("AAPL buy 1000");
  exchange.is_hit("AAPL buy 500");
  exchange.book_holds({});
  exchange.drains_deferred();
  client.hears("150=1|32=500|151=500");
  client.hears("150=2|32=500|151=0|14=1000");
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 2U);
  EXPECT_EQ(exchange.scenario.counters.partials, 1U);
}

TEST(PartialFills, a_cut_order_is_cut_again_while_the_script_lasts) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 400));
  for (const uint32_t left : {200U, 100U, 50U, 25U, 13U, 7U, 4U, 2U, 1U}) {
    exchange.is_hit("AAPL buy 1000");
    EXPECT_EQ(exchange.order("ALPHA", "a1").leaves, left);
  }
  exchange.is_hit("AAPL buy 1000");
  exchange.book_holds({});
}

TEST(PartialFills, fire_on_every_second_candidate) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 2;
  FixPeer client = exchange.logs_on("ALPHA");
  const auto left_by_a_hit_of_200 = [&] {
    exchange.is_hit("AAPL buy 200");
    return shares_at(exchange.engine, exchange.stock(), SELLS, price4("190.00"));
  };
  client.says(sell("a1", 200));
  EXPECT_EQ(left_by_a_hit_of_200(), 0U);
  client.says(sell("a2", 200));
  EXPECT_EQ(left_by_a_hit_of_200(), 100U);
  EXPECT_EQ(left_by_a_hit_of_200(), 0U);  // what was left is the third candidate
  client.says(sell("a3", 200));
  EXPECT_EQ(left_by_a_hit_of_200(), 100U);
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 4U);
  EXPECT_EQ(exchange.scenario.counters.partials, 2U);
}

TEST(PartialFills, a_recurring_cut_spends_a_one_shot_too) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.every = 1;
  exchange.scenario.partial_fills.next = 2;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 200));
  exchange.is_hit("AAPL buy 200");
  EXPECT_EQ(exchange.scenario.partial_fills.next, 1U);
  EXPECT_EQ(exchange.scenario.counters.partials, 1U);
}

TEST(PartialFills, a_posted_order_rests_what_a_cut_left_it_even_in_a_crossed_book) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.partial_fills.next = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("a1", 100, "1.00"));  // any posted buy completes it
  exchange.feed();
  exchange.engine.post_liquidity(exchange.stock(), price4("190.00"), 1);
  const std::vector<Price4> bids = level_prices(exchange.engine, exchange.stock(), BUYS);
  ASSERT_EQ(bids.size(), 1U);
  const Price4 bid = bids.front();
  const uint32_t rested = shares_at(exchange.engine, exchange.stock(), BUYS, bid);
  EXPECT_GT(bid, price4("189.00"));
  EXPECT_EQ(rested % 100, 50U);  // a posted size of whole lots, less the 50 that traded
  EXPECT_EQ(exchange.order("ALPHA", "a1").leaves, 50U);
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 3U);
  EXPECT_EQ(feed[0].type, 'T');
  EXPECT_EQ(feed[0].size, 50U);
  EXPECT_EQ(feed[1].type, '5');
  EXPECT_EQ(feed[1].size, 50U);
  EXPECT_EQ(feed[2].type, '8');
  EXPECT_EQ(feed[2].flags, 1);
}

}  // namespace
}  // namespace quorl::test
