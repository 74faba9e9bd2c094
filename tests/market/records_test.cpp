#include "market/records.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "market/engine.h"

namespace quorl {
namespace {

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
  Stock stock;
  for (const Price4 price : {1900100, 1900300, 1900200}) {
    stock.bids[price];
    stock.asks[price];
    stock.shown_bids[price] = 1;
    stock.shown_asks[price] = 1;
  }
  EXPECT_EQ(stock.bids.begin()->first, 1900300);
  EXPECT_EQ(stock.asks.begin()->first, 1900100);
  EXPECT_EQ(stock.shown_bids.begin()->first, 1900300);
  EXPECT_EQ(stock.shown_asks.begin()->first, 1900100);
}

TEST(Records, a_client_order_key_is_hashed_by_both_names) {
  const std::hash<std::string> text;
  const ClientOrderKeyHash hash;
  EXPECT_EQ(hash(ClientOrderKey{"ALPHA", "a1"}), 31 * text("a1") + text("ALPHA"));
  EXPECT_EQ(hash(ClientOrderKeyView{"ALPHA", "a1"}), hash(ClientOrderKey{"ALPHA", "a1"}));
}

TEST(Records, client_order_keys_are_compared_as_pairs) {
  const ClientOrderKeyEqual equal;
  const ClientOrderKey key{"AB", "C"};
  EXPECT_TRUE(equal(key, ClientOrderKeyView{"AB", "C"}));
  EXPECT_FALSE(equal(key, ClientOrderKeyView{"A", "BC"}));
  EXPECT_FALSE(equal(key, ClientOrderKeyView{"AB", "D"}));
  EXPECT_FALSE(equal(key, ClientOrderKeyView{"C", "AB"}));
}

TEST(Records, touched_prices_are_ordered_sells_first_and_lowest_first) {
  decltype(Engine::dirty) dirty{{true, 100}, {false, 300}, {true, 50}, {false, 200}};
  const std::vector<std::pair<bool, Price4>> in_order(dirty.begin(), dirty.end());
  EXPECT_EQ(in_order, (std::vector<std::pair<bool, Price4>>{
                          {false, 200}, {false, 300}, {true, 50}, {true, 100}}));
}

}  // namespace
}  // namespace quorl
