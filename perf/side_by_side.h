#pragma once

#include "perf/figures.h"
#include "perf/settings.h"

namespace perf {

/// Several exchanges on this machine, each on ports and a group of its own, none kept on a CPU:
/// what one costs while the market lives, and what an order costs when all are loaded at once.
void measure_side_by_side(const Settings& settings, Report& report);

}  // namespace perf
