#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"

namespace quorl::client {

/// One connection, closed with the object.
class TcpStream {
 public:
  /// To 127.0.0.1. Throws SystemError if the port refuses.
  static TcpStream connect(uint16_t port, Deadline deadline = Deadline::after(PATIENCE));

  /// To an IPv4 address in dotted quad. Throws WireError if it is none, SystemError if the port
  /// refuses or there is no way there, Timeout if nothing answers.
  static TcpStream connect(const std::string& address, uint16_t port, Deadline deadline);

  TcpStream() = default;  // not connected
  TcpStream(TcpStream&& other) noexcept;
  TcpStream& operator=(TcpStream&& other) noexcept;
  TcpStream(const TcpStream&) = delete;
  TcpStream& operator=(const TcpStream&) = delete;
  ~TcpStream();

  bool open() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  /// Returns false if the peer has closed or reset the connection; throws Timeout if the peer does
  /// not take the bytes in time.
  bool send_all(ByteView bytes, Deadline deadline = Deadline::after(PATIENCE));

  /// Appends what has arrived, waiting for the first byte until the deadline. Returns the number of
  /// bytes appended: 0 at the deadline, and 0 with `ended()` true once the peer has closed or
  /// reset.
  size_t receive(Bytes& into, Deadline deadline);

  /// Everything up to the peer's close. Throws Timeout if the peer does not close in time.
  Bytes receive_to_end(Deadline deadline);

  /// The peer has closed or reset its side.
  bool ended() const { return ended_; }

  void shutdown_write();
  void close();

  /// Closes by a reset instead of an orderly end.
  void abort();

 private:
  explicit TcpStream(int fd) : fd_(fd) {}

  int fd_ = -1;
  bool ended_ = false;
};

}  // namespace quorl::client
