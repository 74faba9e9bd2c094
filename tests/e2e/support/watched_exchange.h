#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "quorl/client/json_lines.h"
#include "quorl/client/stats_text.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {

/// Counters that have risen, and by how much.
using Rises = std::map<std::string, uint64_t>;

/// "replace r2 AAPL B 300 @ 190.02 cum 200 leaves 100 last 0 "text" ref r1"; the order's number is
/// left out, and so are an empty text and an absent ref.
std::string describe(const client::OrderEvent& event);
std::vector<std::string> described(const std::vector<client::OrderEvent>& events);

/// An exchange as a bench watches it: besides the feed's news() it tells what is new in the
/// counters, in the order event file and on standard error. Each tells everything since the last
/// time it was asked, or since ignore_so_far().
class WatchedExchange : public Exchange {
 public:
  explicit WatchedExchange(client::SimulatorOptions options);

  /// Trades away all that rests in AAPL, which is then no news.
  void clear_the_book();

  Rises rises();

  /// What the order event file says; it is on disk before the client hears of it.
  std::vector<client::OrderEvent> events();

  /// Standard error, by a barrier that leaves a mark there; marks and periodic lines are left out.
  std::vector<std::string> lines();

  void ignore_so_far();

 private:
  client::BenchStats counted_;
  size_t events_told_ = 0;
  size_t lines_told_ = 0;
  unsigned barriers_ = 0;
};

}  // namespace e2e
