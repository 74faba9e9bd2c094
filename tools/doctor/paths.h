#pragma once

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

// Rules. Nothing is opened, and nothing is changed.
Findings unwritable_outputs(const Start& start);
Findings odd_outputs(const Start& start);
Findings odd_temporary_files(const Start& start);
Findings full_disks(const Start& start);
Findings outputs_in_one_file(const Start& start);
Findings outputs_of_others(const Start& start);

}  // namespace tools::doctor
