#pragma once

#include "certify/trader/trader.h"

namespace CLI {
class App;
}

namespace certify::trader {

/// The trader's options. Those that are not given are taken from the environment, as a run of
/// certification sets it.
void add_options(CLI::App& line, TraderOptions& options);

/// Behind the reading: belief files that were not named get their usual names in the run's folder,
/// if there is one.
void complete(TraderOptions& options);

/// Trades until it ends. Returns the exit status.
int run_trader(TraderOptions options, Habits& habits);

}  // namespace certify::trader
