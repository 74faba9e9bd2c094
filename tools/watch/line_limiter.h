#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace tools {

/// Lets through at most so many lines in any second, and counts the others. Time is passed in and
/// never goes back.
class LineLimiter {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  struct LeftOut {
    uint64_t lines = 0;
    uint64_t findings = 0;  // of these
  };

  /// 0: without a limit.
  explicit LineLimiter(uint32_t lines_per_second) : most_(lines_per_second) {}

  /// Whether a line goes out now. If not it is counted as left out.
  bool admits(Moment now, bool is_finding);

  /// What is to be said of the lines left out, which is one of the lines let through: a second
  /// after the first of them at the earliest.
  std::optional<LeftOut> due(Moment now);
  /// When that will be; nothing if no line has been left out.
  std::optional<Moment> next_due() const;
  /// What is to be said at the end.
  std::optional<LeftOut> rest();

 private:
  bool takes_place(Moment now);

  uint32_t most_;
  std::deque<Moment> admitted_;  // those of the last second
  LeftOut left_out_;
  Moment first_left_out_;
};

}  // namespace tools
