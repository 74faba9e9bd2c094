#pragma once

#include <chrono>
#include <optional>

namespace tools {

/// Decides when a silence is worth a line: after three seconds, as the exchange sends a heartbeat
/// after one, and then each time it has lasted twice as long. Time is passed in.
class SilenceWatch {
 public:
  using Moment = std::chrono::steady_clock::time_point;
  using Span = std::chrono::steady_clock::duration;

  explicit SilenceWatch(Moment start) : since_(start) {}

  /// A packet has come. Returns how long the silence was if it has been told of.
  std::optional<Span> heard(Moment now);

  /// When the next line about this silence is due.
  Moment next_due() const { return since_ + threshold_; }
  /// The length to tell of, if a line is due; the next one is then due later.
  std::optional<Span> tell_if_due(Moment now);

 private:
  static constexpr std::chrono::seconds FIRST{3};

  Moment since_;
  Span threshold_ = FIRST;
};

}  // namespace tools
