#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace quorl::client {

/// The 18 counters by name, as "orders=0 accepts=0 ... replayed=0" lists them. Throws WireError
/// unless all are there, in order, one space apart, and logins equals logons.
using BenchStats = std::map<std::string, uint64_t>;
BenchStats parse_bench_stats(std::string_view text);

struct FaultStats {
  uint64_t sent = 0;
  uint64_t dropped = 0;
  uint64_t duplicated = 0;
  uint64_t reordered = 0;
  bool operator==(const FaultStats&) const = default;
};
/// "quorl faults: sent 5 dropped 0 duplicated 0 reordered 0", nothing before or behind it.
FaultStats parse_fault_stats(std::string_view text);

struct ControlStats {
  BenchStats counters;
  uint64_t next_seq = 0;
  FaultStats faults;
  bool session_up = false;

  uint64_t operator[](const std::string& counter) const { return counters.at(counter); }
};
/// "<bench stats> next_seq=<n> <fault stats> session=up|down": the control reply behind "ok " and
/// without its line end, or the periodic line behind "bench: stats ".
ControlStats parse_control_stats(std::string_view text);

/// The first line of the pair "[quorl] deep msgs ... clients <n>".
struct DeepStats {
  uint64_t messages = 0;
  uint64_t packets = 0;
  uint64_t dropped = 0;
  uint64_t gap_fills = 0;
  uint64_t snapshots = 0;
  uint64_t resting = 0;
  uint64_t clients = 0;
};
DeepStats parse_deep_stats_line(std::string_view line);

}  // namespace quorl::client
