#pragma once

#include "perf/figures.h"
#include "perf/settings.h"

namespace perf {

/// What an order costs the exchange, as a ratio to the system calls it must make: see
/// floor_server.cpp. One figure for each shape of order flow and each placement.
void measure_against_floor(const Settings& settings, Report& report);

}  // namespace perf
