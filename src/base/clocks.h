#pragma once

#include <cstdint>

// The two clocks, and nothing else reads the time. The unit tests link clocks of their own in
// place of these, so that time is set and never waited for.

namespace quorl {

/// The monotonic clock's nanoseconds divided by 1000000, truncated. Every timer runs on it.
uint64_t steady_ms();

/// The system clock: nanoseconds since the Unix epoch. It stamps data and moves no timer.
uint64_t system_ns();

}  // namespace quorl
