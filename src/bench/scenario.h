#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/output_file.h"
#include "bench/counters.h"
#include "bench/lapse.h"

namespace quorl {

/// When one scripted behaviour fires: on each occurrence whose count is a multiple of `every`, and
/// on the next `next` occurrences.
struct Script {
  uint32_t every = 0;  // 0 is off
  uint32_t next = 0;   // one-shots still to fire

  /// `count` includes the present occurrence. A one-shot is spent even where the recurring rule
  /// fires anyway.
  bool fires(uint64_t count);
};

/// The armed script of misbehaviours. The environment sets the recurring rules and the once-only
/// events at start, the control port sets the one-shot counts during the run; each behaviour asks
/// its script at its one site.
struct Scenario {
  /// Reads QUORL_SCENARIO (a comma list of key=value items) and BENCH_ORDER_TRUTH (the path of the
  /// order event file) and prints the armed line if a scenario is set. Items without "=", unknown
  /// keys and a path that cannot be opened are skipped without a word; a malformed number throws
  /// what std::stoi and std::stoul throw.
  Scenario();
  Scenario(const Scenario&) = delete;
  Scenario& operator=(const Scenario&) = delete;

  std::string name;               // label of the armed line
  uint32_t disconnect_after = 0;  // drop at the order that brings `orders` here; 0 off
  Script rejects;                 // of new orders
  Script partial_fills;           // of what would have filled whole
  Script fills_on_cancel;         // cancels that lose the race to a fill
  Script unsolicited_cancels;     // by the exchange, scheduled as an order comes to rest
  Script replace_rejects;
  int32_t lapse_ms = 0;           // lapse that the first accepted Logon starts
  bool disconnect_fired = false;  // a scripted or driven drop has happened
  bool lapse_fired = false;       // the scenario's lapse has been started
  Lapse lapse;
  uint64_t disconnect_requested = 0;  // not 0: drop the connection at the next order
  BenchCounters counters;
  OutputFile order_truth;  // order events; open only if the variable named a file
};

}  // namespace quorl
