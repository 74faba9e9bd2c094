#include "tests/certify/checks/support/session_verdicts.h"

#include <stdexcept>

namespace certify {
namespace {

constexpr size_t PREFIX = 8;  // "session."

}  // namespace

SessionVerdicts::SessionVerdicts(const Dialogue& dialogue, const Plan& plan) {
  const CheckContext context{.plan = plan, .feed_session = 0, .market_truth = {}};
  for (const CheckKind& kind : session_checks()) {
    const auto check = kind.make(kind.name, context);
    for (const Event& event : dialogue.events()) check->on_event(event);
    check->finish(dialogue.now());
    verdicts_.push_back(check->verdict());
  }
}

std::set<std::string> SessionVerdicts::with(Outcome outcome) const {
  std::set<std::string> names;
  for (const Verdict& verdict : verdicts_) {
    if (verdict.outcome == outcome) names.insert(verdict.check.substr(PREFIX));
  }
  return names;
}

const Verdict& SessionVerdicts::verdict(const std::string& check) const {
  for (const Verdict& verdict : verdicts_) {
    if (verdict.check == "session." + check) return verdict;
  }
  throw std::invalid_argument("no check session." + check);
}

Outcome SessionVerdicts::of(const std::string& check) const { return verdict(check).outcome; }
uint64_t SessionVerdicts::faults(const std::string& check) const {
  return verdict(check).fault_count;
}

std::string SessionVerdicts::text() const {
  std::string text;
  for (const Verdict& verdict : verdicts_) {
    for (const Fault& fault : verdict.faults) {
      text += verdict.check + ": " + fault.what + "\n";
      for (const std::string& line : fault.evidence) text += "    " + line + "\n";
    }
  }
  return text;
}

}  // namespace certify
