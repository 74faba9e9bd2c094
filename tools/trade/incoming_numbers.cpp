#include "tools/trade/incoming_numbers.h"

#include <algorithm>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

uint32_t behind(const client::FixMessage& message) {
  if (message.type() == "4" && message.has(36)) {
    return std::max(message.seq() + 1, static_cast<uint32_t>(message.number(36)));
  }
  return message.seq() + 1;
}

}  // namespace

void IncomingNumbers::begin_anew() {
  next_ = 1;
  missing_.clear();
}

std::string IncomingNumbers::take(const client::FixMessage& message) {
  const uint32_t seq = message.seq();
  if (!next_) next_ = seq;
  const uint32_t due = *next_;
  const bool is_of_the_past = seq < due && !message.is_possible_duplicate() && !is_missing(seq);
  if (is_of_the_past && message.type() == "A") {
    missing_.clear();
    next_ = seq + 1;
    return "the exchange's number is " + std::to_string(seq) + " where " + std::to_string(due) +
           " was due: it has begun anew";
  }
  if (seq > due) missing_[due] = seq;
  cover(seq, behind(message));
  next_ = std::max(due, behind(message));
  if (!is_of_the_past) return "";
  return "number " + std::to_string(seq) + " again, where " + std::to_string(due) + " was due";
}

bool IncomingNumbers::is_missing(uint32_t seq) const {
  const auto behind_it = missing_.upper_bound(seq);
  return behind_it != missing_.begin() && std::prev(behind_it)->second > seq;
}

/// Takes the numbers from `from` on, up to the one before `behind`, out of what is missing.
void IncomingNumbers::cover(uint32_t from, uint32_t behind) {
  auto stretch = missing_.upper_bound(from);
  if (stretch != missing_.begin()) --stretch;
  while (stretch != missing_.end() && stretch->first < behind) {
    const auto [first, end] = *stretch;
    if (end <= from) {
      ++stretch;
      continue;
    }
    stretch = missing_.erase(stretch);
    if (first < from) missing_[first] = from;
    if (end > behind) missing_[behind] = end;
  }
}

std::string IncomingNumbers::missing_text() const {
  std::string text;
  for (const auto& [first, end] : missing_) {
    if (!text.empty()) text += ", ";
    text += std::to_string(first);
    if (end - first > 1) text += " to " + std::to_string(end - 1);
  }
  return text;
}

uint32_t IncomingNumbers::first_missing() const { return missing_.begin()->first; }
uint32_t IncomingNumbers::last_missing() const { return missing_.rbegin()->second - 1; }

}  // namespace tools
