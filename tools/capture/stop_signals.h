#pragma once

namespace tools {

/// SIGINT and SIGTERM as something to poll for, from construction on. For the main thread, before
/// others begin.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals();

  int fd() const { return fd_; }  // readable once one has come
  bool came();

 private:
  int fd_;
  bool came_ = false;
};

}  // namespace tools
