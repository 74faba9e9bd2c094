#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "quorl/client/bytes.h"
#include "tools/replay/round.h"
#include "tools/replay/snap_answer.h"

namespace tools {

/// Answers DEEP SNAP requests on a TCP port: one connection, one request, one reply. A peer that
/// reads slowly holds up nobody else.
class SnapService {
 public:
  using Clock = std::chrono::steady_clock;

  /// Throws client::SystemError if the port cannot be listened on.
  explicit SnapService(uint16_t port);
  SnapService(const SnapService&) = delete;
  SnapService& operator=(const SnapService&) = delete;
  ~SnapService();

  /// What to poll for.
  void add_to(std::vector<pollfd>& fds) const;
  bool has_connections() const { return !connections_.empty(); }

  /// Takes what has come, answers what is whole, sends what can be sent, and closes what has not
  /// become whole within 10 seconds.
  void serve(Round& round);

  std::function<void(const SnapAnswer&)> on_answer = [](const SnapAnswer&) {};
  uint64_t images() const { return images_; }

 private:
  struct Connection {
    int fd = -1;  // -1 once closed
    Clock::time_point accepted{};
    quorl::client::Bytes inbound;
    quorl::client::Bytes reply;  // empty until the request is whole
    size_t sent = 0;
  };

  void accept_all();
  void receive(Connection& connection, Round& round);
  void answer(Connection& connection, quorl::client::ByteView frame, Round& round);
  static void send(Connection& connection);
  static void close(Connection& connection);

  int listener_;
  std::vector<Connection> connections_;
  uint64_t images_ = 0;
};

}  // namespace tools
