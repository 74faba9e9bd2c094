#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "quorl/client/deadline.h"
#include "quorl/client/stats_text.h"
#include "quorl/client/udp.h"

namespace quorl::client {

/// Speaks to the control port from one socket.
class ControlClient {
 public:
  explicit ControlClient(uint16_t port);

  /// Sends one datagram and returns the reply as it came, its line end included. Throws Timeout.
  std::string command(std::string_view text, std::chrono::milliseconds patience = PATIENCE);

  /// command(), and throws WireError unless the reply is "ok ", the text and a line end.
  void ok(std::string_view text);

  ControlStats stats();

  void send(std::string_view text);
  std::optional<std::string> receive(std::chrono::milliseconds patience);

 private:
  uint16_t port_;
  UdpSocket socket_;
};

}  // namespace quorl::client
