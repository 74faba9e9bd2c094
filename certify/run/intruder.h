#pragma once

#include <cstdint>
#include <string>

#include "certify/record/time.h"

namespace certify {

/// Somebody who logs on at the exchange under another's name, past the taps, and goes again. The
/// exchange then expects a higher number than the client will send.
class Intruder {
 public:
  /// Connects to 127.0.0.1 and sends a Logon with the number `seq`. Throws
  /// quorl::client::SystemError.
  Intruder(uint16_t fix_port, const std::string& comp_id, uint64_t seq, TimeNs now);
  Intruder(const Intruder&) = delete;
  Intruder& operator=(const Intruder&) = delete;
  ~Intruder();

  int fd() const { return fd_; }

  /// Whether the exchange has answered, or has not for two seconds; then it goes.
  bool gone(TimeNs now);

 private:
  int fd_ = -1;
  TimeNs came_at_;
};

}  // namespace certify
