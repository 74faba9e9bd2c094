#pragma once

#include "perf/figures.h"
#include "perf/settings.h"

namespace perf {

/// The system calls of the exchange and of the floor in each flow of orders, counted by strace and
/// printed side by side. A failure if they differ: then the floor is none. Turns without work,
/// which come and go by the clock, are left out of the comparison.
void compare_call_counts(const Settings& settings, Report& report);

}  // namespace perf
