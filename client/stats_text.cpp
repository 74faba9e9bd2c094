#include "quorl/client/stats_text.h"

#include <charconv>
#include <iterator>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr const char* COUNTERS[] = {
    "orders",          "accepts",      "fills",           "partials",       "cancels",
    "replaces",        "rejects",      "replace_rejects", "cancel_rejects", "unsolicited_cancels",
    "race_fills",      "late_cancels", "stale_cancels",   "logins",         "logons",
    "resend_requests", "replays",      "replayed"};

/// Walks a text of fixed words and plain decimal numbers.
class StatsWalk {
 public:
  explicit StatsWalk(std::string_view text) : text_(text), left_(text) {}

  void word(std::string_view expected) {
    if (!left_.starts_with(expected)) fail("\"" + std::string(expected) + "\"");
    left_.remove_prefix(expected.size());
  }

  uint64_t number() {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(left_.data(), left_.data() + left_.size(), value);
    const auto size = static_cast<size_t>(end - left_.data());
    if (error != std::errc() || (size > 1 && left_[0] == '0')) fail("a number");
    left_.remove_prefix(size);
    return value;
  }

  uint64_t number_behind(std::string_view expected) {
    word(expected);
    return number();
  }

  /// Takes the word if it comes next.
  bool has(std::string_view expected) {
    if (!left_.starts_with(expected)) return false;
    left_.remove_prefix(expected.size());
    return true;
  }

  void end() const {
    if (!left_.empty()) fail("the end");
  }

 private:
  [[noreturn]] void fail(const std::string& wanted) const {
    throw WireError("no " + wanted + " at \"" + std::string(left_) + "\" of \"" +
                    std::string(text_) + "\"");
  }

  std::string_view text_;
  std::string_view left_;
};

BenchStats walk_bench_stats(StatsWalk& walk) {
  BenchStats stats;
  for (const char* const& counter : COUNTERS) {
    if (&counter != std::begin(COUNTERS)) walk.word(" ");
    walk.word(counter);
    stats[counter] = walk.number_behind("=");
  }
  if (stats["logins"] != stats["logons"]) throw WireError("logins differs from logons");
  return stats;
}

FaultStats walk_fault_stats(StatsWalk& walk) {
  FaultStats stats;
  stats.sent = walk.number_behind("quorl faults: sent ");
  stats.dropped = walk.number_behind(" dropped ");
  stats.duplicated = walk.number_behind(" duplicated ");
  stats.reordered = walk.number_behind(" reordered ");
  return stats;
}

}  // namespace

BenchStats parse_bench_stats(std::string_view text) {
  StatsWalk walk(text);
  BenchStats stats = walk_bench_stats(walk);
  walk.end();
  return stats;
}

FaultStats parse_fault_stats(std::string_view text) {
  StatsWalk walk(text);
  const FaultStats stats = walk_fault_stats(walk);
  walk.end();
  return stats;
}

ControlStats parse_control_stats(std::string_view text) {
  StatsWalk walk(text);
  ControlStats stats;
  stats.counters = walk_bench_stats(walk);
  stats.next_seq = walk.number_behind(" next_seq=");
  walk.word(" ");
  stats.faults = walk_fault_stats(walk);
  walk.word(" session=");
  stats.session_up = walk.has("up");
  if (!stats.session_up) walk.word("down");
  walk.end();
  return stats;
}

DeepStats parse_deep_stats_line(std::string_view line) {
  StatsWalk walk(line);
  DeepStats stats;
  stats.messages = walk.number_behind("[quorl] deep msgs ");
  stats.packets = walk.number_behind(" packets ");
  stats.dropped = walk.number_behind(" dropped ");
  stats.gap_fills = walk.number_behind(" gapfill ");
  stats.snapshots = walk.number_behind(" snapshots ");
  stats.resting = walk.number_behind(" resting ");
  stats.clients = walk.number_behind(" clients ");
  walk.end();
  return stats;
}

}  // namespace quorl::client
