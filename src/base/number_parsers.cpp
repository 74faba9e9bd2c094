#include "base/number_parsers.h"

#include <cstdlib>
#include <stdexcept>

namespace quorl {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// Plain digits, few enough that nothing can overflow: nearly every number that is ever sent.
bool short_digits(std::string_view text, size_t most, uint64_t& out) {
  if (text.empty() || text.size() > most) return false;
  uint64_t value = 0;
  for (const char c : text) {
    if (!is_digit(c)) return false;
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  out = value;
  return true;
}

/// Digits with at most one point among them. Up to 15 digits and up to 10^15 are exact in a
/// double, so their one division rounds as strtod does.
bool short_decimal(std::string_view text, double& out) {
  constexpr double POWERS_OF_TEN[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  constexpr size_t MOST_DIGITS = 15;
  uint64_t value = 0;
  size_t digits = 0;
  size_t decimals = 0;
  bool point = false;
  for (const char c : text) {
    if (is_digit(c)) {
      if (++digits > MOST_DIGITS) return false;
      value = value * 10 + static_cast<uint64_t>(c - '0');
      decimals += point ? 1 : 0;
    } else if (c == '.' && !point) {
      point = true;
    } else {
      return false;
    }
  }
  if (digits == 0) return false;
  out = static_cast<double>(value) / POWERS_OF_TEN[decimals];
  return true;
}

}  // namespace

bool parse_u64(std::string_view text, uint64_t& out) {
  if (short_digits(text, 18, out)) return true;
  try {
    out = std::stoull(std::string(text));
    return true;
  } catch (const std::logic_error&) {  // no digit, or out of range
    return false;
  }
}

uint32_t low32_or(std::string_view text, uint32_t fallback) {
  uint64_t value = 0;
  return parse_u64(text, value) ? static_cast<uint32_t>(value) : fallback;
}

double double_or_zero(std::string_view text) {
  double value = 0.0;
  if (short_decimal(text, value)) return value;
  try {
    return std::stod(std::string(text));
  } catch (const std::logic_error&) {
    return 0.0;
  }
}

int32_t narrowed_strtol(std::string_view text) {
  uint64_t value = 0;
  if (short_digits(text, 9, value)) return static_cast<int32_t>(value);
  const std::string terminated(text);
  return static_cast<int32_t>(std::strtol(terminated.c_str(), nullptr, 10));
}

}  // namespace quorl
