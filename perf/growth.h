#pragma once

#include "perf/figures.h"
#include "perf/settings.h"

// How the exchange's costs grow with what it carries. Each figure is a ratio to the same with
// little, measured in the same round.

namespace perf {

/// A new order, a cancel and a fill-or-kill at a deep level and in a book of many prices.
void measure_depth(const Settings& settings, Report& report);

/// A tick of the walk, by the number of symbols and with client orders resting.
void measure_walk(const Settings& settings, Report& report);

/// Orders after many connections have come and gone, and what a connection itself costs.
void measure_connections(const Settings& settings, Report& report);

/// A turn while exchange-initiated cancels wait, and their firing.
void measure_scheduled_cancels(const Settings& settings, Report& report);

/// Orders with the truth files being written.
void measure_truth(const Settings& settings, Report& report);

/// A ResendRequest for everything.
void measure_resend(const Settings& settings, Report& report);

/// Resident memory per order.
void measure_memory(const Settings& settings, Report& report);

/// From exec to the banner.
void measure_start(const Settings& settings, Report& report);

}  // namespace perf
