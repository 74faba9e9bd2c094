#include <string>
#include <utility>
#include <vector>

#include "certify/checks/belief_checks.h"
#include "certify/checks/belief_file.h"
#include "certify/checks/event_truth.h"

namespace certify {
namespace {

constexpr const char* EVENTS_FILE = "events.jsonl";

class BeliefEvents : public Check {
 public:
  BeliefEvents(const char* name, const CheckContext& context)
      : Check(name), truth_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    truth_.on_event(event);
    const auto* taken = std::get_if<BeliefTaken>(&event.what);
    if (taken != nullptr) taken_.emplace_back(event.at, *taken);
  }

  // Decisions come late, so all is compared at the end.
  void finish(TimeNs) override {
    for (const auto& [at, taken] : taken_) {
      if (const auto content = read_belief(taken, EVENTS_FILE)) {
        compare(read_events(*content), taken, at);
      }
    }
  }

 private:
  void compare(const EventsFile& file, const BeliefTaken& taken, TimeNs at) {
    seen();
    for (const std::string& flaw : file.flaws) {
      blame({at, name_of(taken, EVENTS_FILE) + ", " + flaw, {}});
    }
    if (!truth_.consistent()) {
      return remark("order events and reports do not fit together: events are not compared");
    }
    uint64_t untold = 0;
    for (EventFinding& finding : truth_.compare(file, at)) {
      untold += finding.untold;
      if (finding.wrong.empty()) continue;
      blame({at,
             name_of(taken, EVENTS_FILE) + ": the events of " + finding.order +
                 " are not those that the exchange decided",
             std::move(finding.wrong)});
    }
    if (untold > 0) {
      remark(std::to_string(untold) + " event(s) are missing whose reports had not reached the " +
             "client; of those that never did recovery.reports tells");
    }
  }

  EventTruth truth_;
  std::vector<std::pair<TimeNs, BeliefTaken>> taken_;
};

}  // namespace

std::unique_ptr<Check> make_belief_events_check(const char* name, const CheckContext& context) {
  return std::make_unique<BeliefEvents>(name, context);
}

}  // namespace certify
