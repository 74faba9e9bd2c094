#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/string_hash.h"
#include "market/order_table.h"

// What is remembered of clients' orders: by which name each is live, and which names have lately
// closed.

namespace quorl {

/// A client's name for its order. Borrows both.
struct ClientOrderKey {
  std::string_view owner;
  std::string_view cl_ord_id;

  friend bool operator==(const ClientOrderKey&, const ClientOrderKey&) = default;
};

/// How an order that is not live left the book, as far as that is remembered.
enum class Closing {
  JUST_NOW,  // less than 2000 ms ago
  LONG_AGO,
  UNKNOWN,
};

/// The resting orders of clients by their names, and how many each owner has.
class LiveOrders {
 public:
  LiveOrders();
  LiveOrders(const LiveOrders&) = delete;
  LiveOrders& operator=(const LiveOrders&) = delete;

  size_t size() const { return size_; }
  /// Null if the name is not live.
  RestingOrder* find(const ClientOrderKey& key) const;
  bool contains(const ClientOrderKey& key) const { return find(key) != nullptr; }

  /// Enters the order under its owner and ClOrdID, which may not change while it is here.
  /// REQUIRES: the name is not live.
  void insert(RestingOrder& order);
  /// Does nothing if the order is not here.
  void erase(const RestingOrder& order);

  /// Resting orders of one owner.
  size_t count_of(std::string_view owner) const;

  /// In no order; `visit` takes a const RestingOrder&.
  template <typename Visit>
  void for_each(const Visit& visit) const {
    for (const Slot& slot : slots_) {
      if (slot.order != nullptr) visit(*slot.order);
    }
  }

 private:
  struct Slot {
    uint64_t hash = 0;
    RestingOrder* order = nullptr;  // null in a slot that is free
  };

  size_t home_of(uint64_t hash) const { return hash & (slots_.size() - 1); }
  size_t next(size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  void grow();
  void place(const Slot& entry);
  size_t& count_for(const std::string& owner);

  std::vector<Slot> slots_;  // open addressing, a power of two, at most half of it taken
  size_t size_ = 0;
  using Counts = std::unordered_map<std::string, size_t, StringHash, std::equal_to<>>;
  Counts count_by_owner_;
  Counts::value_type* latest_count_ = nullptr;  // one owner's orders tend to come together
};

/// When names closed. At more than 50000 of them all are forgotten, the newest too.
class ClosedOrders {
 public:
  ClosedOrders();

  /// A name that has closed before has closed anew.
  void note(const ClientOrderKey& key, uint64_t now_ms);
  Closing closing_of(const ClientOrderKey& key, uint64_t now_ms) const;
  /// How long ago the name closed; nothing if that is not remembered.
  std::optional<int64_t> age_ms(const ClientOrderKey& key, uint64_t now_ms) const;
  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    uint64_t hash;
    uint64_t closed_ms;  // steady clock
    size_t text_begin;   // the owner and the ClOrdID, one behind the other
    uint32_t owner_size;
    uint32_t cl_ord_id_size;
  };
  static constexpr uint32_t FREE = 0xffffffff;

  /// The slot that holds the key's entry, or the free one where it would go.
  size_t slot_of(uint64_t hash, const ClientOrderKey& key) const;
  ClientOrderKey key_of(const Entry& entry) const;
  void clear();

  std::vector<uint32_t> slots_;  // indices of entries, open addressing; never more than half taken
  std::vector<Entry> entries_;
  std::string text_;
};

}  // namespace quorl
