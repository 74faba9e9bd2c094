#include "certify/tap/sockets.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "certify/tap/delay_figures.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr int DATAGRAM_BUFFER = 8 * 1024 * 1024;  // of replies: a burst must not be lost here
constexpr int MOST_UNSENT = 16 * 1024;  // in the kernel, to who does not read: it counts as had

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

const sockaddr* plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

/// None of the options is one without which the taps would not work.
void set_option(int fd, int level, int option, int value) {
  (void)::setsockopt(fd, level, option, &value, sizeof value);
}

Descriptor make_socket(int type) {
  Descriptor socket(::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (socket.open()) set_option(socket.get(), SOL_SOCKET, SO_TIMESTAMPNS, 1);
  return socket;
}

Descriptor make_datagram_socket() {
  Descriptor socket = make_socket(SOCK_DGRAM);
  if (!socket.open()) return socket;
  set_option(socket.get(), SOL_SOCKET, SO_RCVBUF, DATAGRAM_BUFFER);
  set_option(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, DATAGRAM_BUFFER);  // with privileges
  return socket;
}

void bind_to(const Descriptor& socket, uint16_t port, const char* kind) {
  const sockaddr_in address = loopback(port);
  if (socket.open() && ::bind(socket.get(), plain(address), sizeof address) == 0) return;
  throw client::SystemError("cannot have " + std::string(kind) + " port " + std::to_string(port));
}

int64_t stamp_in(msghdr& message) {
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_TIMESTAMPNS) continue;
    timespec stamp{};
    std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
    return int64_t{stamp.tv_sec} * 1'000'000'000 + stamp.tv_nsec;
  }
  return DelayFigures::clock_ns();  // the kernel begins to stamp a moment after it is told to
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

void Descriptor::close() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

void Descriptor::reset() {
  if (fd_ < 0) return;
  const linger at_once{1, 0};
  (void)::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  close();
}

Descriptor listening_socket(uint16_t port) {
  Descriptor socket = make_socket(SOCK_STREAM);
  set_option(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1);
  bind_to(socket, port, "TCP");
  if (::listen(socket.get(), SOMAXCONN) != 0) throw client::SystemError("listen");
  return socket;
}

Descriptor bound_datagram_socket(uint16_t port) {
  Descriptor socket = make_datagram_socket();
  bind_to(socket, port, "UDP");
  return socket;
}

Descriptor stream_socket() {
  Descriptor socket = make_socket(SOCK_STREAM);
  return socket;
}

Descriptor datagram_socket_to(uint16_t port) {
  Descriptor socket = make_datagram_socket();
  if (socket.open() && !begin_connect(socket, port)) socket.close();
  return socket;
}

bool begin_connect(const Descriptor& socket, uint16_t port) {
  const sockaddr_in address = loopback(port);
  return ::connect(socket.get(), plain(address), sizeof address) == 0 || errno == EINPROGRESS ||
         errno == EINTR;  // it goes on all the same
}

int pending_error(const Descriptor& socket) {
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
  return error;
}

bool is_connected_to_itself(const Descriptor& socket) {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  return ::getpeername(socket.get(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
         ntohs(peer.sin_port) == port_of(socket);
}

void prepare_stream(const Descriptor& socket) {
  set_option(socket.get(), IPPROTO_TCP, TCP_NODELAY, 1);
  set_option(socket.get(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, MOST_UNSENT);
}

uint16_t port_of(const Descriptor& socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  (void)::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

Received receive(const Descriptor& socket, char* into, size_t room) {
  Received received;
  iovec piece{into, room};
  alignas(cmsghdr) char control[128];
  msghdr message{};
  message.msg_name = &received.from;
  message.msg_namelen = sizeof received.from;
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  do {
    received.size = ::recvmsg(socket.get(), &message, MSG_DONTWAIT);
  } while (received.size < 0 && errno == EINTR);
  if (received.size >= 0) received.arrived = stamp_in(message);
  return received;
}

ssize_t send(const Descriptor& socket, std::string_view bytes) {
  ssize_t sent = 0;
  do {
    sent = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  return sent;
}

ssize_t send_to(const Descriptor& socket, std::string_view bytes, const sockaddr_in& to) {
  ssize_t sent = 0;
  do {
    sent = ::sendto(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                    plain(to), sizeof to);
  } while (sent < 0 && errno == EINTR);
  return sent;
}

}  // namespace certify
