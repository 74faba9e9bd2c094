#pragma once

#include <iosfwd>

#include "certify/report/run_result.h"

namespace certify {

/// report.json: all that a run ends with, as one object of
/// share/quorl/schema/certify-report.schema.json. Bytes that are no UTF-8 become U+FFFD.
void write_report_json(const RunResult& run, std::ostream& out);

}  // namespace certify
