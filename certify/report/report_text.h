#pragma once

#include <iosfwd>

#include "certify/report/run_result.h"

namespace certify {

/// report.txt: the verdict, what makes it doubtful, each check with its faults and their evidence
/// in full, then how the run went. Plain UTF-8 without control characters, whatever the client
/// sent; lines are not folded.
void write_report_text(const RunResult& run, std::ostream& out);

}  // namespace certify
