#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "market/records.h"

namespace quorl {

struct Level;

/// An order that rests, with its places in the table of orders and in the queue of its level.
/// `leaves` is changed by its Book only, which keeps the sizes with it.
struct RestingOrder : Order {
 private:
  friend class OrderTable;
  friend class BookSide;

  RestingOrder* next_ = nullptr;  // in the table's order; of a spare record, the next spare one
  uint32_t bucket_ = 0;
  uint64_t bucket_stamp_ = 0;  // when the bucket became occupied
  uint64_t stamp_ = 0;         // when the order came

  Level* level_ = nullptr;  // null while in no queue
  RestingOrder* ahead_ = nullptr;
  RestingOrder* behind_ = nullptr;
};

/// Every order that rests, of clients and of the market itself, by id. Owns the records, whose
/// addresses are good until they are erased.
///
/// Its iteration order is part of what a seed reproduces: the walk draws the background order to
/// pull by its position in it. It is the order of a chained hash table whose bucket is the id
/// modulo the count of buckets, and in which all chains are one list: an order that comes into an
/// empty bucket goes to the front of the whole list, one that comes into an occupied bucket goes to
/// the front of that bucket's run. The buckets are as many as in BUCKET_COUNTS: 13 from the first
/// order on, more as soon as there would be more orders than buckets, and never fewer again;
/// growing goes through the list from its front and inserts each order anew, by the same rule, into
/// an empty list.
///
/// So the list is in descending order of (when its bucket became occupied, when the order came). By
/// these two stamps the background orders of each stock are kept in order beside the list, and no
/// draw looks through it.
class OrderTable {
 public:
  /// One until the first order, then 13, then of a list of primes the least that is at least twice
  /// the one before. Behind the last one the table stays as it is, and only its chains grow.
  static constexpr std::array<uint32_t, 29> BUCKET_COUNTS = {
      1,         13,        29,        59,         127,       257,      541,      1109,
      2357,      5087,      10273,     20753,      42043,     85229,    172933,   351061,
      712697,    1447153,   2938679,   5967347,    12117689,  24607243, 49969847, 101473717,
      206062531, 418451333, 849749479, 1725587117, 3504151727};

  OrderTable();
  OrderTable(const OrderTable&) = delete;
  OrderTable& operator=(const OrderTable&) = delete;

  /// Copies the order in. REQUIRES: its id is not in the table.
  RestingOrder& insert(const Order& order);
  /// The reference is dead afterwards. REQUIRES: the order is in no queue.
  void erase(RestingOrder& order);

  size_t size() const { return size_; }
  bool contains(uint64_t id) const { return find(id) != nullptr; }
  /// Null if the id is not in the table.
  const RestingOrder* find(uint64_t id) const;

  /// The orders without an owner with this locate, in the order of the iteration.
  size_t background_count(uint16_t locate) const;
  /// REQUIRES: index below background_count.
  RestingOrder& background_order(uint16_t locate, size_t index) const;

  /// In the order of the iteration; `visit` takes a const RestingOrder& and changes nothing.
  template <typename Visit>
  void for_each(const Visit& visit) const {
    for (const RestingOrder* order = first_; order != nullptr; order = order->next_) visit(*order);
  }

 private:
  /// The stamps beside the order, so that a search looks at nothing else.
  struct BackgroundEntry {
    uint64_t bucket_stamp;
    uint64_t stamp;
    RestingOrder* order;

    friend bool operator<(const BackgroundEntry& a, const BackgroundEntry& b) {
      return a.bucket_stamp != b.bucket_stamp ? a.bucket_stamp < b.bucket_stamp : a.stamp < b.stamp;
    }
  };
  using BackgroundOrders = std::vector<BackgroundEntry>;  // the front of the iteration last

  RestingOrder& take_spare();
  void grow();
  void link(RestingOrder& order);
  void unlink(RestingOrder& order);
  RestingOrder* front_of(uint32_t bucket) const;
  BackgroundOrders& background_of(const Order& order);
  static BackgroundEntry entry_of(RestingOrder& order);

  // The pointer to each occupied bucket's first order: in the order in front of it, or first_.
  std::vector<RestingOrder**> buckets_;
  RestingOrder* first_ = nullptr;
  size_t size_ = 0;
  uint64_t last_stamp_ = 0;
  std::vector<BackgroundOrders> background_;  // by locate

  static constexpr size_t SLAB_SIZE = 64;
  std::vector<std::unique_ptr<std::array<RestingOrder, SLAB_SIZE>>> slabs_;
  RestingOrder* spare_ = nullptr;
};

}  // namespace quorl
