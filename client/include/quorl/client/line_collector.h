#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "quorl/client/deadline.h"

namespace quorl::client {

/// A line of the simulator's standard error, without its line end.
struct LogLine {
  std::string text;
  std::chrono::steady_clock::time_point arrived;
};

/// Reads a pipe to its end on a thread of its own, so that a busy test never lets the pipe fill up
/// and hold the simulator.
class LineCollector {
 public:
  /// Takes over `fd`.
  explicit LineCollector(int fd);
  LineCollector(const LineCollector&) = delete;
  LineCollector& operator=(const LineCollector&) = delete;
  ~LineCollector();  // waits for the thread: the writing end must be closed by then

  using Predicate = std::function<bool(const std::string&)>;

  /// All lines so far, in order of arrival. A last line that lacks its line end shows at the end of
  /// the pipe.
  std::vector<LogLine> lines() const;
  size_t count() const;
  bool ended() const;

  /// The first line at or after index `from` that satisfies `wanted`. Throws Timeout, quoting the
  /// latest lines, at the deadline, or earlier if the pipe ends without it; `sought` names it.
  std::string wait_for(const Predicate& wanted, std::string_view sought, size_t from,
                       Deadline deadline) const;

  void wait_end(Deadline deadline) const;

 private:
  void read_to_end();
  void take(std::string_view piece);
  std::string quote_latest() const;

  int fd_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<LogLine> lines_;
  std::string partial_;
  bool ended_ = false;
  std::thread thread_;
};

}  // namespace quorl::client
