#pragma once

#include <cstddef>
#include <iosfwd>
#include <span>

#include "certify/report/run_result.h"

namespace certify {

struct TableStyle {
  size_t width = 0;  // in columns, lines are cut to it; 0: as long as they are
  bool colours = false;
};

/// The table at the end of it all: a line for each plan, what failed first, each failure with the
/// lines that prove it and its time in timeline.txt. What was not seen is counted apart.
void write_summary_table(std::span<const RunResult> runs, const TableStyle& style,
                         std::ostream& out);

}  // namespace certify
