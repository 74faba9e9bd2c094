#include "certify/checks/utc_time.h"

#include <chrono>
#include <cstddef>

namespace certify {
namespace {

constexpr std::string_view SHAPE = "00000000-00:00:00.000";
constexpr size_t SECONDS_SHAPE = 17;  // bytes of it without milliseconds

bool has_shape(std::string_view text) {
  if (text.size() != SECONDS_SHAPE && text.size() != SHAPE.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (SHAPE[i] == '0' ? !digit : text[i] != SHAPE[i]) return false;
  }
  return true;
}

unsigned digits(std::string_view text, size_t at, size_t count) {
  unsigned value = 0;
  for (const char c : text.substr(at, count)) value = value * 10 + static_cast<unsigned>(c - '0');
  return value;
}

}  // namespace

std::optional<UtcTime> read_utc_time(std::string_view text) {
  if (!has_shape(text)) return {};
  const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(digits(text, 0, 4))),
                                        std::chrono::month(digits(text, 4, 2)),
                                        std::chrono::day(digits(text, 6, 2))};
  const unsigned hours = digits(text, 9, 2);
  const unsigned minutes = digits(text, 12, 2);
  const unsigned seconds = digits(text, 15, 2);
  constexpr unsigned LEAP_SECOND = 60;
  if (!day.ok() || hours > 23 || minutes > 59 || seconds > LEAP_SECOND) return {};
  const bool milliseconds = text.size() == SHAPE.size();
  const auto at = std::chrono::sys_days(day).time_since_epoch() + std::chrono::hours(hours) +
                  std::chrono::minutes(minutes) + std::chrono::seconds(seconds) +
                  std::chrono::milliseconds(milliseconds ? digits(text, 18, 3) : 0);
  // Years far away do not fit into nanoseconds; no clock of ours comes near them.
  constexpr auto MOST = std::chrono::years(200);
  if (at > MOST || at < -MOST) return {};
  return UtcTime{std::chrono::nanoseconds(at).count(), milliseconds};
}

}  // namespace certify
