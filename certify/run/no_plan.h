#pragma once

#include <string>
#include <vector>

#include "tools/stop_signal.h"

namespace certify {

/// An exchange for a command that needs one, and nothing else: no taps, no plan, no verdict.
struct NoPlanOptions {
  std::vector<std::string> command;
  std::vector<std::string> market;  // options of quorl
  std::string scenario;             // QUORL_SCENARIO
  std::string exchange;             // path of the program quorl
  std::string out;                  // folder for the exchange's files; empty: none is kept
};

/// Starts the exchange, runs the command with our own streams and ends both. Returns the exit
/// status: that it was well if the command's was 0. Says on standard error what hinders it.
int run_without_plan(const NoPlanOptions& options, const tools::StopSignal& stop);

}  // namespace certify
