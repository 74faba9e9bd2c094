#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "quorl/client/bytes.h"
#include "tools/capture/endpoint.h"

namespace tools {

struct HeardDatagram {
  uint64_t time_ns = 0;  // when the kernel received it, since the Unix epoch
  Endpoint from;
  quorl::client::Bytes bytes;
};

/// A member of a multicast group.
class GroupListener {
 public:
  /// `interface` is the address of the interface to join on. Throws client::SystemError.
  GroupListener(const Endpoint& group, const std::string& interface);
  GroupListener(const GroupListener&) = delete;
  GroupListener& operator=(const GroupListener&) = delete;
  ~GroupListener();

  int fd() const { return fd_; }

  /// The next datagram that waits, if any. Throws client::SystemError.
  std::optional<HeardDatagram> take();

  /// Datagrams that the kernel threw away because we did not take them in time.
  uint32_t kernel_drops() const { return kernel_drops_; }

 private:
  void set_up(const Endpoint& group, const std::string& interface);

  int fd_ = -1;
  uint32_t kernel_drops_ = 0;
};

}  // namespace tools
