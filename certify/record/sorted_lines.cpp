#include "certify/record/sorted_lines.h"

#include <array>
#include <cstdio>
#include <utility>

namespace certify {
namespace {

constexpr TimeNs DAY = 86'400 * SECOND;

/// Of "14:03:07.123456"; 0 if it is none, which our own lines never are.
TimeNs time_of_day(const std::string& line) {
  std::array<unsigned, 4> part{};
  if (std::sscanf(line.c_str(), "%2u:%2u:%2u.%6u", &part[0], &part[1], &part[2], &part[3]) != 4) {
    return 0;
  }
  const TimeNs seconds = (TimeNs{part[0]} * 60 + part[1]) * 60 + part[2];
  constexpr TimeNs MICROSECOND = 1'000;
  return seconds * SECOND + TimeNs{part[3]} * MICROSECOND;
}

/// The full time, within half a day of `near`.
TimeNs on_the_day_nearest(TimeNs time_of_day, TimeNs near) {
  const TimeNs at = near - near % DAY + time_of_day;
  if (at - near > DAY / 2) return at - DAY;
  if (near - at > DAY / 2) return at + DAY;
  return at;
}

}  // namespace

SortedLines::SortedLines(const std::string& path, TimeNs first) : file_(path), latest_(first) {
  while (lines_.size() < WINDOW && file_) read_one();
}

void SortedLines::pop() {
  lines_.pop();
  if (file_) read_one();
}

void SortedLines::read_one() {
  SortedLine line;
  if (!std::getline(file_, line.text)) return;
  latest_ = on_the_day_nearest(time_of_day(line.text), latest_);
  line.at = latest_;
  line.place = places_++;
  line.text += '\n';
  lines_.push(std::move(line));
}

}  // namespace certify
