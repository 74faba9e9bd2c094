#pragma once

#include <array>
#include <cstdint>

#include "certify/record/time.h"

namespace certify {

/// The median and the most of any number of spans, in fixed memory.
class DelayFigures {
 public:
  /// The clock of the kernel's arrival stamps: nanoseconds since the Unix epoch, which may step.
  static int64_t clock_ns();

  void add(TimeNs span);  // below 0 counts as 0: the clock has stepped

  /// Right to one part in 16; 0 if there is nothing.
  TimeNs median() const;
  TimeNs most() const { return most_; }
  uint64_t count() const { return count_; }

 private:
  static constexpr unsigned STEPS = 16;  // classes within each doubling
  std::array<uint64_t, STEPS * 64> classes_{};
  uint64_t count_ = 0;
  TimeNs most_ = 0;
};

}  // namespace certify
