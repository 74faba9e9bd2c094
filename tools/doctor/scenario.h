#pragma once

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

// Rules.
Findings scenario_words(const Start& start);
Findings scenario_numbers(const Start& start);
Findings scenario_repetitions(const Start& start);
Findings scenario_without_rule(const Start& start);

}  // namespace tools::doctor
