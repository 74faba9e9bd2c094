#include "quorl/client/udp.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr int RECEIVE_BUFFER = 32 * 1024 * 1024;
constexpr size_t LARGEST_DATAGRAM = 65536;

int make_socket() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw SystemError("socket");
  return fd;
}

sockaddr_in address_of(const std::string& host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
    throw WireError("'" + host + "' is no IPv4 address");
  }
  return address;
}

void enlarge_buffer(int fd) {
  // Beyond the system's limit only with privileges; without them the limit is what we get.
  if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER) != 0) {
    (void)::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER);
  }
}

void set_option(int fd, int level, int option, const void* value, socklen_t size,
                const char* name) {
  if (::setsockopt(fd, level, option, value, size) != 0) throw SystemError(name);
}

void bind_to(int fd, const sockaddr_in& address) {
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw SystemError("bind");
  }
}

}  // namespace

UdpSocket UdpSocket::on_loopback() {
  UdpSocket socket(make_socket());
  enlarge_buffer(socket.fd_);
  bind_to(socket.fd_, address_of("127.0.0.1", 0));
  return socket;
}

UdpSocket UdpSocket::on_wildcard(uint16_t port) {
  UdpSocket socket(make_socket());
  const int on = 1;
  set_option(socket.fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on, "SO_REUSEADDR");
  bind_to(socket.fd_, address_of("0.0.0.0", port));
  return socket;
}

UdpSocket UdpSocket::in_group(const std::string& group, uint16_t port,
                              const std::string& interface_address) {
  UdpSocket socket(make_socket());
  const int on = 1;
  set_option(socket.fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on, "SO_REUSEADDR");
  set_option(socket.fd_, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on, "SO_RXQ_OVFL");
  enlarge_buffer(socket.fd_);
  bind_to(socket.fd_, address_of(group, port));
  ip_mreq membership{};
  membership.imr_multiaddr = address_of(group, 0).sin_addr;
  membership.imr_interface = address_of(interface_address, 0).sin_addr;
  set_option(socket.fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership,
             "IP_ADD_MEMBERSHIP");
  return socket;
}

UdpSocket::UdpSocket(UdpSocket&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), kernel_drops_(other.kernel_drops_) {}

UdpSocket& UdpSocket::operator=(UdpSocket&& other) noexcept {
  std::swap(fd_, other.fd_);
  std::swap(kernel_drops_, other.kernel_drops_);
  return *this;
}

UdpSocket::~UdpSocket() {
  if (fd_ >= 0) ::close(fd_);
}

void UdpSocket::send_to(uint16_t port, ByteView bytes) {
  const sockaddr_in to = address_of("127.0.0.1", port);
  const ssize_t sent = ::sendto(fd_, bytes.data(), bytes.size(), 0,
                                reinterpret_cast<const sockaddr*>(&to), sizeof to);
  if (sent != static_cast<ssize_t>(bytes.size())) throw SystemError("sendto");
}

std::optional<Datagram> UdpSocket::receive(Deadline deadline) {
  for (;;) {
    pollfd ready{fd_, POLLIN, 0};
    const int count = ::poll(&ready, 1, deadline.remaining_ms());
    if (count < 0 && errno != EINTR) throw SystemError("poll");
    if (count > 0) break;
    if (deadline.expired()) return std::nullopt;
  }
  Datagram datagram;
  datagram.bytes.resize(LARGEST_DATAGRAM);
  sockaddr_in from{};
  iovec piece{datagram.bytes.data(), datagram.bytes.size()};
  alignas(cmsghdr) char control[256];
  msghdr message{};
  message.msg_name = &from;
  message.msg_namelen = sizeof from;
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t size = ::recvmsg(fd_, &message, MSG_DONTWAIT);
  if (size < 0) {
    // A bad checksum, or the port-unreachable answer to an earlier send: nothing has come.
    if (errno == EAGAIN || errno == ECONNREFUSED || errno == EINTR) return receive(deadline);
    throw SystemError("recvmsg");
  }
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
      std::memcpy(&kernel_drops_, CMSG_DATA(c), sizeof kernel_drops_);
    }
  }
  datagram.bytes.resize(static_cast<size_t>(size));
  char text[INET_ADDRSTRLEN] = {};
  ::inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
  datagram.from_address = text;
  datagram.from_port = ntohs(from.sin_port);
  return datagram;
}

uint16_t UdpSocket::port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw SystemError("getsockname");
  }
  return ntohs(address.sin_port);
}

}  // namespace quorl::client
