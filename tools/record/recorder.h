#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/capture/capture_writer.h"
#include "tools/capture/endpoint.h"
#include "tools/record/group_listener.h"
#include "tools/record/heard.h"
#include "tools/stop_signal.h"

namespace tools {

struct RecordOptions {
  std::string file;  // "-" is standard output
  std::string group;
  uint16_t port = 0;
  std::string interface = "127.0.0.1";
  std::optional<std::chrono::nanoseconds> span;
  std::optional<uint64_t> count;  // packets
  bool force = false;
};

/// A line on standard error in the program's name.
void say(const std::string& text);

/// Takes what comes to a group into a file.
class Recorder {
 public:
  /// The options must outlive the recorder. Throws FileExists, CannotWrite, and client::SystemError
  /// if the group cannot be joined: no file has been made then.
  explicit Recorder(const RecordOptions& options);

  /// Until a signal, the time or the count ends it; says what was heard. Returns the exit status.
  /// Throws client::SystemError if nothing more can be received.
  int run();

 private:
  using Clock = std::chrono::steady_clock;

  bool counted_out() const { return options_.count && heard_.packets() >= *options_.count; }
  bool over() const;
  void wait() const;
  bool take_one();
  bool take_what_waits();
  void take_the_rest();
  void sum_up() const;

  const RecordOptions& options_;
  StopSignal signal_;
  Endpoint group_;
  GroupListener listener_;
  CaptureWriter file_;
  Heard heard_;
  std::optional<Clock::time_point> end_;
};

}  // namespace tools
