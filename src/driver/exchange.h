#pragma once

#include <optional>
#include <random>

#include "base/sockets.h"
#include "bench/scenario.h"
#include "driver/run_config.h"
#include "driver/turn.h"
#include "feed/fault_plan.h"
#include "feed/gap_fill.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

namespace quorl {

/// The whole exchange, started: constructing it opens everything in the order that benches see on
/// the wire and on standard error, up to the banner. What is built last goes first at the end, and
/// nothing says goodbye to a client.
class Exchange {
 public:
  /// Reads QUORL_SCENARIO and BENCH_ORDER_TRUTH beside the configuration. Ends the process with
  /// status 1 if the FIX or the DEEP SNAP port cannot be had. Throws what a malformed number in
  /// `drop_burst`, `symbols` or the scenario throws.
  explicit Exchange(const RunConfig& config);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  /// Starts the timers: the loop begins now. Call it once, ahead of the first turn.
  void begin();
  /// One turn of the loop. False once a stop has been requested: nothing has been done then.
  bool turn() { return driver_->turn(); }
  /// The last lines of an orderly end.
  void print_final_lines() const;

  /// What it trades with, for those who look on between two turns.
  Engine& engine() { return engine_; }

 private:
  void print_banner() const;

  RunConfig config_;
  std::mt19937_64 rng_;
  OwnedSocket gap_fill_socket_;  // opened behind the feed's, and closed behind it
  TpPublisher publisher_;
  GapFill gap_fill_;
  // Read between its neighbours: a malformed burst ends the run behind the one's complaints and
  // ahead of the other's line.
  const FaultPlan starting_faults_;
  Scenario scenario_;
  Engine engine_;
  Listeners listeners_;
  std::optional<Driver> driver_;
};

}  // namespace quorl
