#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

// Prices, and the arithmetic on them.

namespace quorl {

using Price4 = int64_t;  // ten-thousandths of a dollar; 0 means no limit

/// Nearest integer, halves away from zero. What does not fit (NaN and infinities too) becomes the
/// lowest integer, which every price check refuses.
inline int64_t rounded(double value) {
  constexpr double TWO_TO_63 = 9223372036854775808.0;
  if (value >= -TWO_TO_63 && value < TWO_TO_63) return std::llround(value);
  return std::numeric_limits<int64_t>::min();
}

/// A price from dollars, as FIX tag 44 gives it.
inline Price4 price_of_dollars(double dollars) { return rounded(dollars * 10000.0); }

/// A price in whole cents from the walk's float. A mid has no bounds, so the product may wrap.
inline Price4 price_of_mid(double mid) {
  return static_cast<Price4>(static_cast<uint64_t>(rounded(mid * 100.0)) * 100U);
}

inline double dollars_of(Price4 price) { return static_cast<double>(price) / 10000.0; }

/// The money of a fill, in dollars.
inline double notional_of(uint32_t qty, Price4 price) {
  return static_cast<double>(qty) * static_cast<double>(price) / 10000.0;
}

/// Wraps at the ends of the range: a mid without bounds may put a price there.
inline Price4 wrapping_sum(Price4 a, Price4 b) {
  return static_cast<Price4>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

}  // namespace quorl
