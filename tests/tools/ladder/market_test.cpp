#include "tools/ladder/market.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ladder {
namespace {

namespace client = quorl::client;
using testing::ElementsAre;
using testing::Pair;

class MarketTest : public testing::Test {
 protected:
  void trades(client::Price4 price, uint32_t size = 100, const std::string& symbol = "AAPL") {
    market.apply(client::TradeReport{.timestamp_ns = 1000,
                                     .symbol = symbol,
                                     .size = size,
                                     .price = price,
                                     .trade_id = ++trade_id});
  }
  void level(bool buy, client::Price4 price, uint32_t size) {
    market.apply(update(buy, price, size));
  }
  static client::LevelUpdate update(bool buy, client::Price4 price, uint32_t size) {
    return {.buy = buy,
            .last_of_event = true,
            .timestamp_ns = 1000,
            .symbol = "AAPL",
            .size = size,
            .price = price};
  }
  const SymbolState& aapl() const { return *market.find("AAPL"); }
  std::vector<Tick> ticks() const {
    std::vector<Tick> all;
    for (const Trade& trade : aapl().trades) all.push_back(trade.tick);
    return all;
  }

  Market market;
  uint64_t trade_id = 0;
};

TEST_F(MarketTest, a_level_update_replaces_the_size_and_zero_takes_the_level_away) {
  level(true, 1899900, 300);
  level(true, 1899800, 100);
  level(true, 1899900, 500);
  level(false, 1900100, 200);
  EXPECT_THAT(aapl().bids, ElementsAre(Pair(1899900, 500), Pair(1899800, 100)));
  EXPECT_EQ(aapl().spread(), 200);
  level(false, 1900100, 0);
  EXPECT_TRUE(aapl().asks.empty());
  EXPECT_EQ(aapl().spread(), std::nullopt);
}

TEST_F(MarketTest, the_direction_of_a_trade_is_that_of_the_last_change_of_price) {
  for (const client::Price4 price : {100, 100, 101, 101, 99, 99, 100}) trades(price);
  EXPECT_THAT(ticks(), ElementsAre(Tick::UP, Tick::DOWN, Tick::DOWN, Tick::UP, Tick::UP, Tick::NONE,
                                   Tick::NONE))
      << "the latest first";
}

TEST_F(MarketTest, directions_of_two_symbols_have_nothing_to_do_with_each_other) {
  trades(100);
  trades(500, 100, "SPY");
  trades(101);
  EXPECT_THAT(ticks(), ElementsAre(Tick::UP, Tick::NONE));
  EXPECT_EQ(market.find("SPY")->trades.front().tick, Tick::NONE);
}

TEST_F(MarketTest, volume_counts_all_trades_and_the_list_keeps_the_latest) {
  for (int i = 0; i < 1000; ++i) trades(100 + i, 7);
  EXPECT_EQ(aapl().volume, 7000u);
  EXPECT_EQ(aapl().trades.size(), SymbolState::TRADES_KEPT);
  EXPECT_EQ(aapl().trades.front().price, 1099);
}

TEST_F(MarketTest, symbols_stand_in_the_order_in_which_the_feed_names_them) {
  for (const char* symbol : {"SPY", "AAPL", "MSFT", "AAPL"}) {
    market.apply(client::SecurityDirectory{.timestamp_ns = 5, .symbol = symbol});
  }
  EXPECT_THAT(market.symbols(), ElementsAre("SPY", "AAPL", "MSFT"));
  EXPECT_EQ(market.find("QQQ"), nullptr);
  EXPECT_EQ(market.since_ns(), 5u);
}

TEST_F(MarketTest, an_image_begins_the_levels_anew_and_leaves_trades_and_volume) {
  level(true, 1899900, 300);
  level(false, 1900100, 300);
  trades(1900000);
  client::SnapImage image;
  image.messages = {client::SecurityDirectory{.timestamp_ns = 1, .symbol = "AAPL"},
                    client::SystemEvent{.event = 'R', .timestamp_ns = 1},
                    update(true, 1899700, 400)};
  market.apply_image(image);
  EXPECT_THAT(aapl().bids, ElementsAre(Pair(1899700, 400)));
  EXPECT_TRUE(aapl().asks.empty());
  EXPECT_EQ(aapl().volume, 100u);
  EXPECT_EQ(aapl().trades.size(), 1u);
}

}  // namespace
}  // namespace ladder
