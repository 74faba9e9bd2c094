#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "certify/report/run_result.h"

namespace certify {

/// "passed", "failed", "proves nothing", "broken".
const char* word_of(RunResult::Status status);
/// "passed", "failed", "not seen", "skipped".
const char* word_of(Outcome outcome);

/// What a good client does, by the check's table; empty for a check that is in none.
std::string meaning_of(const std::string& check);

/// "12.3 s".
std::string about_seconds(TimeNs time);

/// "1 fault", "3 faults".
std::string counted(uint64_t count, const std::string& noun);

/// How many verdicts of each kind.
struct Tally {
  size_t failed = 0;
  size_t passed = 0;
  size_t not_seen = 0;
  size_t skipped = 0;
};
Tally tally_of(const RunResult& run);

/// Those with this outcome, in the order of the checks.
std::vector<const Verdict*> verdicts_with(const RunResult& run, Outcome outcome);

/// Why a run that is not judged by its checks alone proves nothing or broke, a sentence each: what
/// was required and did not come about, steps that were not done, what broke.
std::vector<std::string> doubts_of(const RunResult& run);

}  // namespace certify
