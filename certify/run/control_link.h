#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "certify/record/time.h"
#include "quorl/client/stats_text.h"
#include "quorl/client/udp.h"

namespace certify {

/// Speaks to the control port of an exchange without waiting: one command at a time is on its way,
/// so that each reply is that of the command which went before it.
class ControlLink {
 public:
  explicit ControlLink(uint16_t port);  // throws quorl::client::SystemError

  int fd() const { return socket_.fd(); }

  void send(const std::string& command, TimeNs now);
  bool idle() const { return waiting_.empty(); }

  struct Reply {
    std::string command;
    std::string text;  // without its line end
  };
  /// The replies that have come.
  std::vector<Reply> take(TimeNs now);

  /// How long the command that is on its way has waited; 0 if there is none.
  TimeNs waits_since(TimeNs now) const { return waiting_.empty() ? 0 : now - sent_at_; }

  /// The exchange is gone: what waits will not be answered.
  void give_up() { waiting_.clear(); }

 private:
  void send_first(TimeNs now);

  uint16_t port_;
  quorl::client::UdpSocket socket_;
  std::deque<std::string> waiting_;  // the first is on its way
  TimeNs sent_at_ = 0;
};

/// The counters in a reply to `stats`, by the names that plans use; nothing if it is none.
std::optional<std::map<std::string, uint64_t>> counters_in(const std::string& reply);

}  // namespace certify
