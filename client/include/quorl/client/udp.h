#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"

namespace quorl::client {

struct Datagram {
  Bytes bytes;
  std::string from_address;  // dotted quad
  uint16_t from_port = 0;
};

/// One IPv4 UDP socket, closed with the object.
class UdpSocket {
 public:
  /// Bound to 127.0.0.1 and a port the system chooses.
  static UdpSocket on_loopback();

  /// Bound to the wildcard address and `port`, which another SO_REUSEADDR socket may be bound to.
  static UdpSocket on_wildcard(uint16_t port);

  /// A member of `group` through the interface with this address (0.0.0.0: the one that the
  /// system's routes name), bound to the group's address and `port`: other groups on the same port
  /// are not heard. Throws SystemError if no interface has the address.
  static UdpSocket in_group(const std::string& group, uint16_t port,
                            const std::string& interface_address = "127.0.0.1");

  UdpSocket(UdpSocket&& other) noexcept;
  UdpSocket& operator=(UdpSocket&& other) noexcept;
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;
  ~UdpSocket();

  /// To 127.0.0.1. An empty datagram is a datagram.
  void send_to(uint16_t port, ByteView bytes);

  /// The next datagram, whole, or nothing once the deadline has passed.
  std::optional<Datagram> receive(Deadline deadline);

  int fd() const { return fd_; }
  uint16_t port() const;

  /// Datagrams that the kernel threw away because this socket's buffer was full, as told by the
  /// latest datagram received. Not 0 means that a missing packet is our own fault.
  uint32_t kernel_drops() const { return kernel_drops_; }

 private:
  explicit UdpSocket(int fd) : fd_(fd) {}

  int fd_ = -1;
  uint32_t kernel_drops_ = 0;
};

}  // namespace quorl::client
