#pragma once

#include <algorithm>
#include <string_view>

namespace quorl::client {

/// Of ASCII, whatever the locale.
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// At least one, and nothing else.
constexpr bool is_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

}  // namespace quorl::client
