#pragma once

#include <sys/types.h>

namespace certify {

/// Whether a process of this group still runs. One that has ended and waits for its parent does
/// not.
bool group_runs(pid_t group);

}  // namespace certify
