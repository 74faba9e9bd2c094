#include "tests/e2e/support/port_holder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace e2e {

PortHolder::PortHolder(int type, uint16_t port) : fd_(::socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
  if (fd_ < 0) throw client::SystemError("socket");
  if (type == SOCK_STREAM) {
    // Connections of an earlier run may linger on the port. A listener is not shared all the same,
    // while a UDP port would be.
    const int on = 1;
    (void)::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd_);
    throw client::SystemError("bind");
  }
}

PortHolder PortHolder::listening(uint16_t tcp_port) {
  PortHolder holder(SOCK_STREAM, tcp_port);
  if (::listen(holder.fd_, 1) != 0) throw client::SystemError("listen");
  return holder;
}

PortHolder PortHolder::bound(uint16_t udp_port) { return {SOCK_DGRAM, udp_port}; }

PortHolder::PortHolder(PortHolder&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

PortHolder::~PortHolder() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace e2e
