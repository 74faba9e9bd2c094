#include "certify/checks/number_ranges.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace certify {
namespace {

constexpr uint64_t HIGHEST = std::numeric_limits<uint64_t>::max();

}  // namespace

std::string text_of(const NumberRange& range) {
  const std::string first = std::to_string(range.first);
  return range.first == range.last ? first : first + " to " + std::to_string(range.last);
}

void NumberRanges::add(NumberRange range) {
  if (range.last < range.first) return;
  auto next = ranges_.upper_bound(range.first);
  if (next != ranges_.begin()) {
    const auto before = std::prev(next);
    const bool touches = before->second >= range.first || before->second + 1 == range.first;
    if (touches) {
      range = {before->first, std::max(before->second, range.last)};
      ranges_.erase(before);
    }
  }
  while (next != ranges_.end() && (range.last == HIGHEST || next->first <= range.last + 1)) {
    range.last = std::max(range.last, next->second);
    next = ranges_.erase(next);
  }
  ranges_.emplace(range.first, range.last);
}

void NumberRanges::remove(NumberRange range) {
  if (range.last < range.first) return;
  auto next = ranges_.upper_bound(range.first);
  if (next != ranges_.begin()) next = std::prev(next);
  while (next != ranges_.end() && next->first <= range.last) {
    const auto [first, last] = *next;
    if (last < range.first) {
      ++next;
      continue;
    }
    next = ranges_.erase(next);
    if (first < range.first) ranges_.emplace(first, range.first - 1);
    if (last > range.last) ranges_.emplace(range.last + 1, last);
  }
}

bool NumberRanges::contains(uint64_t number) const { return covers({number, number}); }

bool NumberRanges::covers(NumberRange range) const {
  const auto next = ranges_.upper_bound(range.first);
  return next != ranges_.begin() && std::prev(next)->second >= range.last;
}

std::optional<NumberRange> NumberRanges::first_within(NumberRange range) const {
  auto next = ranges_.upper_bound(range.first);
  if (next != ranges_.begin() && std::prev(next)->second >= range.first) next = std::prev(next);
  if (next == ranges_.end() || next->first > range.last) return {};
  return NumberRange{std::max(next->first, range.first), std::min(next->second, range.last)};
}

std::optional<NumberRange> NumberRanges::first() const {
  if (ranges_.empty()) return {};
  return NumberRange{ranges_.begin()->first, ranges_.begin()->second};
}

}  // namespace certify
