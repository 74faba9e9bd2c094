#include "fix/fix_text.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>

#include "base/clocks.h"

namespace quorl {
namespace {

void put_digits(char* at, uint32_t value, size_t width) {
  for (size_t i = width; i > 0; --i, value /= 10) at[i - 1] = static_cast<char>('0' + value % 10);
}

void strip_trailing_zeros(std::string& text) {
  if (text.find('.') == std::string::npos) return;
  while (text.back() == '0') text.pop_back();
  if (text.back() == '.') text.pop_back();
}

// Within this bound the double nearest to price / 10000 prints, at four decimals, as the integer's
// own digits.
constexpr int64_t EXACT_BOUND = 1'000'000'000'000'000;

}  // namespace

FixTimestamp::FixTimestamp(uint64_t ns_since_epoch) {
  constexpr uint64_t NS_PER_S = 1'000'000'000;
  constexpr uint64_t NS_PER_MS = 1'000'000;
  constexpr size_t WHOLE_SECONDS = 18;  // "YYYYMMDD-HH:MM:SS."
  // Many messages fall into one second, and the calendar is what costs.
  static uint64_t cached_second = std::numeric_limits<uint64_t>::max();
  static std::array<char, WHOLE_SECONDS> cached_text;

  const uint64_t second = ns_since_epoch / NS_PER_S;
  if (second != cached_second) {
    const auto time = static_cast<time_t>(second);
    tm utc{};
    gmtime_r(&time, &utc);
    char* at = cached_text.data();
    put_digits(at, static_cast<uint32_t>(utc.tm_year + 1900), 4);
    put_digits(at + 4, static_cast<uint32_t>(utc.tm_mon + 1), 2);
    put_digits(at + 6, static_cast<uint32_t>(utc.tm_mday), 2);
    at[8] = '-';
    put_digits(at + 9, static_cast<uint32_t>(utc.tm_hour), 2);
    at[11] = ':';
    put_digits(at + 12, static_cast<uint32_t>(utc.tm_min), 2);
    at[14] = ':';
    put_digits(at + 15, static_cast<uint32_t>(utc.tm_sec), 2);
    at[17] = '.';
    cached_second = second;
  }
  std::memcpy(text_.data(), cached_text.data(), WHOLE_SECONDS);
  const auto ms = static_cast<uint32_t>(ns_since_epoch % NS_PER_S / NS_PER_MS);
  put_digits(text_.data() + WHOLE_SECONDS, ms, 3);
}

FixTimestamp fix_timestamp() { return FixTimestamp(system_ns()); }

std::string format_price(int32_t decimals, double value) {
  std::array<char, 48> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%.*f", decimals, value);
  std::string text = buffer.data();  // cut, not overrun, by a value that is no price
  strip_trailing_zeros(text);
  return text;
}

void put_price(TextWriter& out, double value) {
  // Up to here the product below is off by less than a thousandth, so unless it lies about halfway
  // between two prices, its nearest integer is the price that prints.
  constexpr double MOST = 1e7;
  static_assert(MOST * 10000 <= EXACT_BOUND, "put_price4 would come back here");
  constexpr double ABOUT_HALFWAY = 1e-3;
  if (value > 0.0 && value < MOST) {
    const double scaled = value * 10000.0;
    const double whole = std::floor(scaled);
    const double fraction = scaled - whole;
    if (std::fabs(fraction - 0.5) > ABOUT_HALFWAY) {
      return put_price4(out, static_cast<int64_t>(whole) + (fraction > 0.5 ? 1 : 0));
    }
  }
  out.text(format_price(4, value));
}

void put_price4(TextWriter& out, int64_t price) {
  if (price < 0 || price > EXACT_BOUND) return put_price(out, static_cast<double>(price) / 10000.0);
  out.number(price / 10000);
  auto decimals = static_cast<uint32_t>(price % 10000);
  size_t width = 4;
  for (; width > 0 && decimals % 10 == 0; --width) decimals /= 10;
  if (width > 0) out.character('.').digits(decimals, width);
}

}  // namespace quorl
