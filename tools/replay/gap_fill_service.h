#pragma once

#include <cstdint>

#include "tools/replay/round.h"

namespace tools {

/// Answers gap-fill requests on a UDP port, from what a round has sent so far.
class GapFillService {
 public:
  /// Takes the port for itself alone. Throws client::SystemError.
  explicit GapFillService(uint16_t port);
  GapFillService(const GapFillService&) = delete;
  GapFillService& operator=(const GapFillService&) = delete;
  ~GapFillService();

  int fd() const { return fd_; }

  /// Answers all requests that wait.
  void serve(const Round& round);

  uint64_t requests() const { return requests_; }  // well-formed ones
  uint64_t refused() const { return refused_; }
  uint64_t messages() const { return messages_; }  // sent again

 private:
  int fd_;
  uint64_t requests_ = 0;
  uint64_t refused_ = 0;
  uint64_t messages_ = 0;
};

}  // namespace tools
