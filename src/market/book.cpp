#include "market/book.h"

#include <algorithm>
#include <utility>

namespace quorl {

const Level* BookSide::level_at(Price4 price) const {
  const auto at = levels_.find(rank_of(price));
  return at == levels_.end() || at->second.is_empty() ? nullptr : &at->second;
}

void BookSide::add(RestingOrder& order) {
  const Rank rank = rank_of(order.price);
  auto at = levels_.lower_bound(rank);
  if (at == levels_.end() || at->first != rank) {
    const Level fresh{.book = book_, .buy = buy_, .price = order.price};
    if (spare_.empty()) {
      at = levels_.emplace_hint(at, rank, fresh);
    } else {
      Levels::node_type node = std::move(spare_.back());
      spare_.pop_back();
      node.key() = rank;
      node.mapped() = fresh;
      at = levels_.insert(at, std::move(node));
    }
  }
  Level& level = at->second;
  if (level.is_empty()) {
    ++depth_;
    if (best_ == levels_.end() || rank < best_->first) best_ = at;
    level.first = &order;
  } else {
    level.last->behind_ = &order;
  }
  order.level_ = &level;
  order.ahead_ = level.last;
  order.behind_ = nullptr;
  level.last = &order;
  level.open += order.leaves;
}

void BookSide::remove(RestingOrder& order) {
  Level& level = *order.level_;
  (order.ahead_ != nullptr ? order.ahead_->behind_ : level.first) = order.behind_;
  (order.behind_ != nullptr ? order.behind_->ahead_ : level.last) = order.ahead_;
  level.open -= order.leaves;
  order.level_ = nullptr;
  if (!level.is_empty()) return;
  --depth_;
  while (best_ != levels_.end() && best_->second.is_empty()) ++best_;
}

void BookSide::erase(const Level& level) {
  spare_.push_back(levels_.extract(rank_of(level.price)));
}

uint32_t Book::level_size(bool buy, Price4 price) const {
  const Level* const level = side(buy).level_at(price);
  return level == nullptr ? 0 : level->size();
}

void Book::add(RestingOrder& order) {
  BookSide& side = side_of(order.buy);
  side.add(order);
  touch(BookSide::level_of(order));
}

void Book::remove(RestingOrder& order) {
  Level& level = BookSide::level_of(order);
  level.book->touch(level);
  level.book->side_of(level.buy).remove(order);
}

void Book::set_leaves(RestingOrder& order, uint32_t leaves) {
  Level& level = BookSide::level_of(order);
  level.open += leaves;
  level.open -= order.leaves;
  order.leaves = leaves;
  level.book->touch(level);
}

void Book::touch(Level& level) {
  if (level.touched) return;
  level.touched = true;
  touched_.push_back(&level);
}

const std::vector<LevelChange>& Book::changes() {
  std::sort(touched_.begin(), touched_.end(), [](const Level* a, const Level* b) {
    return a->buy != b->buy ? b->buy : a->price < b->price;
  });
  changes_.clear();
  changed_.clear();
  for (Level* level : touched_) {
    if (level->size() == level->shown) continue;
    changes_.push_back({level->buy, level->price, level->size()});
    changed_.push_back(level);
  }
  return changes_;
}

void Book::settle() {
  for (Level* level : touched_) {
    level->touched = false;
    if (level->is_empty()) side_of(level->buy).erase(*level);
  }
  touched_.clear();
}

}  // namespace quorl
