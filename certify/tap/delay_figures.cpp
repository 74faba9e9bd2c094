#include "certify/tap/delay_figures.h"

#include <algorithm>
#include <bit>
#include <chrono>

namespace certify {
namespace {

constexpr unsigned STEP_BITS = 4;

/// Exact below 16, then 16 classes for each doubling.
size_t class_of(uint64_t span) {
  const auto width = static_cast<unsigned>(std::bit_width(span));
  if (width <= STEP_BITS) return static_cast<size_t>(span);
  const unsigned shift = width - STEP_BITS - 1;
  return static_cast<size_t>((shift << STEP_BITS) + (span >> shift));
}

/// The largest span of the class.
uint64_t end_of_class(size_t number) {
  if (number < 2U << STEP_BITS) return number;
  const size_t shift = (number >> STEP_BITS) - 1;
  const uint64_t head = (number & ((1U << STEP_BITS) - 1)) + (1U << STEP_BITS);
  return ((head + 1) << shift) - 1;
}

}  // namespace

int64_t DelayFigures::clock_ns() {
  using std::chrono::nanoseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<nanoseconds>(now).count();
}

void DelayFigures::add(TimeNs span) {
  span = std::max<TimeNs>(span, 0);
  ++classes_[class_of(static_cast<uint64_t>(span))];
  ++count_;
  most_ = std::max(most_, span);
}

TimeNs DelayFigures::median() const {
  uint64_t seen = 0;
  for (size_t i = 0; i < classes_.size(); ++i) {
    seen += classes_[i];
    if (seen > 0 && seen * 2 >= count_) {
      return std::min(static_cast<TimeNs>(end_of_class(i)), most_);
    }
  }
  return 0;
}

}  // namespace certify
