#include "market/order_table.h"

#include <algorithm>

namespace quorl {
OrderTable::OrderTable() : buckets_(BUCKET_COUNTS.front()) {}

RestingOrder& OrderTable::insert(const Order& order) {
  if (size_ + 1 > (buckets_.size() == 1 ? 0 : buckets_.size())) grow();
  RestingOrder& added = take_spare();
  static_cast<Order&>(added) = order;
  link(added);
  ++size_;
  if (order.owner.empty()) {
    BackgroundOrders& background = background_of(order);
    const BackgroundEntry entry = entry_of(added);
    // Most come into an empty bucket, and so to the end.
    background.insert(background.empty() || background.back() < entry
                          ? background.end()
                          : std::upper_bound(background.begin(), background.end(), entry),
                      entry);
  }
  return added;
}

void OrderTable::erase(RestingOrder& order) {
  if (order.owner.empty()) {
    BackgroundOrders& background = background_of(order);
    background.erase(std::lower_bound(background.begin(), background.end(), entry_of(order)));
  }
  unlink(order);
  --size_;
  order.next_ = spare_;
  spare_ = &order;
}

const RestingOrder* OrderTable::find(uint64_t id) const {
  const auto bucket = static_cast<uint32_t>(id % buckets_.size());
  for (const RestingOrder* order = front_of(bucket); order != nullptr && order->bucket_ == bucket;
       order = order->next_) {
    if (order->id == id) return order;
  }
  return nullptr;
}

size_t OrderTable::background_count(uint16_t locate) const {
  return locate < background_.size() ? background_[locate].size() : 0;
}

RestingOrder& OrderTable::background_order(uint16_t locate, size_t index) const {
  const BackgroundOrders& background = background_[locate];
  return *background[background.size() - 1 - index].order;
}

/// A record that has been used before keeps the memory of its strings.
RestingOrder& OrderTable::take_spare() {
  if (spare_ == nullptr) {
    slabs_.push_back(std::make_unique<std::array<RestingOrder, SLAB_SIZE>>());
    for (RestingOrder& record : *slabs_.back()) {
      record.next_ = spare_;
      spare_ = &record;
    }
  }
  RestingOrder& record = *spare_;
  spare_ = record.next_;
  return record;
}

void OrderTable::grow() {
  const auto* const count =
      std::upper_bound(BUCKET_COUNTS.begin(), BUCKET_COUNTS.end(), buckets_.size());
  if (count == BUCKET_COUNTS.end()) return;
  buckets_.assign(*count, nullptr);
  for (BackgroundOrders& background : background_) background.clear();
  RestingOrder* order = first_;
  first_ = nullptr;
  while (order != nullptr) {
    RestingOrder* const next = order->next_;
    link(*order);
    order = next;
  }
  for (order = first_; order != nullptr; order = order->next_) {
    if (order->owner.empty()) background_of(*order).push_back(entry_of(*order));
  }
  for (BackgroundOrders& background : background_)
    std::reverse(background.begin(), background.end());
}

void OrderTable::link(RestingOrder& order) {
  order.bucket_ = static_cast<uint32_t>(order.id % buckets_.size());
  order.stamp_ = ++last_stamp_;
  RestingOrder**& place = buckets_[order.bucket_];
  if (place != nullptr) {
    order.bucket_stamp_ = (*place)->bucket_stamp_;
    order.next_ = *place;
    *place = &order;
    return;
  }
  order.bucket_stamp_ = order.stamp_;
  order.next_ = first_;
  if (first_ != nullptr) buckets_[first_->bucket_] = &order.next_;
  first_ = &order;
  place = &first_;
}

void OrderTable::unlink(RestingOrder& order) {
  RestingOrder** pointer = buckets_[order.bucket_];
  while (*pointer != &order) pointer = &(*pointer)->next_;
  const bool was_front = pointer == buckets_[order.bucket_];
  RestingOrder* const next = order.next_;
  *pointer = next;
  if (next != nullptr && next->bucket_ != order.bucket_) buckets_[next->bucket_] = pointer;
  const bool was_alone = was_front && (next == nullptr || next->bucket_ != order.bucket_);
  if (was_alone) buckets_[order.bucket_] = nullptr;
}

RestingOrder* OrderTable::front_of(uint32_t bucket) const {
  RestingOrder** const place = buckets_[bucket];
  return place == nullptr ? nullptr : *place;
}

OrderTable::BackgroundOrders& OrderTable::background_of(const Order& order) {
  if (order.locate >= background_.size()) background_.resize(size_t{order.locate} + 1);
  return background_[order.locate];
}

OrderTable::BackgroundEntry OrderTable::entry_of(RestingOrder& order) {
  return {order.bucket_stamp_, order.stamp_, &order};
}

}  // namespace quorl
