#pragma once

#include <chrono>
#include <cstdint>

namespace certify {

/// Nanoseconds since the Unix epoch on a clock that never steps: the system clock as it stood when
/// the program began, and from then on the steady clock. Truth lines and FIX times of one machine
/// can be compared with it.
using TimeNs = int64_t;

constexpr TimeNs MILLISECOND = 1'000'000;
constexpr TimeNs SECOND = 1'000 * MILLISECOND;

TimeNs now_ns();

/// The same of another moment, such as that of a packet's arrival.
TimeNs time_ns(std::chrono::steady_clock::time_point moment);

}  // namespace certify
