#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <vector>

#include "market/order_table.h"

// The book of one stock, client and synthetic orders together, and what the feed was last shown of
// it. The queues, the sizes and the shown sizes can only change together, by these classes.

namespace quorl {

class Book;

/// The orders resting at one price of one side, in time priority, linked through the orders
/// themselves: a queue holds an order exactly as long as the order rests there.
struct Level {
  Book* book;
  bool buy;
  Price4 price;
  RestingOrder* first = nullptr;  // next to trade; null if none rests here now
  RestingOrder* last = nullptr;
  uint64_t open = 0;     // shares of all its orders
  uint32_t shown = 0;    // shares, as last published; 0 if the feed does not show the price
  bool touched = false;  // by the present event

  bool is_empty() const { return first == nullptr; }
  /// As the feed has it: cut to 32 bits.
  uint32_t size() const { return static_cast<uint32_t>(open); }
};

/// A level whose size is no longer what the feed shows.
struct LevelChange {
  bool buy;
  Price4 price;
  uint32_t size;  // shares, now; 0 means the level is gone
};

/// One side's levels. A level that has emptied stays, unseen, until the event is published.
class BookSide {
 public:
  BookSide(Book& book, bool buy) : book_(&book), buy_(buy), best_(levels_.end()) {}
  BookSide(const BookSide&) = delete;
  BookSide& operator=(const BookSide&) = delete;

  /// The best level that is not empty, or null.
  const Level* best() const { return best_ == levels_.end() ? nullptr : &best_->second; }
  /// Levels that are not empty.
  size_t depth() const { return depth_; }
  /// Null if the price has no level, or an empty one.
  const Level* level_at(Price4 price) const;

  /// From the best on; `visit` takes a const Level& and returns false to end.
  template <typename Visit>
  void for_each_level(const Visit& visit) const {
    for (auto at = best_; at != levels_.end(); ++at) {
      if (!at->second.is_empty() && !visit(at->second)) return;
    }
  }
  /// The levels that the feed shows, from the best on; `visit` takes price and size, and returns
  /// false to end.
  template <typename Visit>
  void for_each_shown(const Visit& visit) const {
    for (const auto& [rank, level] : levels_) {
      if (level.shown != 0 && !visit(level.price, level.shown)) return;
    }
  }

  /// The level's orders, next to trade first; `visit` takes a const RestingOrder&.
  template <typename Visit>
  static void for_each_order(const Level& level, const Visit& visit) {
    for (const RestingOrder* order = level.first; order != nullptr; order = order->behind_) {
      visit(*order);
    }
  }

 private:
  friend class Book;

  /// Rises from the best price to the worst.
  using Rank = Price4;
  using Levels = std::map<Rank, Level>;

  Rank rank_of(Price4 price) const { return buy_ ? ~price : price; }
  static Level& level_of(RestingOrder& order) { return *order.level_; }

  void add(RestingOrder& order);
  void remove(RestingOrder& order);
  void erase(const Level& level);

  Book* book_;
  bool buy_;
  Levels levels_;
  Levels::iterator best_;  // the first that is not empty
  size_t depth_ = 0;
  std::vector<Levels::node_type> spare_;  // of erased levels, for their memory
};

/// Both sides, and what the present event has touched.
class Book {
 public:
  Book() : bids_(*this, true), asks_(*this, false) {}

  const BookSide& side(bool buy) const { return buy ? bids_ : asks_; }
  const BookSide& bids() const { return bids_; }
  const BookSide& asks() const { return asks_; }

  /// Open shares at one price, cut to 32 bits; 0 without a level.
  uint32_t level_size(bool buy, Price4 price) const;

  /// Puts the order last into the queue at its price. REQUIRES: it is in no queue.
  void add(RestingOrder& order);
  /// Takes the order out of its queue, in whichever book that is. REQUIRES: it is in one.
  static void remove(RestingOrder& order);
  /// Gives the order another open size at its place in its queue. REQUIRES: it is in one.
  static void set_leaves(RestingOrder& order, uint32_t leaves);

  /// What the event has changed of what the feed shows: sells first, lowest price first within a
  /// side. Good until the book changes.
  const std::vector<LevelChange>& changes();
  /// This one of the changes has been published.
  void show_change(size_t index) { changed_[index]->shown = changes_[index].size; }
  /// The event is over.
  void settle();

 private:
  BookSide& side_of(bool buy) { return buy ? bids_ : asks_; }
  void touch(Level& level);

  BookSide bids_;
  BookSide asks_;
  std::vector<Level*> touched_;  // each once
  std::vector<LevelChange> changes_;
  std::vector<Level*> changed_;  // of each change
};

}  // namespace quorl
