#include "quorl/client/book.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/hand_made.h"

namespace quorl::client {
namespace {

using hand_made::NOON;

class BookTest : public testing::Test {
 protected:
  void shows(const hand_made::Level& level) { book.apply(decode_deep(hand_made::level(level))); }
  void trades(const hand_made::Trade& trade) { book.apply(decode_deep(hand_made::trade(trade))); }

  BookBuilder book;
};

TEST_F(BookTest, an_update_replaces_the_size_at_its_price_and_zero_removes_it) {
  shows({.size = 300});
  shows({.size = 500});
  shows({.type = '5', .size = 200, .price = 1900000});
  EXPECT_EQ(book.book("AAPL").bids.at(1899900), 500u);
  EXPECT_EQ(book.book("AAPL").asks.at(1900000), 200u);
  shows({.size = 0});
  EXPECT_TRUE(book.book("AAPL").bids.empty());
}

TEST_F(BookTest, each_symbol_has_its_own_book_and_an_unknown_one_is_empty) {
  shows({.symbol = "AAPL"});
  shows({.symbol = "MSFT", .size = 100});
  EXPECT_EQ(book.book("MSFT").bids.at(1899900), 100u);
  EXPECT_TRUE(book.book("SPY").bids.empty());
}

TEST_F(BookTest, it_is_consistent_only_behind_the_last_update_of_an_event) {
  EXPECT_TRUE(book.consistent());
  trades({.id = 1});
  EXPECT_FALSE(book.consistent());
  shows({.type = '5', .flags = 0, .price = 1900000});
  EXPECT_FALSE(book.consistent());
  shows({.flags = 1});
  EXPECT_TRUE(book.consistent());
}

TEST_F(BookTest, trades_add_up_to_the_volume_and_set_the_last_price) {
  trades({.id = 1, .size = 100, .price = 1900000});
  trades({.id = 2, .size = 50, .price = 1900100});
  EXPECT_EQ(book.book("AAPL").volume, 150u);
  EXPECT_EQ(book.book("AAPL").last_price, 1900100);
  EXPECT_EQ(book.book("AAPL").trades.size(), 2u);
  EXPECT_EQ(book.last_trade_id(), 2u);
}

TEST_F(BookTest, an_update_that_changes_nothing_is_refused) {
  shows({.size = 300});
  EXPECT_THROW(shows({.size = 300}), WireError);
}

TEST_F(BookTest, the_removal_of_a_level_that_is_not_shown_is_refused) {
  EXPECT_THROW(shows({.size = 0}), WireError);
}

TEST_F(BookTest, trade_numbers_must_rise_by_one_across_symbols) {
  trades({.id = 1});
  shows({});
  EXPECT_NO_THROW(
      BookBuilder(book).apply(decode_deep(hand_made::trade({.id = 2, .symbol = "MSFT"}))));
  EXPECT_THROW(trades({.id = 3, .symbol = "MSFT"}), WireError);
}

TEST_F(BookTest, an_event_keeps_to_one_symbol_and_one_time) {
  shows({.flags = 0});
  EXPECT_THROW(
      BookBuilder(book).apply(decode_deep(hand_made::level({.symbol = "MSFT", .price = 1899800}))),
      WireError);
  EXPECT_THROW(
      BookBuilder(book).apply(decode_deep(hand_made::level({.price = 1900000, .at = NOON + 1}))),
      WireError);
  EXPECT_NO_THROW(shows({.price = 1900000}));
}

TEST_F(BookTest, updates_of_an_event_run_through_the_offers_and_then_the_bids_by_rising_price) {
  shows({.type = '5', .flags = 0, .price = 1900000});
  shows({.type = '5', .flags = 0, .price = 1900100});
  shows({.type = '8', .flags = 0, .price = 1899800});
  shows({.type = '8', .flags = 1, .price = 1899900});
  EXPECT_TRUE(book.consistent());
}

TEST_F(BookTest, updates_of_an_event_out_of_order_are_refused) {
  shows({.type = '8', .flags = 0, .price = 1899900});
  EXPECT_THROW(shows({.type = '5', .flags = 1, .price = 1900000}), WireError);
  EXPECT_THROW(shows({.type = '8', .flags = 1, .price = 1899800}), WireError);
  EXPECT_THROW(shows({.type = '8', .flags = 1, .size = 1, .price = 1899900}), WireError);
}

TEST_F(BookTest, a_trade_behind_the_updates_of_its_event_is_refused) {
  shows({.flags = 0});
  EXPECT_THROW(trades({.id = 1}), WireError);
}

TEST_F(BookTest, a_status_inside_an_event_is_refused_and_outside_it_is_passed_over) {
  EXPECT_NO_THROW(book.apply(decode_deep(hand_made::system_event('O'))));
  shows({.flags = 0});
  EXPECT_THROW(book.apply(decode_deep(hand_made::system_event('S'))), WireError);
}

TEST_F(BookTest, an_image_replaces_all_levels_and_the_next_trade_may_have_any_higher_number) {
  trades({.id = 1});
  shows({.price = 1899900});
  book.begin_image();
  EXPECT_TRUE(book.book("AAPL").bids.empty());
  book.apply_image(decode_deep(hand_made::trading_status("AAPL")));
  book.apply_image(decode_deep(hand_made::level({.size = 700, .price = 1899800})));
  EXPECT_EQ(book.book("AAPL").bids, (BidLevels{{1899800, 700}}));
  trades({.id = 9});
  shows({.size = 100, .price = 1899800});
  EXPECT_THROW(trades({.id = 11}), WireError);
}

TEST_F(BookTest, books_compare_by_their_levels_and_an_empty_book_equals_none) {
  BookBuilder other = book;
  shows({.symbol = "AAPL", .size = 300});
  EXPECT_NE(compare_levels(book.books(), other.books()), "");
  EXPECT_NE(compare_levels(other.books(), book.books()), "");
  EXPECT_EQ(compare_levels(book.books(), book.books()), "");
  shows({.symbol = "AAPL", .size = 0});
  EXPECT_EQ(compare_levels(book.books(), other.books()), "");
}

}  // namespace
}  // namespace quorl::client
