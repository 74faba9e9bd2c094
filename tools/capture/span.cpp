#include "tools/capture/span.h"

#include <charconv>
#include <string_view>

namespace tools {
namespace {

struct Unit {
  std::string_view name;
  double seconds;
};

constexpr Unit UNITS[] = {{"", 1}, {"s", 1}, {"ms", 0.001}, {"m", 60}, {"h", 3600}};
constexpr double YEAR_S = 366.0 * 24 * 3600;

}  // namespace

std::optional<std::chrono::nanoseconds> parse_span(const std::string& text) {
  double number = 0;
  const char* end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (error != std::errc()) return std::nullopt;
  const std::string_view unit(behind, static_cast<size_t>(end - behind));
  for (const Unit& known : UNITS) {
    if (unit != known.name) continue;
    const double seconds = number * known.seconds;
    if (!(seconds >= 0 && seconds <= YEAR_S)) return std::nullopt;  // nor "nan"
    return std::chrono::nanoseconds(static_cast<int64_t>(seconds * 1e9));
  }
  return std::nullopt;
}

}  // namespace tools
