#pragma once

#include <iosfwd>
#include <span>

#include "certify/report/run_result.h"

namespace certify {

/// JUnit XML over all runs: a test suite for each plan, in it a test case for each check, and one
/// more, "run", that says whether the run proves anything. What XML cannot hold is shown as \x1b.
void write_junit(std::span<const RunResult> runs, std::ostream& out);

}  // namespace certify
