#pragma once

namespace tools {

/// Ctrl-C and SIGTERM as something to poll for, so that a tool ends between two of its steps. From
/// construction on they no longer end the process.
class StopSignal {
 public:
  StopSignal();  // throws SystemError
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;
  ~StopSignal();

  /// Readable once a signal has come, and from then on.
  int fd() const { return fd_; }
  bool came() const;

 private:
  int fd_ = -1;
};

}  // namespace tools
