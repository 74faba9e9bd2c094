#pragma once

#include <optional>
#include <vector>

#include "certify/record/events.h"

namespace certify {

/// A time in which the exchange's FIX side said nothing, as it was ordered or announced.
struct Silence {
  TimeNs from = 0;
  TimeNs until = 0;
};

/// The exchange's silences: of the command `lapse` and of a scenario's lapse_ms, which is announced
/// on standard error only.
class Silences {
 public:
  void on_event(const Event& event);

  /// The latest one that has any time in common with that between the two.
  std::optional<Silence> within(TimeNs from, TimeNs until) const;
  /// When the latest one ends or ended; 0: there was none.
  TimeNs last_end() const { return list_.empty() ? 0 : list_.back().until; }

 private:
  void begin(TimeNs at, uint64_t ms);

  std::vector<Silence> list_;  // in order; a new one ends the one before
};

}  // namespace certify
