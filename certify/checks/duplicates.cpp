#include "certify/checks/duplicates.h"

#include <string>
#include <utility>
#include <vector>

#include "certify/checks/belief_file.h"
#include "certify/checks/event_truth.h"
#include "certify/checks/position_truth.h"

namespace certify {
namespace {

class Duplicates : public Check {
 public:
  Duplicates(const char* name, const CheckContext& context)
      : Check(name), positions_(context.plan.allow.grace), events_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    positions_.on_event(event);
    events_.on_event(event);
    const auto* taken = std::get_if<BeliefTaken>(&event.what);
    if (taken != nullptr) taken_.emplace_back(event.at, *taken);
  }

  void finish(TimeNs) override {
    if (!positions_.consistent()) return;  // belief says so
    for (const auto& [at, taken] : taken_) {
      if (const auto content = read_belief(taken, "positions.csv")) {
        look_at_positions(read_positions(*content), taken, at);
      }
      if (const auto content = read_belief(taken, "events.jsonl")) {
        look_at_events(read_events(*content), taken, at);
      }
    }
  }

 private:
  void look_at_positions(const PositionsFile& file, const BeliefTaken& taken, TimeNs at) {
    for (PositionFinding& finding : positions_.compare(file.rows, at)) {
      if (finding.repeated) seen();
      if (finding.kind != PositionFinding::Kind::TAKEN_TWICE) continue;
      blame({at,
             name_of(taken, "positions.csv") + ": " + finding.what +
                 ", too much by what was sent again with 43=Y",
             std::move(finding.evidence)});
    }
  }

  void look_at_events(const EventsFile& file, const BeliefTaken& taken, TimeNs at) {
    for (EventFinding& finding : events_.compare(file, at)) {
      if (finding.repeated) seen();
      if (finding.twice.empty()) continue;
      blame({at,
             name_of(taken, "events.jsonl") + ": events of " + finding.order +
                 " were taken again when they were sent again with 43=Y",
             std::move(finding.twice)});
    }
  }

  PositionTruth positions_;
  EventTruth events_;
  std::vector<std::pair<TimeNs, BeliefTaken>> taken_;
};

}  // namespace

std::unique_ptr<Check> make_duplicates_check(const char* name, const CheckContext& context) {
  return std::make_unique<Duplicates>(name, context);
}

}  // namespace certify
