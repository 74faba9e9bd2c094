#include "certify/run/verdict.h"

#include <algorithm>

#include "tools/exit_status.h"

namespace certify {
namespace {

bool is_failed(const Verdict& verdict) { return verdict.outcome == Outcome::FAILED; }

void add_checks_not_seen(RunResult& result) {
  for (const Verdict& verdict : result.verdicts) {
    if (verdict.outcome == Outcome::NOT_SEEN && result.plan.expect.contains(verdict.check)) {
      result.unmet.push_back("expect " + verdict.check + " (there was no occasion for it)");
    }
  }
}

bool any(std::span<const RunResult> results, RunResult::Status status) {
  return std::any_of(results.begin(), results.end(),
                     [status](const RunResult& result) { return result.status == status; });
}

}  // namespace

void conclude(RunResult& result) {
  add_checks_not_seen(result);
  const bool failed = std::any_of(result.verdicts.begin(), result.verdicts.end(), is_failed);
  if (!result.broken.empty()) {
    result.status = RunResult::Status::BROKEN;
  } else if (failed) {
    result.status = RunResult::Status::FAILED;
  } else if (!result.unmet.empty() || !result.not_done.empty()) {
    result.status = RunResult::Status::PROVES_NOTHING;
  } else {
    result.status = RunResult::Status::PASSED;
  }
}

int exit_status_of(std::span<const RunResult> results) {
  if (any(results, RunResult::Status::FAILED)) return tools::SAID_NO;
  const bool all_passed = std::all_of(results.begin(), results.end(), [](const RunResult& result) {
    return result.status == RunResult::Status::PASSED;
  });
  return all_passed ? tools::GOOD : tools::NOBODY_ANSWERED;
}

}  // namespace certify
