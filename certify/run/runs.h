#pragma once

#include <vector>

#include "certify/report/run_result.h"
#include "certify/run/run.h"
#include "certify/run/run_options.h"
#include "tools/stop_signal.h"

namespace certify {

/// Hears of many runs, from several threads, but from one at a time.
class RunsWatcher : public RunWatcher {
 public:
  virtual void on_end(const RunResult& result) = 0;
};

/// Makes all the runs, `jobs` of them at a time, each in a thread of its own. In order of the
/// options; those that a signal kept from beginning are broken.
std::vector<RunResult> make_runs(const std::vector<RunOptions>& all, unsigned jobs,
                                 const tools::StopSignal& stop, RunsWatcher& watcher);

}  // namespace certify
