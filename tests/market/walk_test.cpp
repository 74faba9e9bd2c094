#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/book_sense.h"
#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using Draws = std::vector<uint64_t>;

// --- Draws made to order ---

constexpr uint64_t HALF = uint64_t{1} << 63;
constexpr uint64_t HEADS = 0;  // a coin that says yes: a buy, or a pull
constexpr uint64_t TAILS = HALF;

/// An output that uniform_index(n) turns into `index`.
uint64_t picks(uint64_t index, uint64_t n) {
  const uint64_t share = std::numeric_limits<uint64_t>::max() / n;
  return index * share + share / 2;
}

uint64_t lots(uint64_t count) { return (count - 1) << 61; }

Draws operator+(Draws first, const Draws& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Draws posts_buy(uint64_t cents_behind, uint64_t size) {
  return {HEADS, picks(cents_behind, 10), lots(size)};
}

Draws posts_sell(uint64_t cents_behind, uint64_t size) {
  return {TAILS, picks(cents_behind, 10), lots(size)};
}

Draws refills(uint64_t cents_behind, uint64_t size) {
  return {picks(cents_behind, 10), lots(size)};
}

/// x 0.5 and y 0: the deviate is 0 and the spare is not.
Draws stands_still() { return {uint64_t{3} << 62, HALF}; }

/// Three posts at the touch of 190.00.
Draws three_posts() { return posts_buy(0, 1) + posts_buy(0, 1) + posts_sell(0, 1); }

constexpr uint64_t NO_TOUCH = std::numeric_limits<uint64_t>::max();

/// Four levels a side, too far from 190.00 to meet anything posted there, of a client's orders,
/// which no pull touches.
FixPeer client_keeps_far_levels(Exchange& exchange) {
  FixPeer client = exchange.logs_on("ALPHA");
  for (int i = 0; i < 4; ++i) {
    const std::string n = std::to_string(i);
    client.says("35=D|55=AAPL|38=100|40=2|18=i|54=1|11=b" + n + "|44=10" + n);
    client.says("35=D|55=AAPL|38=100|40=2|18=i|54=2|11=s" + n + "|44=30" + n);
  }
  client.skips_all();
  exchange.feed();
  return client;
}

/// Runs a tick on draws made to order, and checks that it took them all and no more.
void ticks_on(Exchange& exchange, const Draws& draws, const char* file = __builtin_FILE(),
              int line = __builtin_LINE()) {
  const testing::ScopedTrace trace(file, line, "a tick");
  exchange.rng = rng_yielding(draws);
  EXPECT_EQ(draws_taken(exchange.rng, [&] { exchange.engine.walk_tick(); }), draws.size());
}

size_t background_orders(const Exchange& exchange) { return exchange.engine.resting_orders_of(""); }

// --- Posting ---

TEST(PostLiquidity, draws_side_distance_and_size_in_that_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rng = rng_yielding(posts_buy(3, 8) + posts_sell(9, 2));
  EXPECT_EQ(draws_taken(exchange.rng,
                        [&] { exchange.engine.post_liquidity(exchange.stock(), 1900000, 0); }),
            3U);
  exchange.feed_shows({"8 800 @ 189.96 last"});
  EXPECT_EQ(draws_taken(exchange.rng,
                        [&] { exchange.engine.post_liquidity(exchange.stock(), 1900000, 0); }),
            3U);
  exchange.feed_shows({"5 200 @ 190.09 last"});
  exchange.book_holds({"sell 200 @ 190.09", "buy 800 @ 189.96"});
}

TEST(PostLiquidity, a_forced_side_takes_no_coin) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rng = rng_yielding(refills(0, 1) + refills(0, 3));
  EXPECT_EQ(draws_taken(exchange.rng,
                        [&] { exchange.engine.post_liquidity(exchange.stock(), 1900000, 1); }),
            2U);
  EXPECT_EQ(draws_taken(exchange.rng,
                        [&] { exchange.engine.post_liquidity(exchange.stock(), 1900000, -1); }),
            2U);
  exchange.book_holds({"sell 300 @ 190.00", "buy 100 @ 189.99"});
}

TEST(PostLiquidity, sells_begin_at_the_reference_and_buys_a_cent_below) {
  for (uint64_t k = 0; k < 10; ++k) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.rng = rng_yielding(refills(k, 1) + refills(k, 1));
    exchange.engine.post_liquidity(exchange.stock(), 1900000, 1);
    exchange.engine.post_liquidity(exchange.stock(), 1900000, -1);
    const Price4 behind = static_cast<Price4>(k) * 100;
    EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), BUYS),
                testing::ElementsAre(1899900 - behind));
    EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), SELLS),
                testing::ElementsAre(1900000 + behind));
  }
}

TEST(PostLiquidity, sizes_are_1_to_8_lots_from_the_top_three_bits) {
  for (uint64_t top = 0; top < 8; ++top) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    const uint64_t size_draw = (top << 61) | ((uint64_t{1} << 61) - 1);
    exchange.rng = rng_yielding({picks(0, 10), size_draw});
    exchange.engine.post_liquidity(exchange.stock(), 1900000, 1);
    const Order& order = order_by_id(exchange.engine, 1000);
    EXPECT_EQ(order.leaves, (top + 1) * 100);
    EXPECT_EQ(order.qty, (top + 1) * 100);
  }
}

TEST(PostLiquidity, makes_an_order_like_any_synthetic_one) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.engine.post_liquidity(exchange.stock(1), 4100000, -1);
  const Order& order = order_by_id(exchange.engine, 1000);
  EXPECT_EQ(order.id, 1000U);
  EXPECT_EQ(order.locate, 2);
  EXPECT_FALSE(order.buy);
  EXPECT_EQ(order.side, '1');  // the character stays, also on a sell
  EXPECT_EQ(order.owner, "");
  EXPECT_EQ(order.cl_ord_id, "");
  EXPECT_EQ(exchange.engine.next_order_id, 1001U);
  EXPECT_THAT(live_names(exchange.engine), testing::IsEmpty());
}

TEST(PostLiquidity, a_sell_at_a_stale_bid_trades_and_rests_what_is_left) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL buy 100 @ 190.03", "AAPL buy 100 @ 190.00", "AAPL buy 100 @ 189.99"});
  exchange.rng = rng_yielding(posts_sell(0, 5));
  exchange.engine.post_liquidity(exchange.stock(), 1900000, 0);
  exchange.feed_shows(
      {"T 100 @ 190.03", "T 100 @ 190.00", "5 300 @ 190.00", "8 0 @ 190.00", "8 0 @ 190.03 last"});
  exchange.book_holds({"sell 300 @ 190.00", "buy 100 @ 189.99"});
  const std::vector<uint64_t> posted =
      queue_at(exchange.engine, exchange.stock(), SELLS, price4("190.00"));
  ASSERT_EQ(posted.size(), 1U);
  const Order& order = order_by_id(exchange.engine, posted[0]);
  EXPECT_EQ(order.cum, 200U);  // counted on the aggressor, synthetic or not
  EXPECT_EQ(order.qty, 500U);
}

TEST(PostLiquidity, a_buy_at_a_stale_offer_trades_and_is_done) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 189.99"});
  exchange.rng = rng_yielding(posts_buy(0, 2));
  exchange.engine.post_liquidity(exchange.stock(), 1900000, 0);
  exchange.feed_shows({"T 200 @ 189.99", "5 100 @ 189.99 last"});
  exchange.book_holds({"sell 100 @ 189.99"});
  EXPECT_EQ(exchange.engine.next_order_id, 1002U) << "it took an id all the same";
}

TEST(PostLiquidity, may_hit_a_client_who_is_told_later) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says("35=D|11=a1|55=AAPL|54=1|38=300|40=2|44=190.05|18=i");
  client.hears("150=0");
  exchange.rng = rng_yielding(posts_sell(4, 2));
  exchange.engine.post_liquidity(exchange.stock(), 1900000, 0);
  exchange.drains_deferred();
  client.hears("150=1|32=200|31=190.05|851=1");
}

TEST(PostLiquidity, near_zero_prices_are_cut_towards_zero) {
  struct Case {
    Price4 ref;
    uint64_t k;
    Price4 buy;
    Price4 sell;
  };
  // Raw prices of ref - 50 - 100 k and ref + 100 k + 50, to the next hundred towards zero.
  for (const Case& c :
       {Case{0, 0, 0, 0}, Case{0, 1, -100, 100}, Case{100, 0, 0, 100}, Case{100, 2, -100, 300},
        Case{-100, 0, -100, 0}, Case{-300, 1, -400, -100}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(c.ref));
    for (const int direction : {1, -1}) {
      Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
      exchange.rng = rng_yielding(refills(c.k, 1));
      exchange.engine.post_liquidity(exchange.stock(), c.ref, direction);
      ASSERT_EQ(order_count(exchange.engine), 1U);
      EXPECT_EQ(order_by_id(exchange.engine, 1000).price, direction > 0 ? c.buy : c.sell);
    }
  }
}

TEST(PostLiquidity, a_best_price_of_0_is_not_traded_with) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 0"});
  exchange.rng = rng_yielding(posts_buy(0, 1));
  exchange.engine.post_liquidity(exchange.stock(), 1900000, 0);
  exchange.feed_shows({"8 100 @ 189.99 last"});
  Exchange other = Exchange::with_empty_book("AAPL:190.00");
  other.rests({"AAPL buy 100 @ 0"});
  other.rng = rng_yielding(posts_sell(0, 1));
  other.engine.post_liquidity(other.stock(), -1000, 0);
  other.feed_shows({"5 100 @ -0.09 last"});
}

TEST(PostLiquidity, references_at_the_ends_of_the_range_wrap) {
  constexpr Price4 HIGHEST = std::numeric_limits<Price4>::max();
  constexpr Price4 LOWEST = std::numeric_limits<Price4>::min();
  struct Case {
    Price4 ref;
    uint64_t k;
    Price4 buy;
    Price4 sell;
  };
  // HIGHEST is 9223372036854775807. A step over an end goes on from the other; then towards zero.
  for (const Case& c : {Case{HIGHEST, 0, 9223372036854775700, -9223372036854775700},
                        Case{HIGHEST, 9, 9223372036854774800, -9223372036854774800},
                        Case{LOWEST, 0, 9223372036854775700, -9223372036854775700},
                        Case{LOWEST, 9, 9223372036854774800, -9223372036854774800},
                        Case{HIGHEST - 100, 0, 9223372036854775600, 9223372036854775700},
                        Case{LOWEST + 100, 0, -9223372036854775700, -9223372036854775600}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(c.ref));
    for (const int direction : {1, -1}) {
      const Price4 price = direction > 0 ? c.buy : c.sell;
      Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
      exchange.rng = rng_yielding(refills(c.k, 1));
      exchange.engine.post_liquidity(exchange.stock(), c.ref, direction);
      EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), direction > 0),
                  testing::ElementsAre(price));
      exchange.publisher.flush_if_pending();
      const std::vector<FeedMessage> feed = exchange.feed();
      ASSERT_EQ(feed.size(), 1U);
      EXPECT_EQ(feed[0].price, price);
      EXPECT_EQ(feed[0].size, 100U);
    }
  }
}

TEST(PostLiquidity, an_offer_that_has_wrapped_below_the_bids_trades_with_the_best) {
  constexpr Price4 HIGHEST = std::numeric_limits<Price4>::max();
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rng = rng_yielding(refills(9, 1) + refills(0, 3) + refills(9, 2));
  exchange.engine.post_liquidity(exchange.stock(), HIGHEST, 1);
  exchange.engine.post_liquidity(exchange.stock(), HIGHEST, 1);
  exchange.engine.post_liquidity(exchange.stock(), HIGHEST, -1);
  EXPECT_EQ(exchange.stock().last_price, 9223372036854775700);
  EXPECT_EQ(exchange.stock().volume, 200U);
  EXPECT_EQ(shown_levels(exchange.engine, exchange.stock(), BUYS),
            (ShownLevels{{9223372036854775700, 100}, {9223372036854774800, 100}}));
  EXPECT_EQ(nonsense_in(exchange.engine), "");
}

// --- The step ---

TEST(WalkTick, moves_the_mid_by_a_normal_step_of_basis_points) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.step_bps = 50.0;
  exchange.engine.touch_hit = 0.0;
  // x 0.5, y 0.25: the deviate is 0.25 times the root of -2 ln(0.3125) / 0.3125.
  ticks_on(exchange, Draws{uint64_t{3} << 62, uint64_t{5} << 61} + three_posts() + refills(0, 1) +
                         refills(0, 1) + Draws{NO_TOUCH});
  EXPECT_DOUBLE_EQ(exchange.stock().mid, 190.0 * (1.0 + 0.25 * 2.7283997476096418 * 0.005));
  EXPECT_GT(std::fabs(exchange.stock().mid * 100.0 - std::round(exchange.stock().mid * 100.0)),
            0.01)
      << "it keeps what is finer than a cent";
}

TEST(WalkTick, a_step_of_0_leaves_the_mid_and_takes_its_draws) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.step_bps = 0.0;
  exchange.engine.touch_hit = 0.0;
  // The first pair lies outside the circle.
  ticks_on(exchange, Draws{0, 0, 12345, HALF} + three_posts() + refills(0, 1) + refills(0, 1) +
                         Draws{NO_TOUCH});
  EXPECT_EQ(exchange.stock().mid, 190.0);
}

TEST(WalkTick, the_second_stock_takes_the_spare_and_the_third_draws_again) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00,SPY:520.00");
  exchange.engine.touch_hit = 0.0;
  exchange.engine.step_bps = 100.0;
  const Draws rest = three_posts() + refills(0, 1) + refills(0, 1) + Draws{NO_TOUCH};
  const double m = 2.7283997476096418;
  ticks_on(exchange,
           Draws{uint64_t{3} << 62, uint64_t{5} << 61} + rest + rest + stands_still() + rest);
  EXPECT_DOUBLE_EQ(exchange.stock(0).mid, 190.0 * (1.0 + 0.01 * 0.25 * m));
  EXPECT_DOUBLE_EQ(exchange.stock(1).mid, 410.0 * (1.0 + 0.01 * 0.5 * m));
  EXPECT_EQ(exchange.stock(2).mid, 520.0);
}

TEST(WalkTick, a_spare_is_not_kept_for_the_next_tick) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  ticks_on(exchange, stands_still() + three_posts() + Draws{NO_TOUCH});
  const double mid = exchange.stock().mid;
  // Both pulls of the next tick take the coin, and leave what they picked.
  const Draws spared = {picks(0, 3), TAILS};
  ticks_on(exchange, stands_still() + spared + spared + three_posts() + Draws{NO_TOUCH});
  EXPECT_EQ(exchange.stock().mid, mid);
}

TEST(WalkTick, posts_around_the_mid_it_has_just_moved_to) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  exchange.stock().mid = 200.006;  // rounds to 200.01
  ticks_on(exchange, stands_still() + posts_buy(0, 1) + posts_sell(0, 1) + posts_sell(1, 1) +
                         Draws{NO_TOUCH});
  exchange.feed_shows({"8 100 @ 200.00 last", "5 100 @ 200.01 last", "5 100 @ 200.02 last"});
}

// --- Pulls ---

TEST(WalkTick, the_more_background_orders_rest_the_more_are_pulled) {
  struct Case {
    size_t resting;
    size_t pulled;
  };
  for (const Case& c : {Case{1, 1}, Case{2, 2}, Case{60, 2}, Case{61, 3}, Case{62, 3}, Case{90, 3},
                        Case{91, 4}, Case{92, 4}, Case{200, 4}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(c.resting));
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
    // Neither a client's orders nor those of another symbol count.
    client_keeps_far_levels(exchange);
    for (int i = 0; i < 100; ++i) {
      exchange.rests({"MSFT buy 100 @ 100.00"});
    }
    exchange.engine.stocks.pop_back();  // only the first stock walks
    exchange.engine.touch_hit = 0.0;
    for (size_t i = 0; i < c.resting; ++i) {
      exchange.rests({i % 2 == 0 ? "AAPL buy 100 @ 100.00" : "AAPL sell 100 @ 300.00"});
    }
    Draws pulls;
    for (size_t i = 0; i < c.pulled; ++i) pulls.push_back(picks(0, c.resting - i));
    ticks_on(exchange, stands_still() + pulls + three_posts() + Draws{NO_TOUCH});
    EXPECT_EQ(background_orders(exchange), 100 + c.resting - c.pulled + 3);
  }
}

TEST(WalkTick, with_nothing_to_pull_no_pull_is_drawn) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  ticks_on(exchange, stands_still() + three_posts() + Draws{NO_TOUCH});
  EXPECT_EQ(background_orders(exchange), 3U);
}

TEST(WalkTick, an_order_exactly_12_cents_away_takes_a_coin_and_one_beyond_goes_without) {
  struct Case {
    const char* order;
    bool takes_coin;
  };
  for (const Case& c :
       {Case{"AAPL sell 500 @ 190.12", true}, Case{"AAPL sell 500 @ 190.1201", false},
        Case{"AAPL buy 500 @ 189.88", true}, Case{"AAPL buy 500 @ 189.8799", false},
        Case{"AAPL sell 500 @ 190.00", true}, Case{"AAPL buy 500 @ 190.00", true}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, c.order);
    for (const uint64_t coin : {HEADS, TAILS}) {
      Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
      client_keeps_far_levels(exchange);
      exchange.engine.touch_hit = 0.0;
      const uint64_t id = exchange.rests({c.order})[0];
      const bool stays = c.takes_coin && coin == TAILS;
      Draws pulls = {picks(0, 1)};
      if (c.takes_coin) pulls.push_back(coin);
      if (stays) pulls = pulls + Draws{picks(0, 1), TAILS};  // the second attempt picks it again
      // Posted away from it, so that it is not traded with.
      ticks_on(exchange, stands_still() + pulls + posts_buy(9, 1) + posts_buy(9, 1) +
                             posts_buy(9, 1) + Draws{NO_TOUCH});
      EXPECT_EQ(has_order(exchange.engine, id), stays);
    }
  }
}

TEST(WalkTick, a_pull_is_a_withdrawal_and_no_trade) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  exchange.rests({"AAPL buy 500 @ 150.00"});
  ticks_on(exchange, stands_still() + Draws{picks(0, 1)} + three_posts() + Draws{NO_TOUCH});
  exchange.feed_shows(
      {"8 0 @ 150.00 last", "8 100 @ 189.99 last", "8 200 @ 189.99 last", "5 100 @ 190.00 last"});
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
  EXPECT_EQ(exchange.stock().volume, 0U);
  EXPECT_EQ(exchange.stock().last_price, 0);
}

TEST(WalkTick, a_pull_takes_one_order_of_a_level_and_leaves_the_others) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  exchange.rests({"AAPL buy 500 @ 150.00", "AAPL buy 500 @ 150.00", "AAPL buy 500 @ 150.00"});
  ticks_on(exchange,
           stands_still() + Draws{picks(1, 3), picks(1, 2)} + three_posts() + Draws{NO_TOUCH});
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_GE(feed.size(), 2U);
  EXPECT_EQ(feed[0].size, 1000U);
  EXPECT_EQ(feed[1].size, 500U);
  EXPECT_EQ(shares_at(exchange.engine, exchange.stock(), BUYS, 1500000), 500U);
}

TEST(WalkTick, picks_in_the_iteration_order_of_the_orders_afresh_for_each_attempt) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  for (int i = 0; i < 70; ++i) exchange.rests({"AAPL buy 100 @ 100.00"});
  std::vector<uint64_t> ids = orders_to_pull(exchange.engine, exchange.stock());
  ASSERT_EQ(ids.size(), 70U);
  std::vector<uint64_t> doomed;
  Draws pulls;
  for (const uint64_t pick : {20U, 20U, 67U}) {
    pulls.push_back(picks(pick, ids.size()));
    doomed.push_back(ids[pick]);
    ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(pick));
  }
  ticks_on(exchange, stands_still() + pulls + three_posts() + Draws{NO_TOUCH});
  for (const uint64_t id : doomed) EXPECT_FALSE(has_order(exchange.engine, id));
  for (const uint64_t id : ids) EXPECT_TRUE(has_order(exchange.engine, id));
}

TEST(WalkTick, a_client_order_is_never_pulled_however_far_away) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.rng.seed(7);
  exchange.engine.touch_hit = 0.0;
  for (int i = 0; i < 300; ++i) exchange.engine.walk_tick();
  EXPECT_EQ(exchange.engine.resting_orders_of("ALPHA"), 8U);
}

TEST(WalkTick, a_client_order_at_a_pulled_price_keeps_its_level) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.0;
  exchange.rests({"AAPL buy 500 @ 101.00"});
  ticks_on(exchange, stands_still() + Draws{picks(0, 1)} + three_posts() + Draws{NO_TOUCH});
  EXPECT_EQ(exchange.feed()[0].size, 100U);
}

// --- Refills ---

TEST(WalkTick, a_side_with_fewer_than_4_levels_is_refilled_after_the_posts) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.touch_hit = 0.0;
  // Two prices on one side and one on the other: both are refilled.
  ticks_on(exchange, stands_still() + posts_buy(0, 1) + posts_buy(1, 1) + posts_sell(0, 1) +
                         refills(5, 2) + refills(6, 3) + Draws{NO_TOUCH});
  exchange.book_holds({"sell 100 @ 190.00", "sell 300 @ 190.06", "buy 100 @ 189.99",
                       "buy 100 @ 189.98", "buy 200 @ 189.94"});
}

TEST(WalkTick, levels_are_counted_and_not_orders) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.touch_hit = 0.0;
  FixPeer client = exchange.logs_on("ALPHA");
  for (int i = 0; i < 8; ++i) {
    const std::string n = std::to_string(i);
    client.says("35=D|55=AAPL|38=100|40=2|18=i|54=1|44=100|11=b" + n);          // one level
    client.says("35=D|55=AAPL|38=100|40=2|18=i|54=2|11=s" + n + "|44=30" + n);  // eight
  }
  ticks_on(exchange, stands_still() + posts_buy(0, 1) + posts_buy(1, 1) + posts_sell(0, 1) +
                         refills(5, 2) + Draws{NO_TOUCH});
  EXPECT_EQ(level_prices(exchange.engine, exchange.stock(), BUYS).size(), 4U);
}

TEST(WalkTick, a_fourth_level_posted_in_the_tick_spares_the_refill) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.touch_hit = 0.0;
  client_keeps_far_levels(exchange);
  for (const char* name : {"b0", "s0"}) {  // three client levels a side are left
    withdraw_order(exchange.engine, exchange.order("ALPHA", name).id);
  }
  ticks_on(exchange, stands_still() + posts_buy(0, 1) + posts_sell(0, 1) + posts_sell(0, 1) +
                         Draws{NO_TOUCH});
  EXPECT_EQ(level_prices(exchange.engine, exchange.stock(), BUYS).size(), 4U);
  EXPECT_EQ(level_prices(exchange.engine, exchange.stock(), SELLS).size(), 4U);
}

// --- The touch ---

TEST(WalkTick, a_touch_takes_the_opposite_side_from_the_best_price_on) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.5;
  const Draws posts = posts_sell(0, 1) + posts_sell(1, 1) + posts_buy(0, 2);
  ticks_on(exchange, stands_still() + posts + Draws{0, HEADS, picks(2, 6)});
  exchange.feed_shows({"5 100 @ 190.00 last", "5 100 @ 190.01 last", "8 200 @ 189.99 last",
                       "T 100 @ 190.00", "T 100 @ 190.01", "T 100 @ 300.00", "5 0 @ 190.00",
                       "5 0 @ 190.01", "5 0 @ 300.00 last"});
}

TEST(WalkTick, a_touch_from_the_other_side_sells) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.5;
  const Draws posts = posts_sell(0, 1) + posts_sell(1, 1) + posts_buy(0, 2);
  ticks_on(exchange, stands_still() + posts + Draws{0, TAILS, picks(2, 6)});
  exchange.drains_deferred();
  client.hears("150=2|11=b3|32=100|31=103|851=1");
  client.hears_nothing();
}

TEST(WalkTick, touches_are_of_1_to_6_lots_and_take_no_order_id) {
  for (uint64_t k = 0; k < 6; ++k) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    client_keeps_far_levels(exchange);
    exchange.engine.touch_hit = 0.5;
    const uint64_t next_order_id = exchange.engine.next_order_id;
    ticks_on(exchange, stands_still() + posts_sell(0, 8) + posts_buy(0, 1) + posts_buy(0, 1) +
                           Draws{0, HEADS, picks(k, 6)});
    EXPECT_EQ(exchange.stock().volume, (k + 1) * 100);
    EXPECT_EQ(exchange.engine.next_order_id, next_order_id + 3);
  }
}

TEST(WalkTick, what_a_touch_cannot_fill_is_forgotten) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.touch_hit = 0.5;
  ticks_on(exchange, stands_still() + posts_sell(0, 1) + posts_buy(0, 1) + posts_buy(1, 1) +
                         refills(2, 1) + refills(0, 1) + Draws{0, HEADS, picks(5, 6)});
  EXPECT_EQ(exchange.stock().volume, 200U);
  exchange.book_holds({"buy 100 @ 189.99", "buy 100 @ 189.98", "buy 100 @ 189.97"});
}

TEST(WalkTick, a_touch_needs_a_draw_below_the_probability) {
  struct Case {
    double touch_hit;
    uint64_t draw;
    bool hits;
  };
  // HALF - 1024 is the largest output that is a double below a half.
  for (const Case& c : {Case{0.5, HALF, false}, Case{0.5, HALF - 1024, true}, Case{0.0, 0, false},
                        Case{1.0, NO_TOUCH, true}, Case{1.0, 0, true},
                        Case{0.15, picks(14, 100), true}, Case{0.15, picks(15, 100), false}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(c.touch_hit));
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    client_keeps_far_levels(exchange);
    exchange.engine.touch_hit = c.touch_hit;
    Draws touch = {c.draw};
    if (c.hits) touch = touch + Draws{HEADS, picks(0, 6)};
    ticks_on(exchange, stands_still() + three_posts() + touch);
    EXPECT_EQ(exchange.engine.next_trade_id, c.hits ? 1U : 0U);
  }
}

TEST(WalkTick, at_probability_1_every_stock_is_touched_in_every_tick) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.engine.touch_hit = 1.0;
  exchange.engine.step_bps = 0.0;  // so that nothing posted crosses
  for (uint64_t tick = 1; tick <= 50; ++tick) {
    uint64_t volume[] = {exchange.stock(0).volume, exchange.stock(1).volume};
    exchange.engine.walk_tick();
    EXPECT_GT(exchange.stock(0).volume, volume[0]) << tick;
    EXPECT_GT(exchange.stock(1).volume, volume[1]) << tick;
  }
}

TEST(WalkTick, at_probability_0_nothing_is_touched) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.touch_hit = 0.0;
  exchange.engine.step_bps = 0.0;
  for (int tick = 0; tick < 50; ++tick) exchange.engine.walk_tick();
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
}

TEST(WalkTick, a_touch_is_cut_short_by_the_partial_fill_script) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = client_keeps_far_levels(exchange);
  exchange.engine.touch_hit = 0.5;
  exchange.scenario.partial_fills.next = 1;
  ticks_on(exchange, stands_still() + posts_buy(0, 1) + posts_buy(1, 1) + posts_buy(2, 1) +
                         Draws{0, HEADS, picks(5, 6)});
  exchange.drains_deferred();
  client.hears("150=1|11=s0|32=50|31=300");
  client.hears_nothing();
  EXPECT_EQ(exchange.stock().volume, 50U);
}

// --- The tick as a whole ---

TEST(WalkTick, goes_move_pull_post_refill_touch_with_an_event_for_each_change) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  client_keeps_far_levels(exchange);
  withdraw_order(exchange.engine, exchange.order("ALPHA", "s0").id);
  withdraw_order(exchange.engine, exchange.order("ALPHA", "b0").id);
  exchange.engine.publish_dirty(exchange.stock());
  exchange.feed();
  exchange.rests({"AAPL buy 100 @ 50.00", "AAPL buy 100 @ 50.00"});
  exchange.engine.touch_hit = 0.5;
  step_system_clock_by(1000);
  // Buys alone are posted, so that the sells are refilled, and then the touch finds that refill.
  ticks_on(exchange, stands_still() + Draws{picks(0, 2), picks(0, 1)} + posts_buy(0, 1) +
                         posts_buy(1, 2) + posts_buy(2, 3) + refills(0, 4) +
                         Draws{0, HEADS, picks(1, 6)});
  const std::vector<FeedMessage> feed = exchange.feed();
  std::vector<std::string> shown;
  std::set<uint64_t> times;
  for (const FeedMessage& message : feed) {
    shown.push_back(message.type + std::to_string(message.size));
    times.insert(message.timestamp_ns);
  }
  ASSERT_THAT(shown,
              testing::ElementsAre("8100", "80", "8100", "8200", "8300", "5400", "T200", "5200"));
  EXPECT_EQ(times.size(), 7U);  // two pulls, three posts, a refill, a touch
  EXPECT_EQ(feed[6].timestamp_ns, feed[7].timestamp_ns);
}

TEST(WalkTick, flushes_at_its_end_what_waits) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.engine.touch_hit = 0.0;
  exchange.engine.walk_tick();
  EXPECT_EQ(state_of(exchange.publisher).waiting, 0U);
  EXPECT_EQ(state_of(exchange.publisher).packets, 1U) << "one packet for both stocks";
  EXPECT_EQ(exchange.packets().size(), 1U);
}

TEST(WalkTick, stands_still_in_a_pause_without_draws_or_flush) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.00"});
  exchange.is_hit("AAPL buy 100");  // waits in the packet under assembly
  const uint64_t packets = state_of(exchange.publisher).packets;
  exchange.engine.paused = true;
  EXPECT_EQ(draws_taken(exchange.rng, [&] { exchange.engine.walk_tick(); }), 0U);
  EXPECT_EQ(state_of(exchange.publisher).packets, packets);
  EXPECT_EQ(state_of(exchange.publisher).waiting, 2U);
  EXPECT_EQ(exchange.stock().mid, 190.0);
  exchange.engine.paused = false;
  exchange.engine.walk_tick();
  EXPECT_GT(state_of(exchange.publisher).packets, packets);
}

TEST(WalkTick, without_stocks_flushes_what_waits_and_nothing_else) {
  Exchange exchange = Exchange::with_empty_book("");
  EXPECT_EQ(draws_taken(exchange.rng, [&] { exchange.engine.walk_tick(); }), 0U);
  EXPECT_EQ(state_of(exchange.publisher).packets, 0U);
  exchange.publisher.append("S", 1);
  exchange.engine.walk_tick();
  EXPECT_EQ(state_of(exchange.publisher).packets, 1U);
}

/// Twenty ticks with a hit at the touch in each; after each one the books make sense.
void walks_well(Exchange& exchange) {
  exchange.engine.touch_hit = 1.0;
  for (int tick = 0; tick < 20; ++tick) {
    exchange.engine.walk_tick();
    ASSERT_EQ(nonsense_in(exchange.engine), "") << "behind tick " << tick;
  }
  EXPECT_GT(exchange.engine.next_order_id, 1060U);
  for (const bool buy : {BUYS, SELLS}) {
    EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), buy),
                testing::Not(testing::IsEmpty()));
  }
}

TEST(WalkTick, goes_on_around_0_with_a_mid_that_is_no_price) {
  for (const double mid :
       {0.0, 1e300, -1e300, std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(mid));
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.stock().mid = mid;
    walks_well(exchange);
    EXPECT_EQ(price_outside(exchange.engine, -900, 900), "");
    EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), BUYS),
                testing::Each(testing::Le(0)));
    EXPECT_THAT(level_prices(exchange.engine, exchange.stock(), SELLS),
                testing::Each(testing::Ge(0)));
  }
}

TEST(WalkTick, goes_on_around_a_mid_below_0_or_near_the_end_of_the_range) {
  for (const double mid : {-5.0, 9.2e14}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(mid));
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.stock().mid = mid;
    walks_well(exchange);
    const auto ref = static_cast<Price4>(mid * 10000.0);
    const Price4 walked = (ref > 0 ? ref : -ref) / 500 + 1000;  // 25 steps, and ten cents
    EXPECT_EQ(price_outside(exchange.engine, ref - walked, ref + walked), "");
    EXPECT_GT(exchange.stock().volume, 0U);
  }
}

TEST(WalkTick, of_an_infinite_step_leaves_no_price_and_goes_on_around_0) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.step_bps = std::numeric_limits<double>::infinity();
  walks_well(exchange);
  EXPECT_FALSE(std::isfinite(exchange.stock().mid));
  EXPECT_EQ(price_outside(exchange.engine, -900, 900), "");
}

// --- What a seed reproduces ---

std::vector<std::string> shown_by(const Exchange& exchange, size_t stock, bool buy) {
  std::vector<std::string> levels;
  for (const auto& [price, size] :
       shown_levels(exchange.engine, exchange.engine.stocks.at(stock), buy)) {
    std::string cents = std::to_string(price / 100);
    cents.insert(cents.size() - 2, ".");
    levels.push_back(std::to_string(size) + " @ " + cents);
  }
  return levels;
}

/// Printed by derivations/opening_book.py, a model of the opening that shares nothing with ours.
TEST(OpeningBook, of_seed_42_is_the_one_a_model_of_its_own_arrives_at) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00,SPY:520.00");
  EXPECT_EQ(draws_taken(exchange.rng, [&] { exchange.engine.open_market(); }), 360U);
  EXPECT_EQ(exchange.rng(), 15504138946086177528U);
  using testing::ElementsAre;
  EXPECT_THAT(
      shown_by(exchange, 0, BUYS),
      ElementsAre("2300 @ 189.99", "500 @ 189.98", "1300 @ 189.96", "1200 @ 189.95", "300 @ 189.94",
                  "600 @ 189.93", "800 @ 189.92", "400 @ 189.91", "400 @ 189.90"));
  EXPECT_THAT(shown_by(exchange, 0, SELLS),
              ElementsAre("800 @ 190.00", "500 @ 190.02", "2400 @ 190.03", "2000 @ 190.04",
                          "500 @ 190.05", "4400 @ 190.06", "400 @ 190.07", "800 @ 190.09"));
  EXPECT_THAT(shown_by(exchange, 1, BUYS),
              ElementsAre("800 @ 409.99", "2600 @ 409.98", "700 @ 409.97", "900 @ 409.96",
                          "1300 @ 409.95", "1800 @ 409.94", "700 @ 409.93", "500 @ 409.92",
                          "1100 @ 409.91", "400 @ 409.90"));
  EXPECT_THAT(shown_by(exchange, 1, SELLS),
              ElementsAre("400 @ 410.00", "400 @ 410.01", "100 @ 410.02", "900 @ 410.03",
                          "1700 @ 410.04", "700 @ 410.05", "300 @ 410.06", "700 @ 410.09"));
  EXPECT_THAT(
      shown_by(exchange, 2, BUYS),
      ElementsAre("600 @ 519.98", "300 @ 519.97", "500 @ 519.96", "1900 @ 519.95", "200 @ 519.94",
                  "2000 @ 519.93", "900 @ 519.92", "200 @ 519.91", "800 @ 519.90"));
  EXPECT_THAT(shown_by(exchange, 2, SELLS),
              ElementsAre("100 @ 520.00", "1400 @ 520.01", "1400 @ 520.04", "1400 @ 520.06",
                          "1300 @ 520.07", "2000 @ 520.08", "700 @ 520.09"));
  EXPECT_EQ(exchange.engine.next_order_id, 1120U);
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
  EXPECT_EQ(order_count(exchange.engine), 120U);
}

/// All messages of an opening and 1000 ticks as they left, packet by packet, with the times blotted
/// out.
std::vector<std::string> market_of_seed(uint64_t seed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00,SPY:520.00");
  exchange.rng.seed(seed);
  step_system_clock_by(seed + 1);
  exchange.engine.open_market();
  std::vector<std::string> packets;
  for (int tick = 0; tick <= 1000; ++tick) {
    if (tick > 0) exchange.engine.walk_tick();
    for (const FeedPacket& packet : exchange.packets()) {
      std::string bytes = packet.bytes;
      bytes.replace(32, 8, 8, '?');  // the packet's own time
      size_t at = 40;
      for (const FeedMessage& message : packet.messages) {
        bytes.replace(at + 2 + 2, 8, 8, '?');
        at += 2 + message.bytes.size();
      }
      packets.push_back(bytes);
    }
  }
  return packets;
}

TEST(Seed, the_same_one_walks_the_same_market_for_1000_ticks) {
  const std::vector<std::string> first = market_of_seed(42);
  const std::vector<std::string> second = market_of_seed(42);
  ASSERT_GT(first.size(), 1000U);
  ASSERT_EQ(first.size(), second.size());
  for (size_t i = 0; i < first.size(); ++i) {
    ASSERT_EQ(first[i], second[i]) << "packet " << i;
  }
}

TEST(Seed, another_one_walks_another_market) { EXPECT_NE(market_of_seed(42), market_of_seed(43)); }

TEST(Seed, a_long_walk_leaves_book_and_orders_in_step) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,MSFT:410.00");
  exchange.engine.open_market();
  for (int tick = 0; tick < 500; ++tick) {
    exchange.engine.walk_tick();
    exchange.feed();
  }
  size_t queued = 0;
  for (const Stock& stock : exchange.engine.stocks) {
    for (const bool buy : {BUYS, SELLS}) {
      ShownLevels rested;
      for (const RestingLevel& level : resting_levels(exchange.engine, stock, buy)) {
        uint32_t size = 0;
        for (const Order* order : level.queue) {
          EXPECT_EQ(order, &order_by_id(exchange.engine, order->id));
          EXPECT_EQ(order->buy, buy);
          EXPECT_EQ(order->price, level.price);
          EXPECT_EQ(order->locate, stock.locate);
          size += order->leaves;
        }
        queued += level.queue.size();
        rested.emplace_back(level.price, size);
      }
      EXPECT_EQ(rested, shown_levels(exchange.engine, stock, buy));
    }
    EXPECT_LT(level_prices(exchange.engine, stock, BUYS).at(0),
              level_prices(exchange.engine, stock, SELLS).at(0));
  }
  EXPECT_EQ(queued, order_count(exchange.engine));
  EXPECT_LT(order_count(exchange.engine), 240U) << "the pulls bound the book";
}

}  // namespace
}  // namespace quorl::test
