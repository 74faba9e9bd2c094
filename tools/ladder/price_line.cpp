#include "tools/ladder/price_line.h"

#include <algorithm>

namespace ladder {
namespace {

namespace client = quorl::client;

constexpr uint64_t NS_PER_SECOND = 1000000000;

}  // namespace

void PriceLine::add(uint64_t timestamp_ns, client::Price4 price) {
  uint64_t second = timestamp_ns / NS_PER_SECOND;
  if (!points_.empty()) second = std::max(second, points_.back().second);
  if (!points_.empty() && points_.back().second == second) {
    points_.back().price = price;
  } else {
    points_.push_back({second, price});
  }
  const auto span = static_cast<uint64_t>(SPAN.count());
  while (points_.size() > 1 && points_[1].second + span <= second) points_.pop_front();
}

std::chrono::seconds PriceLine::span(size_t count, uint64_t now_ns) const {
  const uint64_t now = now_ns / NS_PER_SECOND;
  const uint64_t since = points_.empty() ? now : std::min(points_.front().second, now);
  const auto elapsed = static_cast<int64_t>(
      std::min<uint64_t>(now - since + 1, static_cast<uint64_t>(SPAN.count())));
  const auto at_first = std::min(static_cast<int64_t>(count), static_cast<int64_t>(SPAN.count()));
  return std::chrono::seconds(std::max(elapsed, at_first));
}

std::vector<std::optional<client::Price4>> PriceLine::columns(size_t count, uint64_t now_ns) const {
  std::vector<std::optional<client::Price4>> prices(count);
  const uint64_t now = now_ns / NS_PER_SECOND;
  const auto covered = static_cast<uint64_t>(span(count, now_ns).count());
  auto next = points_.begin();
  std::optional<client::Price4> price;
  for (size_t column = 0; column < count; ++column) {
    // The column ends, inclusively, so many seconds ago.
    const uint64_t ago = covered * (count - 1 - column) / count;
    for (; next != points_.end() && next->second + ago <= now; ++next) price = next->price;
    if (column + 1 == count && next != points_.end()) price = points_.back().price;
    prices[column] = price;
  }
  return prices;
}

std::vector<std::optional<int>> heights(const std::vector<std::optional<client::Price4>>& prices,
                                        int highest) {
  std::optional<client::Price4> low;
  std::optional<client::Price4> high;
  for (const auto& price : prices) {
    if (!price) continue;
    low = std::min(low.value_or(*price), *price);
    high = std::max(high.value_or(*price), *price);
  }
  std::vector<std::optional<int>> result(prices.size());
  for (size_t i = 0; i < prices.size(); ++i) {
    if (!prices[i]) continue;
    const client::Price4 range = *high - *low;
    // Half a range more rounds to the nearest.
    result[i] = range == 0 ? highest / 2
                           : static_cast<int>(((*prices[i] - *low) * highest + range / 2) / range);
  }
  return result;
}

}  // namespace ladder
