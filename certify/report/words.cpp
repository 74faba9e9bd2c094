#include "certify/report/words.h"

#include <algorithm>
#include <cstdio>

namespace certify {

const char* word_of(RunResult::Status status) {
  switch (status) {
    case RunResult::Status::PASSED:
      return "passed";
    case RunResult::Status::FAILED:
      return "failed";
    case RunResult::Status::PROVES_NOTHING:
      return "proves nothing";
    case RunResult::Status::BROKEN:
      break;
  }
  return "broken";
}

const char* word_of(Outcome outcome) {
  switch (outcome) {
    case Outcome::PASSED:
      return "passed";
    case Outcome::FAILED:
      return "failed";
    case Outcome::SKIPPED:
      return "skipped";
    case Outcome::NOT_SEEN:
      break;
  }
  return "not seen";
}

std::string meaning_of(const std::string& check) {
  for (const CheckKind& kind : all_checks()) {
    if (kind.name == check) return kind.meaning;
  }
  return "";
}

std::string about_seconds(TimeNs time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(time) / SECOND);
  return text;
}

std::string counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

Tally tally_of(const RunResult& run) {
  return {.failed = verdicts_with(run, Outcome::FAILED).size(),
          .passed = verdicts_with(run, Outcome::PASSED).size(),
          .not_seen = verdicts_with(run, Outcome::NOT_SEEN).size(),
          .skipped = verdicts_with(run, Outcome::SKIPPED).size()};
}

std::vector<const Verdict*> verdicts_with(const RunResult& run, Outcome outcome) {
  std::vector<const Verdict*> some;
  for (const Verdict& verdict : run.verdicts) {
    if (verdict.outcome == outcome) some.push_back(&verdict);
  }
  return some;
}

std::vector<std::string> doubts_of(const RunResult& run) {
  std::vector<std::string> doubts;
  if (!run.broken.empty()) doubts.push_back(run.broken);
  for (const std::string& unmet : run.unmet) doubts.push_back("required: " + unmet);
  for (const std::string& step : run.not_done) doubts.push_back("not done: " + step);
  return doubts;
}

}  // namespace certify
