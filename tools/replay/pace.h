#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace tools {

/// When each packet of a recording is due. The schedule hangs on the moment of the first packet
/// alone, so a delay is made up for and does not add up.
class Pace {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  /// `factor` above 0: 2 is twice as fast as it was. Nothing: all packets are due at once.
  explicit Pace(std::optional<double> factor) : factor_(factor) {}

  /// The first packet, recorded at `time_ns`, leaves now.
  void begin(uint64_t time_ns, Moment now);

  /// When a packet recorded at `time_ns` is to leave; the beginning for one that is older than the
  /// first.
  Moment due(uint64_t time_ns) const;

 private:
  std::optional<double> factor_;
  uint64_t first_ns_ = 0;
  Moment begin_{};
};

}  // namespace tools
