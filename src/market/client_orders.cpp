#include "market/client_orders.h"

#include <algorithm>

namespace quorl {
namespace {

constexpr size_t MOST_CLOSED = 50000;
constexpr size_t CLOSED_SLOTS = 131072;  // a power of two, over twice as many
constexpr int64_t JUST_CLOSED_MS = 2000;

/// The low bits select the slot, so they have to depend on all of both texts.
uint64_t hash_of(const ClientOrderKey& key) {
  const std::hash<std::string_view> text_hash;
  return 31 * text_hash(key.cl_ord_id) + text_hash(key.owner);
}

ClientOrderKey key_of(const Order& order) { return {order.owner, order.cl_ord_id}; }

}  // namespace

LiveOrders::LiveOrders() : slots_(64) {}

RestingOrder* LiveOrders::find(const ClientOrderKey& key) const {
  const uint64_t hash = hash_of(key);
  for (size_t slot = home_of(hash); slots_[slot].order != nullptr; slot = next(slot)) {
    if (slots_[slot].hash == hash && quorl::key_of(*slots_[slot].order) == key) {
      return slots_[slot].order;
    }
  }
  return nullptr;
}

void LiveOrders::insert(RestingOrder& order) {
  if (2 * (size_ + 1) > slots_.size()) grow();
  place({hash_of(quorl::key_of(order)), &order});
  ++size_;
  ++count_for(order.owner);
}

void LiveOrders::erase(const RestingOrder& order) {
  size_t hole = home_of(hash_of(quorl::key_of(order)));
  while (slots_[hole].order != &order) {
    if (slots_[hole].order == nullptr) return;
    hole = next(hole);
  }
  // What stands behind the hole and would not be found past it moves up into it.
  for (size_t slot = next(hole); slots_[slot].order != nullptr; slot = next(slot)) {
    const size_t way_to_slot = (slot - home_of(slots_[slot].hash)) & (slots_.size() - 1);
    const size_t way_from_hole = (slot - hole) & (slots_.size() - 1);
    if (way_to_slot < way_from_hole) continue;
    slots_[hole] = slots_[slot];
    hole = slot;
  }
  slots_[hole] = {};
  --size_;
  --count_for(order.owner);
}

size_t LiveOrders::count_of(std::string_view owner) const {
  const auto count = count_by_owner_.find(owner);
  return count == count_by_owner_.end() ? 0 : count->second;
}

size_t& LiveOrders::count_for(const std::string& owner) {
  if (latest_count_ == nullptr || latest_count_->first != owner) {
    latest_count_ = &*count_by_owner_.try_emplace(owner, 0).first;
  }
  return latest_count_->second;
}

void LiveOrders::grow() {
  const std::vector<Slot> former = std::move(slots_);
  slots_.assign(2 * former.size(), {});
  for (const Slot& entry : former) {
    if (entry.order != nullptr) place(entry);
  }
}

void LiveOrders::place(const Slot& entry) {
  size_t slot = home_of(entry.hash);
  while (slots_[slot].order != nullptr) slot = next(slot);
  slots_[slot] = entry;
}

ClosedOrders::ClosedOrders() : slots_(CLOSED_SLOTS, FREE) {}

void ClosedOrders::note(const ClientOrderKey& key, uint64_t now_ms) {
  const uint64_t hash = hash_of(key);
  const size_t slot = slot_of(hash, key);
  if (slots_[slot] != FREE) {
    entries_[slots_[slot]].closed_ms = now_ms;
    return;
  }
  slots_[slot] = static_cast<uint32_t>(entries_.size());
  entries_.push_back({.hash = hash,
                      .closed_ms = now_ms,
                      .text_begin = text_.size(),
                      .owner_size = static_cast<uint32_t>(key.owner.size()),
                      .cl_ord_id_size = static_cast<uint32_t>(key.cl_ord_id.size())});
  text_.append(key.owner).append(key.cl_ord_id);
  if (entries_.size() > MOST_CLOSED) clear();
}

Closing ClosedOrders::closing_of(const ClientOrderKey& key, uint64_t now_ms) const {
  const std::optional<int64_t> age = age_ms(key, now_ms);
  if (!age) return Closing::UNKNOWN;
  return *age < JUST_CLOSED_MS ? Closing::JUST_NOW : Closing::LONG_AGO;
}

std::optional<int64_t> ClosedOrders::age_ms(const ClientOrderKey& key, uint64_t now_ms) const {
  const size_t slot = slot_of(hash_of(key), key);
  if (slots_[slot] == FREE) return std::nullopt;
  return static_cast<int64_t>(now_ms - entries_[slots_[slot]].closed_ms);
}

size_t ClosedOrders::slot_of(uint64_t hash, const ClientOrderKey& key) const {
  size_t slot = hash & (slots_.size() - 1);
  while (slots_[slot] != FREE) {
    const Entry& entry = entries_[slots_[slot]];
    if (entry.hash == hash && key_of(entry) == key) break;
    slot = (slot + 1) & (slots_.size() - 1);
  }
  return slot;
}

ClientOrderKey ClosedOrders::key_of(const Entry& entry) const {
  const std::string_view text = text_;
  return {text.substr(entry.text_begin, entry.owner_size),
          text.substr(entry.text_begin + entry.owner_size, entry.cl_ord_id_size)};
}

void ClosedOrders::clear() {
  std::fill(slots_.begin(), slots_.end(), FREE);
  entries_.clear();
  text_.clear();
}

}  // namespace quorl
