#pragma once

#include <span>

#include "certify/report/run_result.h"

namespace certify {

/// Sets the status by all else that is known of the run. What is broken proves nothing either way;
/// a fault that was seen is one, whether or not all of the plan came about.
void conclude(RunResult& result);

/// The exit status of a program that has made these runs: 1 if one failed, else 3 if one proves
/// nothing, else 0.
int exit_status_of(std::span<const RunResult> results);

}  // namespace certify
