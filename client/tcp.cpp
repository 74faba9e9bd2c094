#include "quorl/client/tcp.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

/// Waits until `events` hold for `fd` or the deadline has passed. Returns whether they do.
bool wait_ready(int fd, short events, Deadline deadline) {
  for (;;) {
    pollfd ready{fd, events, 0};
    const int count = ::poll(&ready, 1, deadline.remaining_ms());
    if (count > 0) return true;
    if (count < 0 && errno != EINTR) throw SystemError("poll");
    if (deadline.expired()) return false;
  }
}

}  // namespace

TcpStream TcpStream::connect(uint16_t port, Deadline deadline) {
  return connect("127.0.0.1", port, deadline);
}

TcpStream TcpStream::connect(const std::string& address, uint16_t port, Deadline deadline) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  if (::inet_pton(AF_INET, address.c_str(), &to.sin_addr) != 1) {
    throw WireError("'" + address + "' is no IPv4 address");
  }
  TcpStream stream(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (stream.fd_ < 0) throw SystemError("socket");
  const int on = 1;
  (void)::setsockopt(stream.fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const std::string call = "connect to port " + std::to_string(port);
  if (::connect(stream.fd_, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    if (errno != EINPROGRESS) throw SystemError(call);
    if (!wait_ready(stream.fd_, POLLOUT, deadline)) throw Timeout(call);
    socklen_t size = sizeof errno;
    int error = 0;
    if (::getsockopt(stream.fd_, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    if (error != 0) {
      errno = error;
      throw SystemError(call);
    }
  }
  return stream;
}

TcpStream::TcpStream(TcpStream&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), ended_(other.ended_) {}

TcpStream& TcpStream::operator=(TcpStream&& other) noexcept {
  std::swap(fd_, other.fd_);
  std::swap(ended_, other.ended_);
  return *this;
}

TcpStream::~TcpStream() { close(); }

bool TcpStream::send_all(ByteView bytes, Deadline deadline) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes = bytes.subspan(static_cast<size_t>(sent));
    } else if (errno == EPIPE || errno == ECONNRESET || errno == EBADF) {
      return false;
    } else if (errno != EAGAIN && errno != EINTR) {
      throw SystemError("send");
    } else if (!wait_ready(fd_, POLLOUT, deadline)) {
      throw Timeout("the peer does not take what is sent");
    }
  }
  return true;
}

size_t TcpStream::receive(Bytes& into, Deadline deadline) {
  uint8_t buffer[65536];
  while (!ended_ && fd_ >= 0) {
    const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
    if (got > 0) {
      into.insert(into.end(), buffer, buffer + got);
      return static_cast<size_t>(got);
    }
    if (got == 0 || errno == ECONNRESET) {
      ended_ = true;
    } else if (errno != EAGAIN && errno != EINTR) {
      throw SystemError("recv");
    } else if (!wait_ready(fd_, POLLIN, deadline)) {
      break;
    }
  }
  return 0;
}

Bytes TcpStream::receive_to_end(Deadline deadline) {
  Bytes all;
  while (!ended_) {
    if (receive(all, deadline) == 0 && !ended_) {
      throw Timeout("the peer does not close; so far came: " + hex(all));
    }
  }
  return all;
}

void TcpStream::shutdown_write() {
  if (::shutdown(fd_, SHUT_WR) != 0) throw SystemError("shutdown");
}

void TcpStream::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void TcpStream::abort() {
  if (fd_ < 0) return;
  const linger at_once{1, 0};
  (void)::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  close();
}

}  // namespace quorl::client
