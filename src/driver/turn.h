#pragma once

#include <poll.h>

#include <array>
#include <cstdint>
#include <vector>

#include "feed/snap.h"
#include "fix/session.h"
#include "fix/stream_records.h"

namespace quorl {

class GapFill;
struct Engine;
struct RunConfig;

/// The loop's sockets, owned by the process to its end.
struct Listeners {
  int control_fd = -1;  // -1 when there is no control port
  int fix_listen_fd = -1;
  int snap_listen_fd = -1;
};

/// The one poll loop: it decides only when each piece of work runs. Borrows the configuration, the
/// engine, with its publisher and scenario, and the gap fill for the run; owns the connections and
/// the timers.
class Driver {
 public:
  Driver(RunConfig& config, Engine& engine, GapFill& gap_fill, const Listeners& listeners);
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  /// One turn, with its wait of at most 5 ms at the end. False once a stop has been requested:
  /// nothing has been done then.
  bool turn();

 private:
  void serve_control();
  void serve_fix();
  void serve_snaps();
  void walk_if_due(uint64_t now_ms);
  void send_deferred_reports();
  void announce_lapse(uint64_t now_ms);
  void print_bench_stats_if_due(uint64_t now_ms);
  bool bench_stats_armed() const;
  void send_feed_heartbeat_if_due();
  void write_files_if_due(uint64_t now_ms);
  void print_deep_stats_if_due(uint64_t now_ms);
  void wait();

  RunConfig& config_;
  Engine& engine_;
  GapFill& gap_fill_;
  const Listeners listeners_;
  std::vector<Client> clients_;  // only grows
  FixGateway gateway_;
  std::vector<SnapConnection> snaps_;
  uint64_t last_walk_ms_;
  uint64_t last_deep_ms_;
  uint64_t last_stats_ms_;
  uint64_t last_output_ms_ = 0;  // the first turn writes the files
  std::array<char, 65536> scratch_;
  std::vector<pollfd> poll_set_;
};

}  // namespace quorl
