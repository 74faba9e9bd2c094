#pragma once

#include <chrono>

namespace tools {

/// While this lives, Ctrl-C and SIGTERM end nothing but are there to be read.
class StopSignals {
 public:
  /// Throws SystemError.
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals();

  /// Readable once one has come.
  int fd() const { return fd_; }

  /// Waits that long, or until one comes, and says whether one has.
  bool come_within(std::chrono::milliseconds span) const;

 private:
  int fd_;
};

}  // namespace tools
