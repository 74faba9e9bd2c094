#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace certify {

/// A file descriptor, closed with the object; -1 if there is none.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  int get() const { return fd_; }
  bool open() const { return fd_ >= 0; }
  void close();
  /// Closes a TCP connection by a reset instead of an orderly end.
  void reset();

 private:
  int fd_;
};

/// All are non-blocking, not inherited by programs that are started, and stamp what arrives.

/// Listens on 127.0.0.1 and this port, 0 for one that is free. Throws client::SystemError.
Descriptor listening_socket(uint16_t port);
/// Bound to 127.0.0.1 and this port, 0 for one that is free. Throws client::SystemError.
Descriptor bound_datagram_socket(uint16_t port);
/// None, and errno, if the system has none left.
Descriptor stream_socket();
/// Connected to 127.0.0.1 and this port; none, and errno, if the system has none left.
Descriptor datagram_socket_to(uint16_t port);

/// Begins to connect to a port of 127.0.0.1. False, and errno, if that failed at once.
bool begin_connect(const Descriptor& socket, uint16_t port);
/// How it came out: 0 or an errno. Forgets it.
int pending_error(const Descriptor& socket);
/// A port with nobody on it may have been given to the very socket that connects to it.
bool is_connected_to_itself(const Descriptor& socket);

/// For the taps' side of every connection: no waiting for more to send, and small buffers, so that
/// the pressure of who does not read is felt through.
void prepare_stream(const Descriptor& socket);

uint16_t port_of(const Descriptor& socket);

/// What one read brought.
struct Received {
  ssize_t size = 0;     // below 0: nothing, errno says why
  int64_t arrived = 0;  // when the kernel had it, by DelayFigures::clock_ns
  sockaddr_in from{};   // of datagrams
};
Received receive(const Descriptor& socket, char* into, size_t room);

/// The number of bytes taken, or below 0 and errno. No signal comes of it.
ssize_t send(const Descriptor& socket, std::string_view bytes);
ssize_t send_to(const Descriptor& socket, std::string_view bytes, const sockaddr_in& to);

}  // namespace certify
