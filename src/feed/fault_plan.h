#pragma once

#include <cstdint>

namespace quorl {

/// The fault settings of the multicast path. Every-N rules go by packet numbers, which count the
/// dropped and the held packets too; one-shots are used up as they fire.
struct FaultPlan {
  uint32_t drop_every = 0;     // 0 is off
  uint32_t burst_len = 0;      // packets; 0 is off
  uint32_t dup_every = 0;      // 0 is off
  uint32_t reorder_every = 0;  // 0 is off
  uint32_t drop_next = 0;      // packets still to drop at once
  uint32_t dup_next = 0;       // packets still to send twice at once
  uint32_t reorder_next = 0;   // packets still to hold back at once
  uint64_t burst_start = 0;    // first packet number of the burst
};

struct PacketFate {
  bool drop = false;
  bool duplicate = false;
  bool reorder = false;  // wins over `duplicate`
};

/// Decides what becomes of packet `number` and uses up the one-shots it takes. A dropped packet
/// leaves those of duplication and reordering alone.
PacketFate decide_fate(FaultPlan& plan, uint64_t number);

}  // namespace quorl
