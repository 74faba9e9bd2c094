#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "quorl/client/deep.h"

namespace ladder {

/// The prices of one symbol's trades over the last minutes, one kept a second: its memory does not
/// grow with the run. All times are the feed's, nanoseconds since the Unix epoch.
class PriceLine {
 public:
  static constexpr std::chrono::seconds SPAN{300};

  /// A trade. Times that run backwards are taken for the latest one.
  void add(uint64_t timestamp_ns, quorl::client::Price4 price);

  /// What a line of `count` columns covers at `now_ns`: a second each to begin with, then all since
  /// the first trade, at most SPAN.
  std::chrono::seconds span(size_t count, uint64_t now_ns) const;

  /// A price for each column, the oldest first, the last one now: that of the last trade of the
  /// column's time or before it. Nothing before the first trade.
  std::vector<std::optional<quorl::client::Price4>> columns(size_t count, uint64_t now_ns) const;

 private:
  struct Point {
    uint64_t second;
    quorl::client::Price4 price;  // of the last trade in it
  };
  std::deque<Point> points_;  // by time; the first may lie before SPAN, as the price SPAN ago
};

/// 0 at the lowest of the prices, `highest` at the highest, in between by proportion, and all in
/// the middle if there is only one price. Nothing stays nothing.
std::vector<std::optional<int>> heights(
    const std::vector<std::optional<quorl::client::Price4>>& prices, int highest);

}  // namespace ladder
