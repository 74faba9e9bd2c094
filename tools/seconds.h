#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tools {

/// A time as a user writes it, "2" or "0.5" seconds, to the millisecond; nothing if it is no plain
/// number of 0 to a year.
std::optional<std::chrono::milliseconds> seconds_from(const std::string& text);

/// "3 s", "7.25 s", to the millisecond.
std::string seconds_text(std::chrono::milliseconds time);

/// Until then, for poll: rounded up, at least 0 and at most a minute, as a later look finds the
/// rest.
int milliseconds_until(std::chrono::steady_clock::time_point moment);

}  // namespace tools
