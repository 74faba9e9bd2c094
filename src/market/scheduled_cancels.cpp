#include "market/scheduled_cancels.h"

#include <algorithm>
#include <utility>

namespace quorl {
namespace {

constexpr auto FIRST_DUE_ON_TOP = [](const auto& a, const auto& b) {
  return a.cancel.due_ms != b.cancel.due_ms ? a.cancel.due_ms > b.cancel.due_ms
                                            : a.number > b.number;
};

template <typename Entries>
std::vector<ScheduledCancel> by_number(Entries entries) {
  std::sort(entries.begin(), entries.end(),
            [](const auto& a, const auto& b) { return a.number < b.number; });
  std::vector<ScheduledCancel> cancels;
  cancels.reserve(entries.size());
  for (auto& entry : entries) cancels.push_back(std::move(entry.cancel));
  return cancels;
}

}  // namespace

void ScheduledCancels::schedule(ScheduledCancel cancel) {
  heap_.push_back({scheduled_++, std::move(cancel)});
  std::push_heap(heap_.begin(), heap_.end(), FIRST_DUE_ON_TOP);
}

std::vector<ScheduledCancel> ScheduledCancels::take_due(int64_t now_ms) {
  std::vector<Entry> due;
  while (!heap_.empty() && heap_.front().cancel.due_ms <= now_ms) {
    std::pop_heap(heap_.begin(), heap_.end(), FIRST_DUE_ON_TOP);
    due.push_back(std::move(heap_.back()));
    heap_.pop_back();
  }
  return by_number(std::move(due));
}

std::vector<ScheduledCancel> ScheduledCancels::all() const { return by_number(heap_); }

}  // namespace quorl
