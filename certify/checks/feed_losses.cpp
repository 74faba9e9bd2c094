#include "certify/checks/feed_losses.h"

#include <algorithm>
#include <iterator>

namespace certify {

void FeedLosses::add(const FeedFault& fault) {
  if (fault.kind == FeedFault::Kind::DOUBLED) return;
  const bool held = fault.kind == FeedFault::Kind::HELD;
  auto next = stretches_.upper_bound(fault.first_seq);
  if (next != stretches_.begin()) {
    Stretch& before = std::prev(next)->second;
    // Announced numbers can be one too high, so neighbours meet or stand one apart.
    if (fault.first_seq <= before.end + 1) {
      before.end = std::max(before.end, fault.first_seq + fault.messages);
      before.count += fault.messages;
      before.held = before.held || held;
      return;
    }
  }
  stretches_.emplace_hint(
      next, fault.first_seq,
      Stretch{.end = fault.first_seq + fault.messages, .count = fault.messages, .held = held});
}

bool FeedLosses::explain(const FeedHole& hole) const {
  uint64_t count = 0;
  auto stretch = stretches_.upper_bound(hole.first.low);
  if (stretch != stretches_.begin()) --stretch;
  for (; stretch != stretches_.end() && stretch->first <= hole.last.high + 1; ++stretch) {
    if (stretch->second.end + 1 < hole.first.low) continue;
    if (stretch->second.held) return true;
    count += stretch->second.count;
  }
  return count > 0 && count + 1 >= hole.last.low - hole.first.high + 1;
}

void FeedLosses::forget_below(uint64_t number) {
  while (!stretches_.empty() && stretches_.begin()->second.end < number) {
    stretches_.erase(stretches_.begin());
  }
}

}  // namespace certify
