#include "market/records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(Records, a_default_order_is_a_synthetic_buy_with_the_usual_characters) {
  const Order order;
  EXPECT_EQ(order.id, 0U);
  EXPECT_EQ(order.locate, 0);
  EXPECT_TRUE(order.buy);
  EXPECT_EQ(order.price, 0);
  EXPECT_EQ(order.leaves, 0U);
  EXPECT_EQ(order.qty, 0U);
  EXPECT_EQ(order.cum, 0U);
  EXPECT_EQ(order.notional, 0.0);
  EXPECT_EQ(order.owner, "");
  EXPECT_EQ(order.cl_ord_id, "");
  EXPECT_EQ(order.side, '1');
  EXPECT_EQ(order.tif, '0');
  EXPECT_EQ(order.ord_type, '2');
  EXPECT_EQ(order.exec_inst, 'i');
  EXPECT_EQ(order.capacity, 'P');
}

TEST(Records, a_stock_begins_tradable_and_untraded) {
  const Stock stock;
  EXPECT_EQ(stock.status, 'T');
  EXPECT_EQ(stock.volume, 0U);
  EXPECT_EQ(stock.last_price, 0);
}

TEST(Records, the_best_bid_is_the_highest_and_the_best_offer_the_lowest) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  for (const char* price : {"190.01", "190.03", "190.02"}) {
    exchange.rests(
        {std::string("AAPL buy 100 @ ") + price, std::string("AAPL sell 100 @ ") + price});
  }
  const Engine& engine = exchange.engine;
  const Stock& stock = exchange.stock();
  EXPECT_THAT(level_prices(engine, stock, BUYS), ElementsAre(1900300, 1900200, 1900100));
  EXPECT_THAT(level_prices(engine, stock, SELLS), ElementsAre(1900100, 1900200, 1900300));
  EXPECT_THAT(shown_levels(engine, stock, BUYS),
              ElementsAre(Pair(1900300, 100), Pair(1900200, 100), Pair(1900100, 100)));
  EXPECT_THAT(shown_levels(engine, stock, SELLS),
              ElementsAre(Pair(1900100, 100), Pair(1900200, 100), Pair(1900300, 100)));
  exchange.is_hit("AAPL sell 100");
  exchange.is_hit("AAPL buy 100");
  exchange.feed_shows(
      {"T 100 @ 190.03", "8 0 @ 190.03 last", "T 100 @ 190.01", "5 0 @ 190.01 last"});
}

TEST(Records, a_client_order_key_is_told_apart_by_both_names) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  for (int owner = 0; owner < 40; ++owner) {
    FixPeer client = exchange.logs_on("OWNER" + std::to_string(owner));
    for (int n = 0; n < 40; ++n) {
      client.says("35=D|55=AAPL|54=1|38=100|40=2|44=190.00|18=i|11=a" + std::to_string(n));
    }
  }
  for (int owner = 0; owner < 40; ++owner) {
    for (int n = 0; n < 40; ++n) {
      const Order& order = exchange.order("OWNER" + std::to_string(owner), "a" + std::to_string(n));
      EXPECT_EQ(order.id, static_cast<uint64_t>(1000 + 40 * owner + n));
    }
  }
  EXPECT_EQ(live_names(exchange.engine).size(), 1600U);
}

TEST(Records, client_order_keys_are_compared_as_pairs) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  const std::string order = "35=D|55=AAPL|54=1|38=100|40=2|44=190.00|18=i|11=";
  exchange.logs_on("AB").says(order + "C");
  EXPECT_NE(exchange.engine.live_order("AB", "C"), nullptr);
  EXPECT_EQ(exchange.engine.live_order("A", "BC"), nullptr);
  EXPECT_EQ(exchange.engine.live_order("AB", "D"), nullptr);
  EXPECT_EQ(exchange.engine.live_order("C", "AB"), nullptr);
  exchange.logs_on("A").says(order + "BC");
  EXPECT_EQ(exchange.order("AB", "C").id, 1000U);
  EXPECT_EQ(exchange.order("A", "BC").id, 1001U);

  exchange.engine.note_closed("AB", "C");
  EXPECT_EQ(exchange.engine.closing_of("AB", "C"), Closing::JUST_NOW);
  EXPECT_EQ(exchange.engine.closing_of("A", "BC"), Closing::UNKNOWN);
  EXPECT_EQ(exchange.engine.closing_of("AB", "D"), Closing::UNKNOWN);
  EXPECT_EQ(exchange.engine.closing_of("C", "AB"), Closing::UNKNOWN);
}

TEST(Records, touched_prices_are_ordered_sells_first_and_lowest_first) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.engine.begin_event();
  rest_synthetic(exchange.engine, exchange.stock(), BUYS, price4("0.01"), 100);
  rest_synthetic(exchange.engine, exchange.stock(), SELLS, price4("0.03"), 100);
  rest_synthetic(exchange.engine, exchange.stock(), BUYS, price4("0.005"), 100);
  rest_synthetic(exchange.engine, exchange.stock(), SELLS, price4("0.02"), 100);
  exchange.engine.publish_dirty(exchange.stock());
  exchange.feed_shows({"5 100 @ 0.02", "5 100 @ 0.03", "8 100 @ 0.0050", "8 100 @ 0.01 last"});
}

}  // namespace
}  // namespace quorl::test
