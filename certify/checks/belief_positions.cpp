#include <string>
#include <utility>
#include <vector>

#include "certify/checks/belief_checks.h"
#include "certify/checks/belief_file.h"
#include "certify/checks/position_truth.h"

namespace certify {
namespace {

constexpr const char* POSITIONS_FILE = "positions.csv";

class BeliefPositions : public Check {
 public:
  BeliefPositions(const char* name, const CheckContext& context)
      : Check(name), truth_(context.plan.allow.grace) {}

  void on_event(const Event& event) override {
    truth_.on_event(event);
    const auto* taken = std::get_if<BeliefTaken>(&event.what);
    if (taken != nullptr) taken_.emplace_back(event.at, *taken);
  }

  // Decisions come late, so all is compared at the end.
  void finish(TimeNs) override {
    for (const auto& [at, taken] : taken_) {
      if (const auto content = read_belief(taken, POSITIONS_FILE)) {
        compare(read_positions(*content), taken, at);
      }
    }
  }

 private:
  void compare(const PositionsFile& file, const BeliefTaken& taken, TimeNs at) {
    seen();
    for (const std::string& flaw : file.flaws) {
      blame({at, name_of(taken, POSITIONS_FILE) + ", " + flaw, {}});
    }
    if (!truth_.consistent()) {
      return remark("order events and reports do not fit together: positions are not compared");
    }
    uint64_t untold = 0;
    for (PositionFinding& finding : truth_.compare(file.rows, at)) {
      if (finding.kind == PositionFinding::Kind::UNTOLD) ++untold;
      if (finding.kind != PositionFinding::Kind::WRONG) continue;
      blame(
          {at, name_of(taken, POSITIONS_FILE) + ": " + finding.what, std::move(finding.evidence)});
    }
    if (untold > 0) {
      remark(std::to_string(untold) +
             " position(s) differ from the truth by reports that had not " +
             "reached the client; of those that never did recovery.reports tells");
    }
  }

  PositionTruth truth_;
  std::vector<std::pair<TimeNs, BeliefTaken>> taken_;
};

}  // namespace

std::unique_ptr<Check> make_belief_positions_check(const char* name, const CheckContext& context) {
  return std::make_unique<BeliefPositions>(name, context);
}

}  // namespace certify
