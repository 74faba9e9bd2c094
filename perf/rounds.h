#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "perf/figures.h"
#include "perf/settings.h"

namespace perf {

/// Runs `work(build, round)` for each round and in it for each build, whose order takes turns, so
/// that none always finds the machine as the other has left it. Stops early, behind a whole round,
/// once `budget` is spent: what is slow is measured fewer times.
template <typename Work>
void in_rounds(const Settings& settings, Report& report, const std::string& name,
               std::chrono::seconds budget, Work&& work) {
  const auto began = std::chrono::steady_clock::now();
  const size_t builds = settings.builds.size();
  for (unsigned round = 0; round < settings.rounds; ++round) {
    for (size_t i = 0; i < builds; ++i) {
      const Build& build = settings.builds[(i + round) % builds];
      report.attempt(name, [&] { work(build, round); });
    }
    if (std::chrono::steady_clock::now() - began > budget) return;
  }
}

/// Enough for every round of what is not slow.
constexpr std::chrono::seconds USUAL_BUDGET{20};

}  // namespace perf
