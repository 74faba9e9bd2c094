#include "base/sockets.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quorl {

int open_udp_socket() { return ::socket(AF_INET, SOCK_DGRAM, 0); }

int open_tcp_socket() { return ::socket(AF_INET, SOCK_STREAM, 0); }

bool bind_reusable(int fd, in_addr_t address, uint16_t port) {
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = htonl(address);
  to.sin_port = htons(port);
  return ::bind(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

bool start_listening(int fd, int backlog) { return ::listen(fd, backlog) == 0; }

int accept_connection(int listen_fd) { return ::accept(listen_fd, nullptr, nullptr); }

void set_nonblocking(int fd) { ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL, 0) | O_NONBLOCK); }

void set_no_delay(int fd) {
  const int on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void set_multicast_source(int fd, in_addr interface) {
  const uint8_t ttl = 1;
  const uint8_t loop = 1;
  ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
  ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl);
  ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop);
}

ssize_t receive(int fd, void* bytes, size_t size) { return ::recv(fd, bytes, size, 0); }

ssize_t receive_datagram(int fd, void* bytes, size_t size, sockaddr_in& from) {
  socklen_t from_size = sizeof from;
  return ::recvfrom(fd, bytes, size, 0, reinterpret_cast<sockaddr*>(&from), &from_size);
}

ssize_t send_bytes(int fd, const void* bytes, size_t size) {
  return ::send(fd, bytes, size, MSG_NOSIGNAL);
}

void send_datagram(int fd, const void* bytes, size_t size, const sockaddr_in& to) {
  [[maybe_unused]] const auto sent =
      ::sendto(fd, bytes, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

int wait_for_events(std::span<pollfd> set, int timeout_ms) {
  return ::poll(set.data(), set.size(), timeout_ms);
}

void close_socket(int fd) { ::close(fd); }

}  // namespace quorl
