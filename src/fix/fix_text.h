#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/text_writer.h"

// The texts that every message uses: times and prices.

namespace quorl {

/// UTC with milliseconds, "YYYYMMDD-HH:MM:SS.mmm".
class FixTimestamp {
 public:
  static constexpr size_t SIZE = 21;
  FixTimestamp() { text_.fill('0'); }
  explicit FixTimestamp(uint64_t ns_since_epoch);
  std::string_view view() const { return {text_.data(), text_.size()}; }

 private:
  std::array<char, SIZE> text_;
};

/// The system clock's present time.
FixTimestamp fix_timestamp();

/// "%.*f", then without trailing zeros, and without the point if nothing is left behind it.
std::string format_price(int32_t decimals, double value);

/// Writes format_price(4, value), at most LONGEST_PRICE characters.
constexpr size_t LONGEST_PRICE = 48;
void put_price(TextWriter& out, double value);
/// Writes format_price(4, price / 10000.0) of a price in ten-thousandths of a dollar.
void put_price4(TextWriter& out, int64_t price);

}  // namespace quorl
