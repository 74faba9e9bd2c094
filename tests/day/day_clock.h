#pragma once

#include <cstdint>

// The clocks of the recorded day, linked in place of the real ones. Time passes where the network
// says so: a little with every byte that leaves, and in the waits. Between two of these the system
// clock gains a few nanoseconds with each reading, so that a stamp tells which reading it came
// from; a reading more or less shifts no stamp behind the next send.

namespace day {

constexpr uint64_t NS_PER_MS = 1'000'000;

/// Both clocks to the start of a day; the steady clock begins at 1 000 000 ms.
void reset_clock(uint64_t system_ns);

void pass_ns(uint64_t ns);

/// Sets the system clock back or ahead, as a time server does. The steady clock does not notice.
void step_system_clock(int64_t ns);

/// The steady clock, for the other side of the wires.
uint64_t now_ms();
/// Nanoseconds until the steady clock reads `ms`; 0 if it is past.
uint64_t ns_until(uint64_t ms);

}  // namespace day
