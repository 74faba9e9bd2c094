#include "certify/run/runs.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
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

/// A machine that stands still for so long, as a virtual one may, makes a good client look bad.
constexpr TimeNs DISTURBS = 500 * MILLISECOND;
constexpr unsigned MOST_TRIES = 3;

/// Makes room for another try; what was recorded stays, under another name.
void put_aside(const RunResult& disturbed, unsigned number) {
  std::error_code ignored;
  std::filesystem::rename(disturbed.folder,
                          disturbed.folder + ".disturbed-" + std::to_string(number), ignored);
}

/// A port that was free when it was chosen may be somebody else's a moment later.
bool lost_its_port(const RunResult& result) {
  return result.broken.find("Address already in use") != std::string::npos;
}

RunResult make_run(RunOptions options, const tools::StopSignal& stop, RunsWatcher& watcher) {
  while (true) {
    RunResult result = Run(options, stop, watcher).go();
    // Whoever started the client by hand is not asked to do it again.
    const bool disturbed = result.stood_still >= DISTURBS || lost_its_port(result);
    if (!disturbed || options.number_of_try == MOST_TRIES || options.command.empty() ||
        stop.came()) {
      return result;
    }
    put_aside(result, options.number_of_try++);
  }
}

}  // namespace

std::vector<RunResult> make_runs(const std::vector<RunOptions>& all, unsigned jobs,
                                 const tools::StopSignal& stop, RunsWatcher& watcher) {
  OneAtATime said(watcher);
  std::vector<RunResult> results(all.size());
  std::atomic<size_t> next = 0;
  const auto work = [&] {
    for (size_t i = next++; i < all.size(); i = next++) {
      results[i] = stop.came() ? not_begun(all[i]) : make_run(all[i], stop, said);
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
