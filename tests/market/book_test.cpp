#include "market/book.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace quorl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr bool BUYS = true;
constexpr bool SELLS = false;
constexpr Price4 LOWEST = std::numeric_limits<Price4>::min();
constexpr Price4 HIGHEST_PRICE = std::numeric_limits<Price4>::max();

/// (price, shares), from the best on.
using Sizes = std::vector<std::pair<Price4, uint32_t>>;

/// A book and the orders that have been in it. Their ids count from 1.
class Desk {
 public:
  RestingOrder& rests(bool buy, Price4 price, uint32_t shares) {
    RestingOrder& order = orders_.emplace_back();
    order.id = orders_.size();
    order.buy = buy;
    order.price = price;
    order.leaves = shares;
    book.add(order);
    return order;
  }
  RestingOrder& buys(Price4 price, uint32_t shares = 100) { return rests(BUYS, price, shares); }
  RestingOrder& sells(Price4 price, uint32_t shares = 100) { return rests(SELLS, price, shares); }

  /// What the event has changed, "sell 100 @ 7" each. It has been published, and the event is over.
  std::vector<std::string> publishes() {
    std::vector<std::string> told;
    for (const LevelChange& change : book.changes()) told.push_back(words_of(change));
    for (size_t i = 0; i < told.size(); ++i) book.show_change(i);
    book.settle();
    return told;
  }
  /// The same of an event that is not over.
  std::vector<std::string> would_publish() {
    std::vector<std::string> told;
    for (const LevelChange& change : book.changes()) told.push_back(words_of(change));
    return told;
  }

  Price4 best_price(bool buy) const { return book.side(buy).best()->price; }
  bool is_empty(bool buy) const { return book.side(buy).best() == nullptr; }

  Sizes levels(bool buy) const {
    Sizes sizes;
    book.side(buy).for_each_level([&](const Level& level) {
      EXPECT_EQ(level.buy, buy);
      sizes.emplace_back(level.price, level.size());
      return true;
    });
    return sizes;
  }
  Sizes shown(bool buy) const {
    Sizes sizes;
    book.side(buy).for_each_shown([&](Price4 price, uint32_t size) {
      sizes.emplace_back(price, size);
      return true;
    });
    return sizes;
  }
  /// The ids, next to trade first.
  std::vector<uint64_t> queue(bool buy, Price4 price) const {
    std::vector<uint64_t> ids;
    const Level* const level = book.side(buy).level_at(price);
    if (level == nullptr) return ids;
    BookSide::for_each_order(*level, [&](const RestingOrder& order) { ids.push_back(order.id); });
    return ids;
  }

  Book book;

 private:
  static std::string words_of(const LevelChange& change) {
    return (change.buy ? "buy " : "sell ") + std::to_string(change.size) + " @ " +
           std::to_string(change.price);
  }

  std::deque<RestingOrder> orders_;
};

// --- What rests ---

TEST(Book, begins_with_nothing) {
  Desk desk;
  for (const bool buy : {BUYS, SELLS}) {
    EXPECT_EQ(desk.book.side(buy).best(), nullptr);
    EXPECT_EQ(desk.book.side(buy).depth(), 0U);
    EXPECT_EQ(desk.book.side(buy).level_at(0), nullptr);
    EXPECT_EQ(desk.book.level_size(buy, 0), 0U);
    EXPECT_THAT(desk.levels(buy), IsEmpty());
    EXPECT_THAT(desk.shown(buy), IsEmpty());
  }
  EXPECT_THAT(desk.publishes(), IsEmpty());
}

TEST(Book, has_the_highest_bid_and_the_lowest_offer_at_its_top) {
  Desk desk;
  for (const Price4 price : {102, 103, 101}) {
    desk.buys(price, static_cast<uint32_t>(price));
    desk.sells(price + 10, static_cast<uint32_t>(price));
  }
  EXPECT_EQ(desk.best_price(BUYS), 103);
  EXPECT_EQ(desk.best_price(SELLS), 111);
  EXPECT_THAT(desk.levels(BUYS), ElementsAre(Pair(103, 103), Pair(102, 102), Pair(101, 101)));
  EXPECT_THAT(desk.levels(SELLS), ElementsAre(Pair(111, 101), Pair(112, 102), Pair(113, 103)));
  EXPECT_EQ(desk.book.bids().depth(), 3U);
  EXPECT_EQ(desk.book.asks().depth(), 3U);
  EXPECT_EQ(&desk.book.side(BUYS), &desk.book.bids());
  EXPECT_EQ(&desk.book.side(SELLS), &desk.book.asks());
}

TEST(Book, keeps_the_sides_apart_at_one_price) {
  Desk desk;
  RestingOrder& bid = desk.buys(100, 30);
  desk.sells(100, 50);
  EXPECT_EQ(desk.book.level_size(BUYS, 100), 30U);
  EXPECT_EQ(desk.book.level_size(SELLS, 100), 50U);
  Book::remove(bid);
  EXPECT_EQ(desk.book.level_size(BUYS, 100), 0U);
  EXPECT_EQ(desk.book.level_size(SELLS, 100), 50U);
  EXPECT_EQ(desk.book.bids().depth(), 0U);
  EXPECT_EQ(desk.book.asks().depth(), 1U);
}

TEST(Book, ranks_prices_of_any_sign_and_size) {
  Desk desk;
  for (const Price4 price : {Price4{0}, LOWEST, Price4{-1}, HIGHEST_PRICE, Price4{1}}) {
    desk.buys(price, 1);
    desk.sells(price, 2);
  }
  EXPECT_THAT(desk.levels(BUYS), ElementsAre(Pair(HIGHEST_PRICE, 1), Pair(1, 1), Pair(0, 1),
                                             Pair(-1, 1), Pair(LOWEST, 1)));
  EXPECT_THAT(desk.levels(SELLS), ElementsAre(Pair(LOWEST, 2), Pair(-1, 2), Pair(0, 2), Pair(1, 2),
                                              Pair(HIGHEST_PRICE, 2)));
  EXPECT_EQ(desk.book.level_size(BUYS, LOWEST), 1U);
  EXPECT_EQ(desk.book.level_size(SELLS, -1), 2U);
  EXPECT_EQ(desk.book.side(BUYS).level_at(2), nullptr);
}

TEST(Book, ends_a_walk_of_the_levels_when_told_to) {
  Desk desk;
  for (const Price4 price : {1, 2, 3}) desk.sells(price);
  desk.publishes();
  std::vector<Price4> resting;
  desk.book.asks().for_each_level([&](const Level& level) {
    resting.push_back(level.price);
    return level.price != 2;
  });
  EXPECT_THAT(resting, ElementsAre(1, 2));
  std::vector<Price4> shown;
  desk.book.asks().for_each_shown([&](Price4 price, uint32_t) {
    shown.push_back(price);
    return price != 2;
  });
  EXPECT_THAT(shown, ElementsAre(1, 2));
}

// --- Time priority ---

TEST(Book, queues_the_orders_of_a_price_as_they_come) {
  Desk desk;
  for (int i = 0; i < 4; ++i) desk.sells(100);
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(desk.book.asks().best()->first->id, 1U);
  EXPECT_EQ(desk.book.asks().depth(), 1U);
}

TEST(Book, lets_an_order_leave_from_the_front_the_middle_and_the_back_of_its_queue) {
  Desk desk;
  std::vector<RestingOrder*> orders;
  for (uint32_t i = 0; i < 5; ++i) orders.push_back(&desk.sells(100, 1U << i));
  Book::remove(*orders[2]);
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(1, 2, 4, 5));
  EXPECT_EQ(desk.book.level_size(SELLS, 100), 1U + 2 + 8 + 16);
  EXPECT_EQ(desk.book.asks().depth(), 1U);
  Book::remove(*orders[0]);
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(2, 4, 5));
  EXPECT_EQ(desk.book.asks().best()->first->id, 2U);
  Book::remove(*orders[4]);
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(2, 4));
  EXPECT_EQ(desk.book.level_size(SELLS, 100), 2U + 8);
  desk.sells(100);
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(2, 4, 6));
  Book::remove(*orders[1]);
  Book::remove(*orders[3]);
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(6));
}

TEST(Book, puts_an_order_that_comes_again_last) {
  Desk desk;
  RestingOrder& first = desk.buys(100);
  desk.buys(100);
  Book::remove(first);
  desk.book.add(first);
  EXPECT_THAT(desk.queue(BUYS, 100), ElementsAre(2, 1));
}

TEST(Book, gives_an_order_another_size_at_its_place) {
  Desk desk;
  desk.buys(100, 10);
  RestingOrder& second = desk.buys(100, 20);
  desk.buys(100, 40);
  Book::set_leaves(second, 5);
  EXPECT_EQ(second.leaves, 5U);
  EXPECT_THAT(desk.queue(BUYS, 100), ElementsAre(1, 2, 3));
  EXPECT_EQ(desk.book.level_size(BUYS, 100), 55U);
  Book::set_leaves(second, 1000);
  EXPECT_EQ(desk.book.level_size(BUYS, 100), 1050U);
  Book::remove(second);
  EXPECT_EQ(desk.book.level_size(BUYS, 100), 50U);
}

// --- Levels that empty and fill again within one event ---

TEST(Book, passes_by_what_has_emptied_within_the_event) {
  for (const bool buy : {BUYS, SELLS}) {
    Desk desk;
    const Price4 worse = buy ? -1 : 1;
    std::vector<RestingOrder*> orders;
    for (int i = 0; i < 4; ++i) orders.push_back(&desk.rests(buy, 100 + i * worse, 10));
    desk.publishes();

    Book::remove(*orders[1]);
    EXPECT_EQ(desk.best_price(buy), 100);
    EXPECT_EQ(desk.book.side(buy).depth(), 3U);
    EXPECT_EQ(desk.book.side(buy).level_at(100 + worse), nullptr);
    EXPECT_EQ(desk.book.level_size(buy, 100 + worse), 0U);
    EXPECT_THAT(desk.levels(buy),
                ElementsAre(Pair(100, 10), Pair(100 + 2 * worse, 10), Pair(100 + 3 * worse, 10)));

    Book::remove(*orders[0]);
    EXPECT_EQ(desk.best_price(buy), 100 + 2 * worse) << "behind two that are empty";
    EXPECT_EQ(desk.book.side(buy).depth(), 2U);
    Book::remove(*orders[3]);
    EXPECT_EQ(desk.best_price(buy), 100 + 2 * worse);
    Book::remove(*orders[2]);
    EXPECT_TRUE(desk.is_empty(buy));
    EXPECT_EQ(desk.book.side(buy).depth(), 0U);
    EXPECT_THAT(desk.levels(buy), IsEmpty());
    EXPECT_EQ(desk.shown(buy).size(), 4U) << "nothing of it has been published";
  }
}

TEST(Book, sees_a_level_that_has_emptied_and_filled_again_within_the_event) {
  for (const bool buy : {BUYS, SELLS}) {
    Desk desk;
    const Price4 worse = buy ? -1 : 1;
    RestingOrder& best = desk.rests(buy, 100, 10);
    RestingOrder& second = desk.rests(buy, 100 + worse, 20);
    desk.publishes();

    Book::remove(best);
    Book::remove(second);
    desk.rests(buy, 100 + worse, 7);
    EXPECT_EQ(desk.best_price(buy), 100 + worse);
    desk.rests(buy, 100 + 2 * worse, 9);
    EXPECT_EQ(desk.best_price(buy), 100 + worse);
    EXPECT_EQ(desk.book.side(buy).depth(), 2U);
    desk.book.add(best);
    EXPECT_EQ(desk.best_price(buy), 100);
    EXPECT_EQ(desk.book.side(buy).depth(), 3U);
    desk.rests(buy, 100 - worse, 1);
    EXPECT_EQ(desk.best_price(buy), 100 - worse);
    EXPECT_THAT(desk.levels(buy), ElementsAre(Pair(100 - worse, 1), Pair(100, 10),
                                              Pair(100 + worse, 7), Pair(100 + 2 * worse, 9)));
    desk.publishes();
    EXPECT_EQ(desk.levels(buy), desk.shown(buy));
    EXPECT_EQ(desk.best_price(buy), 100 - worse);
  }
}

TEST(Book, takes_the_levels_that_have_emptied_away_when_the_event_is_over) {
  for (const bool buy : {BUYS, SELLS}) {
    Desk desk;
    const Price4 worse = buy ? -1 : 1;
    RestingOrder& best = desk.rests(buy, 100, 10);
    desk.rests(buy, 100 + worse, 20);
    RestingOrder& last = desk.rests(buy, 100 + 2 * worse, 30);
    desk.publishes();
    Book::remove(best);
    Book::remove(last);
    desk.publishes();
    EXPECT_EQ(desk.best_price(buy), 100 + worse);
    EXPECT_EQ(desk.book.side(buy).depth(), 1U);
    EXPECT_THAT(desk.shown(buy), ElementsAre(Pair(100 + worse, 20)));
    desk.rests(buy, 100 + 3 * worse, 40);
    desk.rests(buy, 100, 50);
    EXPECT_THAT(desk.levels(buy),
                ElementsAre(Pair(100, 50), Pair(100 + worse, 20), Pair(100 + 3 * worse, 40)));
  }
}

TEST(Book, begins_a_price_afresh_whose_level_had_gone) {
  Desk desk;
  RestingOrder& first = desk.sells(100, 10);
  desk.publishes();
  Book::remove(first);
  desk.publishes();
  desk.sells(100, 10);
  EXPECT_THAT(desk.shown(SELLS), IsEmpty());
  EXPECT_THAT(desk.queue(SELLS, 100), ElementsAre(2));
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 10 @ 100"));
}

// --- What an event has changed ---

TEST(Book, tells_changes_sells_first_and_lowest_first) {
  Desk desk;
  desk.buys(-3, 1);
  desk.sells(7, 2);
  desk.buys(5, 3);
  desk.sells(-2, 4);
  desk.buys(0, 5);
  desk.sells(9, 6);
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 4 @ -2", "sell 2 @ 7", "sell 6 @ 9", "buy 1 @ -3",
                                            "buy 5 @ 0", "buy 3 @ 5"));
  EXPECT_THAT(desk.publishes(), IsEmpty());
}

TEST(Book, tells_one_change_of_a_price_however_often_the_event_touches_it) {
  Desk desk;
  RestingOrder& first = desk.buys(100, 10);
  RestingOrder& second = desk.buys(100, 20);
  Book::set_leaves(first, 4);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 24 @ 100"));
  Book::set_leaves(first, 3);
  Book::remove(first);
  Book::remove(second);
  desk.buys(100, 6);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 6 @ 100"));
}

TEST(Book, tells_what_is_left_of_a_level_and_that_it_is_gone) {
  Desk desk;
  RestingOrder& first = desk.sells(100, 10);
  RestingOrder& second = desk.sells(100, 20);
  desk.publishes();
  Book::set_leaves(first, 1);
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 21 @ 100"));
  Book::remove(first);
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 20 @ 100"));
  Book::remove(second);
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 0 @ 100"));
  EXPECT_THAT(desk.publishes(), IsEmpty());
}

TEST(Book, says_nothing_of_a_level_that_appears_and_goes_within_one_event) {
  Desk desk;
  Book::remove(desk.buys(100));
  EXPECT_THAT(desk.publishes(), IsEmpty());
  RestingOrder& order = desk.buys(100);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 100 @ 100"));
  Book::remove(order);
  Book::remove(desk.sells(101));
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 0 @ 100"));
}

TEST(Book, says_nothing_of_a_total_that_is_as_it_was) {
  Desk desk;
  RestingOrder& first = desk.buys(100, 30);
  desk.buys(101, 40);
  desk.publishes();
  Book::set_leaves(first, 10);
  desk.buys(100, 20);
  desk.buys(101, 1);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 41 @ 101"));
}

TEST(Book, answers_the_same_until_it_changes_or_the_event_is_over) {
  Desk desk;
  desk.buys(100, 30);
  EXPECT_THAT(desk.would_publish(), ElementsAre("buy 30 @ 100"));
  EXPECT_THAT(desk.would_publish(), ElementsAre("buy 30 @ 100"));
  desk.sells(101, 5);
  EXPECT_THAT(desk.would_publish(), ElementsAre("sell 5 @ 101", "buy 30 @ 100"));
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 5 @ 101", "buy 30 @ 100"));
  EXPECT_THAT(desk.would_publish(), IsEmpty());
}

TEST(Book, shows_each_change_as_it_is_published) {
  Desk desk;
  RestingOrder& offer = desk.sells(101, 5);
  desk.buys(99, 7);
  desk.publishes();
  Book::remove(offer);
  desk.sells(102, 6);
  desk.buys(100, 8);
  ASSERT_THAT(desk.would_publish(), ElementsAre("sell 0 @ 101", "sell 6 @ 102", "buy 8 @ 100"));
  EXPECT_THAT(desk.shown(SELLS), ElementsAre(Pair(101, 5)));
  EXPECT_THAT(desk.shown(BUYS), ElementsAre(Pair(99, 7)));
  desk.book.show_change(0);
  EXPECT_THAT(desk.shown(SELLS), IsEmpty());
  desk.book.show_change(1);
  EXPECT_THAT(desk.shown(SELLS), ElementsAre(Pair(102, 6)));
  EXPECT_THAT(desk.shown(BUYS), ElementsAre(Pair(99, 7)));
  desk.book.show_change(2);
  EXPECT_THAT(desk.shown(BUYS), ElementsAre(Pair(100, 8), Pair(99, 7)));
  desk.book.settle();
  EXPECT_THAT(desk.shown(SELLS), ElementsAre(Pair(102, 6)));
}

TEST(Book, forgets_what_an_event_has_touched_when_it_is_over) {
  Desk desk;
  RestingOrder& order = desk.buys(100, 30);
  desk.book.settle();  // nothing has been published
  EXPECT_THAT(desk.publishes(), IsEmpty());
  Book::set_leaves(order, 20);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 20 @ 100"));
}

// --- Sizes as the wire has them ---

TEST(Book, cuts_sizes_to_32_bits) {
  Desk desk;
  desk.sells(100, 4294967295);
  desk.sells(100, 100);
  EXPECT_EQ(desk.book.level_size(SELLS, 100), 99U);
  EXPECT_EQ(desk.book.asks().best()->open, 4294967395U) << "which a fill-or-kill order counts by";
  EXPECT_THAT(desk.levels(SELLS), ElementsAre(Pair(100, 99)));
  EXPECT_THAT(desk.publishes(), ElementsAre("sell 99 @ 100"));
}

TEST(Book, shows_no_level_whose_size_is_cut_to_0_though_its_orders_rest) {
  Desk desk;
  RestingOrder& first = desk.buys(100, 0x80000000);
  desk.publishes();
  desk.buys(100, 0x80000000);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 0 @ 100"));
  EXPECT_THAT(desk.shown(BUYS), IsEmpty());
  EXPECT_EQ(desk.best_price(BUYS), 100);
  EXPECT_EQ(desk.book.bids().depth(), 1U);
  EXPECT_THAT(desk.queue(BUYS, 100), ElementsAre(1, 2));
  desk.buys(100, 5);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 5 @ 100"));
  Book::remove(first);
  EXPECT_THAT(desk.publishes(), ElementsAre("buy 2147483653 @ 100"));
}

TEST(Book, says_nothing_of_a_change_by_a_multiple_of_2_to_the_32) {
  Desk desk;
  desk.buys(100, 7);
  desk.publishes();
  desk.buys(100, 0x80000000);
  desk.buys(100, 0x80000000);
  EXPECT_THAT(desk.publishes(), IsEmpty());
}

// --- Several books ---

TEST(Book, takes_an_order_out_of_the_book_that_it_is_in) {
  Desk apple;
  Desk other;
  RestingOrder& leaver = apple.buys(100, 30);
  RestingOrder& stayer = other.buys(100, 40);
  apple.publishes();
  other.publishes();
  Book::remove(leaver);
  EXPECT_TRUE(apple.is_empty(BUYS));
  EXPECT_EQ(other.book.level_size(BUYS, 100), 40U);
  EXPECT_THAT(other.publishes(), IsEmpty());
  EXPECT_THAT(apple.publishes(), ElementsAre("buy 0 @ 100"));

  other.book.add(leaver);
  Book::set_leaves(leaver, 1);
  Book::set_leaves(stayer, 2);
  EXPECT_THAT(other.queue(BUYS, 100), ElementsAre(stayer.id, leaver.id));
  EXPECT_THAT(apple.publishes(), IsEmpty());
  EXPECT_THAT(other.publishes(), ElementsAre("buy 3 @ 100"));
}

// --- Any history ---

/// What a book has to be, looked through from end to end at every question.
class NaiveBook {
 public:
  void add(RestingOrder& order) { queues_[order.buy][order.price].push_back(&order); }
  void remove(RestingOrder& order) {
    std::deque<RestingOrder*>& queue = queues_[order.buy][order.price];
    std::erase(queue, &order);
    if (queue.empty()) queues_[order.buy].erase(order.price);
  }

  /// By price, lowest first.
  std::map<Price4, uint32_t> sizes(bool buy) const {
    std::map<Price4, uint32_t> sizes;
    for (const auto& [price, queue] : queues_[buy]) {
      for (const RestingOrder* order : queue) sizes[price] += order->leaves;
    }
    return sizes;
  }
  std::vector<uint64_t> queue(bool buy, Price4 price) const {
    std::vector<uint64_t> ids;
    const auto queue = queues_[buy].find(price);
    if (queue == queues_[buy].end()) return ids;
    for (const RestingOrder* order : queue->second) ids.push_back(order->id);
    return ids;
  }
  const std::map<Price4, uint32_t>& shown(bool buy) const { return shown_[buy]; }
  void show(bool buy, Price4 price, uint32_t size) {
    shown_[buy].erase(price);
    if (size != 0) shown_[buy][price] = size;
  }

  std::vector<LevelChange> changes() const {
    std::vector<LevelChange> changes;
    for (const bool buy : {SELLS, BUYS}) {
      std::map<Price4, uint32_t> now = sizes(buy);
      for (const auto& [price, size] : shown_[buy]) now.try_emplace(price, 0U);
      for (const auto& [price, size] : now) {
        const auto shown = shown_[buy].find(price);
        if (size != (shown == shown_[buy].end() ? 0 : shown->second)) {
          changes.push_back({buy, price, size});
        }
      }
    }
    return changes;
  }

 private:
  std::map<Price4, std::deque<RestingOrder*>> queues_[2];  // of sells, of buys
  std::map<Price4, uint32_t> shown_[2];
};

Sizes from_the_best(bool buy, const std::map<Price4, uint32_t>& sizes) {
  return buy ? Sizes(sizes.rbegin(), sizes.rend()) : Sizes(sizes.begin(), sizes.end());
}

bool operator==(const LevelChange& a, const LevelChange& b) {
  return a.buy == b.buy && a.price == b.price && a.size == b.size;
}

class BookTwins {
 public:
  explicit BookTwins(uint64_t seed) : rng_(seed) {}

  /// One event of several steps, looked at after each.
  void lives_through_an_event() {
    for (uint64_t step = 1 + rng_() % 8; step-- != 0;) {
      changes_something();
      ASSERT_NO_FATAL_FAILURE(expect_same_book());
    }
    const std::vector<LevelChange> expected = naive_.changes();
    const std::vector<LevelChange> told = desk_.book.changes();
    ASSERT_EQ(told.size(), expected.size());
    for (size_t i = 0; i < told.size(); ++i) {
      ASSERT_TRUE(told[i] == expected[i]) << "change " << i;
      desk_.book.show_change(i);
      naive_.show(told[i].buy, told[i].price, told[i].size);
      ASSERT_NO_FATAL_FAILURE(expect_same_shown());
    }
    desk_.book.settle();
    ASSERT_NO_FATAL_FAILURE(expect_same_book());
    ASSERT_NO_FATAL_FAILURE(expect_same_shown());
  }

 private:
  static constexpr Price4 FARTHEST = 6;

  /// Mostly few, so that totals come back; at times half of what 32 bits hold.
  uint32_t some_shares() {
    return rng_() % 16 == 0 ? 0x80000000U : static_cast<uint32_t>(1 + rng_() % 3);
  }

  void changes_something() {
    const uint64_t draw = rng_() % 100;
    if (resting_.empty() || (draw < 45 && resting_.size() < 25)) {
      const Price4 price = static_cast<Price4>(rng_() % (2 * FARTHEST + 1)) - FARTHEST;
      resting_.push_back(&desk_.rests(rng_() % 2 == 0, price, some_shares()));
      naive_.add(*resting_.back());
      return;
    }
    const size_t at = rng_() % resting_.size();
    RestingOrder& order = *resting_[at];
    if (draw < 60) {
      Book::set_leaves(order, some_shares());
      return;
    }
    Book::remove(order);
    naive_.remove(order);
    if (draw < 65) {
      desk_.book.add(order);
      naive_.add(order);
      return;
    }
    resting_[at] = resting_.back();
    resting_.pop_back();
  }

  void expect_same_book() const {
    for (const bool buy : {BUYS, SELLS}) {
      const std::map<Price4, uint32_t> sizes = naive_.sizes(buy);
      const BookSide& side = desk_.book.side(buy);
      ASSERT_EQ(desk_.levels(buy), from_the_best(buy, sizes));
      ASSERT_EQ(side.depth(), sizes.size());
      ASSERT_EQ(side.best() == nullptr, sizes.empty());
      if (!sizes.empty()) {
        ASSERT_EQ(side.best()->price, from_the_best(buy, sizes).front().first);
      }
      for (Price4 price = -FARTHEST; price <= FARTHEST; ++price) {
        const auto size = sizes.find(price);
        ASSERT_EQ(side.level_at(price) != nullptr, size != sizes.end()) << price;
        ASSERT_EQ(desk_.book.level_size(buy, price), size == sizes.end() ? 0 : size->second);
        ASSERT_EQ(desk_.queue(buy, price), naive_.queue(buy, price)) << price;
      }
    }
  }
  void expect_same_shown() const {
    for (const bool buy : {BUYS, SELLS}) {
      ASSERT_EQ(desk_.shown(buy), from_the_best(buy, naive_.shown(buy)));
    }
  }

  std::mt19937_64 rng_;
  Desk desk_;
  NaiveBook naive_;
  std::vector<RestingOrder*> resting_;
};

TEST(Book, is_what_a_book_has_to_be_after_any_history) {
  for (uint64_t seed = 1; seed <= 8; ++seed) {
    BookTwins twins(seed);
    for (int event = 0; event < 150; ++event) {
      twins.lives_through_an_event();
      if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << ", event " << event;
    }
  }
}

}  // namespace
}  // namespace quorl
