#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>

// Every socket call that the exchange makes, and nothing else talks to the network. A test may
// link sockets of its own in place of these. Unless said otherwise a result is the system's own,
// errno included.

namespace quorl {

/// A blocking socket of IPv4.
int open_udp_socket();
int open_tcp_socket();

/// Sets SO_REUSEADDR and binds to `address` (host byte order) and `port`. False, with errno, if
/// the bind fails.
bool bind_reusable(int fd, in_addr_t address, uint16_t port);

/// False, with errno, on failure.
bool start_listening(int fd, int backlog);

/// The next connection that waits, or -1.
int accept_connection(int listen_fd);

/// Results are not looked at, here and in the next two: an option that cannot be set stays as it
/// is.
void set_nonblocking(int fd);
/// Each send of a TCP socket goes out at once.
void set_no_delay(int fd);
/// Multicast leaves by `interface`, reaches this host too, and no router passes it on.
void set_multicast_source(int fd, in_addr interface);

ssize_t receive(int fd, void* bytes, size_t size);
/// As recvfrom; `from` is the sender.
ssize_t receive_datagram(int fd, void* bytes, size_t size, sockaddr_in& from);

/// One send that raises no signal.
ssize_t send_bytes(int fd, const void* bytes, size_t size);
/// One sendto, whose result nobody looks at: a datagram that cannot be sent counts as sent.
void send_datagram(int fd, const void* bytes, size_t size, const sockaddr_in& to);

/// As poll.
int wait_for_events(std::span<pollfd> set, int timeout_ms);

void close_socket(int fd);

/// Closes the socket that it has been given, if any, at its end.
struct OwnedSocket {
  explicit OwnedSocket(int owned = -1) : fd(owned) {}
  OwnedSocket(const OwnedSocket&) = delete;
  OwnedSocket& operator=(const OwnedSocket&) = delete;
  ~OwnedSocket() {
    if (fd >= 0) close_socket(fd);
  }

  int fd;  // -1 for none
};

}  // namespace quorl
