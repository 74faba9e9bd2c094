#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "certify/plan/plan.h"

namespace certify {

/// The run at one moment, as conditions see it.
struct Moment {
  Milliseconds now{0};            // since the client was started; never runs backwards
  Milliseconds last_activity{0};  // when last anything but heartbeats passed the taps; 0: never
  std::map<std::string, uint64_t> counters;  // by the names of counter_names(); a missing one is 0
  bool client_ended = false;
};

/// Plays a plan: says what is due, and does none of it. It has no clock and no counters of its own,
/// so it knows what moments it is shown and nothing between them: show it one whenever something
/// has been counted and when `look_at()` says so.
class PlanPlayer {
 public:
  /// The plan must live as long.
  explicit PlanPlayer(const Plan& plan) : plan_(plan) {}

  /// The steps to be done now, in order; they count as done at `moment.now`. The steps wait for
  /// each other: a step is looked at once those before it are done.
  std::vector<const Step*> due(const Moment& moment);

  /// Why the run is over: "the plan: logons >= 2 and quiet for 2s", "the client ended", "the limit
  /// of 60s". To be asked behind due(). The plan's end is not looked at before all steps are done,
  /// and its "after" counts from the last of them.
  std::optional<std::string> ended(const Moment& moment) const;

  /// When, on the same clock, a time of the plan passes next that nothing else would show, the
  /// limit included; later than `moment.now`.
  std::optional<Milliseconds> look_at(const Moment& moment) const;

  /// Requirements that do not hold: "race_fills >= 2 (race_fills is 1)".
  std::vector<std::string> unmet(const std::map<std::string, uint64_t>& counters) const;
  /// Steps whose turn or condition never came: "line 5: step when race_fills >= 2, disconnect".
  std::vector<std::string> not_done() const;

 private:
  bool holds(const Term& term, const Moment& moment) const;
  bool holds(const Condition& condition, const Moment& moment) const;
  Milliseconds passes_at(const Term& term, const Moment& moment) const;

  const Plan& plan_;
  size_t next_step_ = 0;
  Milliseconds last_done_{0};
};

}  // namespace certify
