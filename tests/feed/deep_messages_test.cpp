#include "feed/deep_messages.h"

#include <gtest/gtest.h>

#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::hex;

constexpr uint64_t STAMP = 1'700'000'000'123'456'789;  // 15 CD 85 3D FE 9C 97 17 on the wire

template <typename Message>
Bytes encoded(const Message& message) {
  const auto bytes = encode(message);
  return {bytes.begin(), bytes.end()};
}

PriceLevelUpdate level_update() {
  return {.buy = true,
          .event_flags = 1,
          .timestamp_ns = STAMP,
          .symbol = std::string("AAPL"),
          .size = 300,
          .price = 1900150};
}

TradeReport trade_of(uint32_t size) {
  return {.timestamp_ns = STAMP,
          .symbol = std::string("AAPL"),
          .size = size,
          .price = 1900150,
          .trade_id = 0x0102030405060708};
}

TEST(DeepMessages, system_event) {
  EXPECT_EQ(encoded(SystemEvent{.event = 'O', .timestamp_ns = STAMP}),
            hex("53 4F 15 CD 85 3D FE 9C 97 17"));
  EXPECT_EQ(encoded(SystemEvent{.event = 'R', .timestamp_ns = STAMP}),
            hex("53 52 15 CD 85 3D FE 9C 97 17"));
}

TEST(DeepMessages, security_directory) {
  EXPECT_EQ(encoded(SecurityDirectory{.timestamp_ns = STAMP,
                                      .symbol = std::string("AAPL"),
                                      .adjusted_previous_close = 1900000}),
            hex("44 00 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 64 00 00 00"
                "E0 FD 1C 00 00 00 00 00 01"));
}

TEST(DeepMessages, trading_status) {
  EXPECT_EQ(
      encoded(TradingStatus{.status = 'T', .timestamp_ns = STAMP, .symbol = std::string("AAPL")}),
      hex("48 54 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 20 20 20 20"));
}

TEST(DeepMessages, operational_halt_status) {
  EXPECT_EQ(encoded(OperationalHaltStatus{.timestamp_ns = STAMP, .symbol = std::string("AAPL")}),
            hex("4F 4E 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"));
}

TEST(DeepMessages, short_sale_price_test_status) {
  EXPECT_EQ(encoded(ShortSalePriceTestStatus{.timestamp_ns = STAMP, .symbol = std::string("AAPL")}),
            hex("50 00 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 20"));
}

TEST(DeepMessages, retail_liquidity_indicator) {
  EXPECT_EQ(encoded(RetailLiquidityIndicator{.timestamp_ns = STAMP, .symbol = std::string("AAPL")}),
            hex("49 20 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"));
}

TEST(DeepMessages, security_event) {
  EXPECT_EQ(encoded(SecurityEvent{.timestamp_ns = STAMP, .symbol = std::string("AAPL")}),
            hex("45 4F 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"));
}

TEST(DeepMessages, price_level_update_of_the_buy_side) {
  EXPECT_EQ(encoded(level_update()), hex("38 01 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"
                                         "2C 01 00 00 76 FE 1C 00 00 00 00 00"));
}

TEST(DeepMessages, price_level_update_of_the_sell_side) {
  PriceLevelUpdate update = level_update();
  update.buy = false;
  update.event_flags = 0;
  update.size = 0xFFFFFFFF;
  update.price = -100;
  EXPECT_EQ(encoded(update), hex("35 00 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"
                                 "FF FF FF FF 9C FF FF FF FF FF FF FF"));
}

TEST(DeepMessages, trade_report_of_a_round_lot) {
  EXPECT_EQ(encoded(trade_of(100)),
            hex("54 00 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 64 00 00 00"
                "76 FE 1C 00 00 00 00 00 08 07 06 05 04 03 02 01"));
}

TEST(DeepMessages, trade_report_of_99_shares_is_marked_as_an_odd_lot) {
  EXPECT_EQ(encoded(trade_of(99)),
            hex("54 20 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 63 00 00 00"
                "76 FE 1C 00 00 00 00 00 08 07 06 05 04 03 02 01"));
}

TEST(DeepMessages, a_trade_of_over_100_shares_is_no_odd_lot_even_if_it_is_no_whole_number_of_lots) {
  EXPECT_EQ(encoded(trade_of(101))[1], 0);
  EXPECT_EQ(encoded(trade_of(1))[1], 0x20);
}

TEST(DeepMessages, a_symbol_of_eight_characters_fills_its_field_and_a_longer_one_is_cut) {
  EXPECT_EQ(encoded(SecurityEvent{.timestamp_ns = STAMP, .symbol = std::string("LONGSYMB")}),
            hex("45 4F 15 CD 85 3D FE 9C 97 17 4C 4F 4E 47 53 59 4D 42"));
  EXPECT_EQ(encoded(SecurityEvent{.timestamp_ns = STAMP, .symbol = std::string("LONGSYMBOL1")}),
            hex("45 4F 15 CD 85 3D FE 9C 97 17 4C 4F 4E 47 53 59 4D 42"));
}

}  // namespace
}  // namespace quorl
