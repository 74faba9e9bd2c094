#pragma once

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

/// What all rules find, subject by subject.
Findings look_at(const Start& start);

}  // namespace tools::doctor
