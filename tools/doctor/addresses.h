#pragma once

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

// Rules. They open sockets and send nothing.
Findings odd_group(const Start& start);
Findings odd_interface(const Start& start);
Findings unreachable_group(const Start& start);

}  // namespace tools::doctor
