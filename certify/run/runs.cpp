#include "certify/run/runs.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

namespace certify {
namespace {

/// Lets one thread at a time speak.
class OneAtATime : public RunsWatcher {
 public:
  explicit OneAtATime(RunsWatcher& watcher) : watcher_(watcher) {}

  void on_ready(const RunOptions& options, const Surroundings& surroundings) override {
    const std::lock_guard lock(mutex_);
    watcher_.on_ready(options, surroundings);
  }
  void on_progress(const Progress& progress) override {
    const std::lock_guard lock(mutex_);
    watcher_.on_progress(progress);
  }
  void on_end(const RunResult& result) override {
    const std::lock_guard lock(mutex_);
    watcher_.on_end(result);
  }

 private:
  RunsWatcher& watcher_;
  std::mutex mutex_;
};

RunResult not_begun(const RunOptions& options) {
  RunResult result;
  result.plan = options.plan;
  result.broken = "stopped by a signal before it began";
  result.seed = seed_of(options);
  return result;
}

}  // namespace

std::vector<RunResult> make_runs(const std::vector<RunOptions>& all, unsigned jobs,
                                 const tools::StopSignal& stop, RunsWatcher& watcher) {
  OneAtATime said(watcher);
  std::vector<RunResult> results(all.size());
  std::atomic<size_t> next = 0;
  const auto work = [&] {
    for (size_t i = next++; i < all.size(); i = next++) {
      results[i] = stop.came() ? not_begun(all[i]) : Run(all[i], stop, said).go();
      said.on_end(results[i]);
    }
  };
  std::vector<std::jthread> threads;
  const size_t count = std::min<size_t>(std::max(jobs, 1U), all.size());
  for (size_t i = 0; i < count; ++i) threads.emplace_back(work);
  threads.clear();  // waits for them
  return results;
}

}  // namespace certify
