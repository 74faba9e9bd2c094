#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/output_file.h"
#include "bench/counters.h"
#include "bench/lapse.h"

namespace quorl {

/// The armed script of misbehaviours. The environment sets the recurring rules and the once-only
/// events at start, the control port sets the one-shot counts during the run; the sites where they
/// fire read and write the fields directly.
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
  uint32_t reject_every = 0;      // 0 is off, as in the next four
  uint32_t partial_fill_every = 0;
  uint32_t fill_on_cancel_every = 0;
  uint32_t unsolicited_cancel_every = 0;
  uint32_t replace_reject_every = 0;
  int32_t lapse_ms = 0;           // lapse that the first accepted Logon starts
  bool disconnect_fired = false;  // a scripted or driven drop has happened
  bool lapse_fired = false;       // the scenario's lapse has been started
  uint32_t reject_next = 0;       // one-shots still to fire, as the next four
  uint32_t partial_next = 0;
  uint32_t fill_on_cancel_next = 0;
  uint32_t unsolicited_cancel_next = 0;
  uint32_t replace_reject_next = 0;
  Lapse lapse;
  uint64_t disconnect_requested = 0;  // not 0: drop the connection at the next order
  BenchCounters counters;
  OutputFile order_truth;  // order events; open only if the variable named a file
};

/// The one rule by which scripted behaviours fire: on each occurrence whose count is a multiple of
/// `every`, and on the next `next` occurrences. A one-shot is spent even where the recurring rule
/// fires anyway. `count` includes the present occurrence.
bool fires(uint64_t count, uint32_t every, uint32_t& next);

}  // namespace quorl
