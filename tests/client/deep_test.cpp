#include "quorl/client/deep.h"

#include <gtest/gtest.h>

#include <vector>

#include "quorl/client/errors.h"
#include "tests/client/hand_made.h"

namespace quorl::client {
namespace {

using hand_made::NOON;

TEST(Deep, a_level_update_is_read_field_by_field) {
  const Bytes bytes = {'8',  1,                                     // buy side, last
                       0x15, 0xcd, 0x5b, 0x07, 0,   0,   0,   0,    // 123456789 ns
                       'M',  'S',  'F',  'T',  ' ', ' ', ' ', ' ',  // symbol
                       0x2c, 1,    0,    0,                         // 300 shares
                       0x7c, 0xfd, 0x1c, 0,    0,   0,   0,   0};   // 189.99
  const auto update = std::get<LevelUpdate>(decode_deep(bytes));
  EXPECT_TRUE(update.buy);
  EXPECT_TRUE(update.last_of_event);
  EXPECT_EQ(update.timestamp_ns, 123456789u);
  EXPECT_EQ(update.symbol, "MSFT");
  EXPECT_EQ(update.size, 300u);
  EXPECT_EQ(update.price, 1899900);
  EXPECT_EQ(describe(DeepMessage(update)), "8 MSFT 300 @ 189.99 last");
}

TEST(Deep, a_sell_level_and_a_level_within_an_event_are_told_apart) {
  const auto update = std::get<LevelUpdate>(
      decode_deep(hand_made::level({.type = '5', .flags = 0, .size = 0, .price = -100})));
  EXPECT_FALSE(update.buy);
  EXPECT_FALSE(update.last_of_event);
  EXPECT_EQ(update.size, 0u);
  EXPECT_EQ(update.price, -100);
}

TEST(Deep, a_trade_report_is_read_field_by_field) {
  const Bytes bytes = {'T',  0,                                     // round lot
                       0x15, 0xcd, 0x5b, 0x07, 0,   0,   0,   0,    // 123456789 ns
                       'A',  'A',  'P',  'L',  ' ', ' ', ' ', ' ',  // symbol
                       100,  0,    0,    0,                         // 100 shares
                       0xe0, 0xfd, 0x1c, 0,    0,   0,   0,   0,    // 190
                       2,    1,    0,    0,    0,   0,   0,   0};   // trade 258
  const auto trade = std::get<TradeReport>(decode_deep(bytes));
  EXPECT_EQ(trade.symbol, "AAPL");
  EXPECT_EQ(trade.size, 100u);
  EXPECT_EQ(trade.price, 1900000);
  EXPECT_EQ(trade.trade_id, 258u);
}

TEST(Deep, every_type_is_recognised_with_its_symbol) {
  const std::vector<std::pair<Bytes, char>> messages = {
      {hand_made::system_event('O'), 'S'},
      {hand_made::directory("ABCDEFGH"), 'D'},
      {hand_made::trading_status("ABCDEFGH"), 'H'},
      {hand_made::status('O', 'N', "ABCDEFGH"), 'O'},
      {hand_made::short_sale("ABCDEFGH"), 'P'},
      {hand_made::status('I', ' ', "ABCDEFGH"), 'I'},
      {hand_made::status('E', 'O', "ABCDEFGH"), 'E'},
      {hand_made::level({.type = '8', .symbol = "ABCDEFGH"}), '8'},
      {hand_made::level({.type = '5', .symbol = "ABCDEFGH"}), '5'},
      {hand_made::trade({.symbol = "ABCDEFGH"}), 'T'}};
  for (const auto& [bytes, type] : messages) {
    SCOPED_TRACE(type);
    const DeepMessage message = decode_deep(bytes);
    EXPECT_EQ(type_of(message), type);
    EXPECT_EQ(symbol_of(message), type == 'S' ? "" : "ABCDEFGH");
  }
}

TEST(Deep, no_type_may_be_a_byte_shorter_or_longer) {
  for (Bytes bytes :
       {hand_made::system_event('O'), hand_made::directory("A"), hand_made::trading_status("A"),
        hand_made::status('O', 'N', "A"), hand_made::short_sale("A"),
        hand_made::status('I', ' ', "A"), hand_made::status('E', 'O', "A"), hand_made::level({}),
        hand_made::trade({})}) {
    SCOPED_TRACE(hex(bytes));
    EXPECT_NO_THROW(decode_deep(bytes));
    bytes.push_back(' ');
    EXPECT_THROW(decode_deep(bytes), WireError);
    bytes.resize(bytes.size() - 2);
    EXPECT_THROW(decode_deep(bytes), WireError);
  }
}

TEST(Deep, an_unknown_type_and_an_empty_message_are_refused) {
  EXPECT_THROW(decode_deep(hand_made::status('X', 'O', "A")), WireError);
  EXPECT_THROW(decode_deep({}), WireError);
}

struct Damage {
  const char* what;
  Bytes bytes;
  size_t at;
  uint8_t value;
};

TEST(Deep, each_constant_and_each_flag_is_held_to) {
  const std::vector<Damage> damages = {
      {"system event", hand_made::system_event('O'), 1, 'E'},
      {"directory flags", hand_made::directory("A"), 1, 1},
      {"round lot", hand_made::directory("A"), 18, 101},
      {"previous close off the cent", hand_made::directory("A"), 22, 0x01},
      {"LULD tier", hand_made::directory("A"), 30, 2},
      {"trading status", hand_made::trading_status("A"), 1, 'H'},
      {"reason", hand_made::trading_status("A"), 21, 0},
      {"halt status", hand_made::status('O', 'N', "A"), 1, 'O'},
      {"short sale status", hand_made::short_sale("A"), 1, 1},
      {"short sale detail", hand_made::short_sale("A"), 18, 'A'},
      {"retail indicator", hand_made::status('I', ' ', "A"), 1, 'A'},
      {"security event", hand_made::status('E', 'O', "A"), 1, 'C'},
      {"event flags", hand_made::level({}), 1, 2},
      {"odd-lot flag on 100 shares", hand_made::trade({.size = 100}), 1, 0x20},
      {"no odd-lot flag on 99 shares", hand_made::trade({.size = 99}), 1, 0},
      {"another sale condition", hand_made::trade({.size = 99}), 1, 0x60},
      {"a trade of nothing", hand_made::trade({.size = 99}), 18, 0},
      {"trade id 0", hand_made::trade({.id = 1}), 30, 0},
      {"a NUL as padding", hand_made::level({}), 17, 0},
      {"a symbol that goes on behind its padding", hand_made::level({}), 17, 'X'},
      {"a control character in a symbol", hand_made::level({}), 11, 7}};
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.what);
    EXPECT_NO_THROW(decode_deep(damage.bytes));
    Bytes bytes = damage.bytes;
    bytes.at(damage.at) = damage.value;
    EXPECT_THROW(decode_deep(bytes), WireError);
  }
}

TEST(Deep, a_timestamp_of_zero_is_refused) {
  EXPECT_THROW(decode_deep(hand_made::level({.at = 0})), WireError);
}

TEST(Deep, a_symbol_of_no_characters_is_all_padding) {
  EXPECT_EQ(symbol_of(decode_deep(hand_made::trading_status(""))), "");
}

TEST(Deep, prices_are_written_without_trailing_zeros) {
  EXPECT_EQ(price_text(1900000), "190");
  EXPECT_EQ(price_text(1899900), "189.99");
  EXPECT_EQ(price_text(1), "0.0001");
  EXPECT_EQ(price_text(0), "0");
  EXPECT_EQ(price_text(-100), "-0.01");
}

}  // namespace
}  // namespace quorl::client
