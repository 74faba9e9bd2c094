#include "certify/plan/player.h"

#include <algorithm>

#include "certify/plan/condition.h"
#include "certify/plan/words.h"

namespace certify {
namespace {

using Counters = std::map<std::string, uint64_t>;

uint64_t value_of(const std::string& name, const Counters& counters) {
  const auto found = counters.find(name);
  return found == counters.end() ? 0 : found->second;
}

bool compares(const Term& term, const Counters& counters) {
  const uint64_t value = value_of(term.name, counters);
  if (term.comparison == ">=") return value >= term.value;
  if (term.comparison == ">") return value > term.value;
  if (term.comparison == "=") return value == term.value;
  if (term.comparison == "<") return value < term.value;
  return value <= term.value;
}

bool is_time(const Term& term) {
  return term.kind == Term::Kind::QUIET || term.kind == Term::Kind::AFTER ||
         term.kind == Term::Kind::AT;
}

}  // namespace

Milliseconds PlanPlayer::passes_at(const Term& term, const Moment& moment) const {
  if (term.kind == Term::Kind::QUIET) return moment.last_activity + term.time;
  if (term.kind == Term::Kind::AFTER) return last_done_ + term.time;
  return term.time;
}

bool PlanPlayer::holds(const Term& term, const Moment& moment) const {
  if (term.kind == Term::Kind::COUNTER) return compares(term, moment.counters);
  if (term.kind == Term::Kind::CLIENT_ENDED) return moment.client_ended;
  return moment.now >= passes_at(term, moment);
}

bool PlanPlayer::holds(const Condition& condition, const Moment& moment) const {
  return std::all_of(condition.begin(), condition.end(),
                     [&](const Term& term) { return holds(term, moment); });
}

std::vector<const Step*> PlanPlayer::due(const Moment& moment) {
  std::vector<const Step*> due;
  while (next_step_ < plan_.steps.size() && holds(plan_.steps[next_step_].when, moment)) {
    due.push_back(&plan_.steps[next_step_++]);
    last_done_ = moment.now;
  }
  return due;
}

std::optional<std::string> PlanPlayer::ended(const Moment& moment) const {
  const bool all_done = next_step_ == plan_.steps.size();
  if (all_done && !plan_.end.empty() && holds(plan_.end, moment)) {
    return "the plan: " + condition_text(plan_.end);
  }
  if (moment.client_ended) return "the client ended";
  if (moment.now >= plan_.limit) return "the limit of " + time_to_text(plan_.limit);
  return std::nullopt;
}

std::optional<Milliseconds> PlanPlayer::look_at(const Moment& moment) const {
  const bool all_done = next_step_ == plan_.steps.size();
  const Condition& awaited = all_done ? plan_.end : plan_.steps[next_step_].when;
  std::optional<Milliseconds> next;
  const auto consider = [&](Milliseconds time) {
    if (time > moment.now && (!next || time < *next)) next = time;
  };
  consider(plan_.limit);
  for (const Term& term : awaited) {
    if (is_time(term)) consider(passes_at(term, moment));
  }
  return next;
}

std::vector<std::string> PlanPlayer::unmet(const Counters& counters) const {
  std::vector<std::string> unmet;
  for (const Condition& condition : plan_.require) {
    std::string values;
    bool met = true;
    for (const Term& term : condition) {
      met = met && compares(term, counters);
      values += (values.empty() ? "" : ", ") + term.name + " is " +
                std::to_string(value_of(term.name, counters));
    }
    if (!met) unmet.push_back(condition_text(condition) + " (" + values + ")");
  }
  return unmet;
}

std::vector<std::string> PlanPlayer::not_done() const {
  std::vector<std::string> left;
  for (size_t i = next_step_; i < plan_.steps.size(); ++i) {
    const Step& step = plan_.steps[i];
    const std::string when = step.when.empty() ? "" : "when " + condition_text(step.when) + ", ";
    left.push_back("line " + std::to_string(step.line) + ": step " + when + step.action);
  }
  return left;
}

}  // namespace certify
