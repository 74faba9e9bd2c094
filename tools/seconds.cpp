#include "tools/seconds.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace tools {

using std::chrono::milliseconds;

std::optional<milliseconds> seconds_from(const std::string& text) {
  constexpr double A_YEAR_S = 365.0 * 24 * 60 * 60;
  const bool is_plain = !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (!is_plain || *end != '\0' || seconds > A_YEAR_S) return std::nullopt;
  return milliseconds(std::llround(seconds * 1000));
}

std::string seconds_text(milliseconds time) {
  std::string decimals = std::to_string(1000 + time.count() % 1000).substr(1);
  while (!decimals.empty() && decimals.back() == '0') decimals.pop_back();
  return std::to_string(time.count() / 1000) + (decimals.empty() ? "" : ".") + decimals + " s";
}

int milliseconds_until(std::chrono::steady_clock::time_point moment) {
  constexpr milliseconds MOST{60000};
  const auto now = std::chrono::steady_clock::now();
  if (moment >= now + MOST) return static_cast<int>(MOST.count());
  const auto left = std::chrono::ceil<milliseconds>(moment - now).count();
  return static_cast<int>(std::max<int64_t>(left, 0));
}

}  // namespace tools
