#pragma once

#include <cstdint>
#include <functional>

// The clocks of the unit tests, linked in place of the real ones. They stand still until a test
// moves them.

namespace quorl::test {

inline constexpr uint64_t START_STEADY_MS = 1'000'000;
inline constexpr uint64_t START_SYSTEM_NS = 1'700'000'000'123'456'789;  // 2023-11-14 22:13:20.123

/// Both clocks back to the start values.
void reset_clocks();

void set_steady_ms(uint64_t ms);
void set_system_ns(uint64_t ns);

/// Moves both clocks on.
void advance_ms(uint64_t ms);

/// How often each clock has been read since reset_clocks.
uint64_t steady_readings();
uint64_t system_readings();

/// From now on every reading of the system clock moves it on by `ns` afterwards, so that a test can
/// tell readings apart. 0 stops that; reset_clocks too.
void step_system_clock_by(uint64_t ns);

/// From now on this is done behind every reading of the system clock. Nothing to do ends that;
/// reset_clocks too.
void at_each_system_reading(std::function<void()> act);

}  // namespace quorl::test
