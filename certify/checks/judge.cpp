#include <string>
#include <utility>
#include <vector>

#include "certify/checks/check.h"

namespace certify {

std::vector<CheckKind> all_checks() {
  std::vector<CheckKind> kinds;
  for (const auto group :
       {session_checks(), order_checks(), recovery_checks(), feed_checks(), belief_checks()}) {
    kinds.insert(kinds.end(), group.begin(), group.end());
  }
  return kinds;
}

Judge::Judge(const CheckContext& context) : plan_(context.plan) {
  for (const CheckKind& kind : all_checks()) checks_.push_back(kind.make(kind.name, context));
}

void Judge::on_event(const Event& event) {
  for (const auto& check : checks_) check->on_event(event);
}

std::vector<Verdict> Judge::finish(TimeNs at) {
  std::vector<Verdict> verdicts;
  for (const auto& check : checks_) {
    check->finish(at);
    Verdict verdict = check->verdict();
    if (plan_.skip.contains(verdict.check)) verdict.outcome = Outcome::SKIPPED;
    verdicts.push_back(std::move(verdict));
  }
  return verdicts;
}

}  // namespace certify
