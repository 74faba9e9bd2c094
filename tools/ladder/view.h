#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ladder/desk.h"
#include "tools/ladder/grid.h"
#include "tools/ladder/health.h"
#include "tools/ladder/market.h"

namespace ladder {

constexpr size_t LEAST_ROWS = 24;
constexpr size_t LEAST_COLUMNS = 80;

/// All that a screen shows.
struct Scene {
  const Market& market;
  const Health& health;
  const Desk* desk = nullptr;            // null without a control port
  std::string feed = {};                 // "233.54.26.111:25477"
  std::vector<std::string> filter = {};  // symbols to show; empty: all
  size_t first_symbol = 0;               // of those, the one shown first; counts round
  bool help = false;                     // the page of keys instead of the market
  uint64_t now_ns = 0;                   // of the system clock, as the feed's times are
  std::chrono::steady_clock::time_point now = {};
};

/// Draws it for a screen of that size; below LEAST_ROWS and LEAST_COLUMNS only words to that
/// effect.
Grid draw(const Scene& scene, size_t rows, size_t columns);

/// The symbols that are to be shown: those of the filter, or all that the feed has listed.
std::vector<std::string> chosen_symbols(const Market& market,
                                        const std::vector<std::string>& filter);

/// "190.02", with as many decimals as are asked for, 2 to 4.
std::string fixed_price(quorl::client::Price4 price, int decimals);

/// "12,300".
std::string with_commas(uint64_t number);

/// "23:58:01", the time of day in UTC.
std::string time_of_day(uint64_t since_epoch_ns);

}  // namespace ladder
