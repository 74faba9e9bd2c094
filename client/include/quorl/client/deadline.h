#pragma once

#include <chrono>

namespace quorl::client {

/// A moment of the steady clock at which waiting ends. Every wait in this library takes one, or a
/// duration that makes one, so that no test can hang.
class Deadline {
 public:
  static Deadline after(std::chrono::milliseconds span) {
    return Deadline(std::chrono::steady_clock::now() + span);
  }

  bool expired() const { return std::chrono::steady_clock::now() >= moment_; }

  /// Whole milliseconds left, rounded up so that a poll does not spin; 0 once expired.
  int remaining_ms() const;

 private:
  explicit Deadline(std::chrono::steady_clock::time_point moment) : moment_(moment) {}

  std::chrono::steady_clock::time_point moment_;
};

/// How long a wait for the simulator lasts when the caller names no other time. Far above what a
/// loaded machine needs: it is reached only when something is wrong.
constexpr std::chrono::milliseconds PATIENCE{60000};

}  // namespace quorl::client
