#include "quorl/client/port_slot.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

// Below the range from which systems take ports by themselves, and clear of the simulator's own
// defaults around 25500 and 28500.
constexpr unsigned FIRST_PORT = 10000;
constexpr unsigned PORTS_PER_SLOT = 8;
constexpr unsigned SLOTS = 1200;
constexpr unsigned GROUPS_PER_ROW = 250;

sockaddr_in any_address(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  return address;
}

bool can_bind(int type, uint16_t port, bool reuse, bool listens) {
  const int fd = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
  if (fd < 0) throw SystemError("socket");
  const int on = reuse ? 1 : 0;
  (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = any_address(port);
  const bool free = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                    (!listens || ::listen(fd, 1) == 0);
  ::close(fd);
  return free;
}

Ports ports_of_slot(unsigned number) {
  const auto port = [number](unsigned index) {
    return static_cast<uint16_t>(FIRST_PORT + number * PORTS_PER_SLOT + index);
  };
  Ports ports;
  ports.group = "239.255." + std::to_string(1 + number / GROUPS_PER_ROW) + "." +
                std::to_string(1 + number % GROUPS_PER_ROW);
  ports.feed = port(0);
  ports.snap = port(1);
  ports.gap_fill = port(2);
  ports.fix = port(3);
  ports.control = port(4);
  return ports;
}

bool all_free(const Ports& ports) {
  return udp_port_is_free(ports.feed) && tcp_port_is_free(ports.snap) &&
         udp_port_is_free(ports.snap) && udp_port_is_free(ports.gap_fill) &&
         tcp_port_is_free(ports.fix) && udp_port_is_free(ports.control);
}

}  // namespace

// Connections that linger after a run do not hinder the simulator, which binds with SO_REUSEADDR.
bool tcp_port_is_free(uint16_t port) { return can_bind(SOCK_STREAM, port, true, true); }

// Without SO_REUSEADDR: every other socket on the port shows.
bool udp_port_is_free(uint16_t port) { return can_bind(SOCK_DGRAM, port, false, false); }

PortSlot::PortSlot() {
  const auto start = static_cast<unsigned>(::getpid()) * 7;  // neighbours in time begin apart
  for (unsigned i = 0; i < SLOTS; ++i) {
    if (claim((start + i) % SLOTS)) return;
  }
  errno = EADDRINUSE;
  throw SystemError("no free block of ports");
}

PortSlot::~PortSlot() {
  if (claim_fd_ >= 0) ::close(claim_fd_);
}

bool PortSlot::claim(unsigned number) {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  // A leading NUL: a name in the system's own table and not in the file system.
  const std::string text = "quorl-test-slot-" + std::to_string(number);
  std::memcpy(name.sun_path + 1, text.data(), text.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw SystemError("socket");
  const Ports ports = ports_of_slot(number);
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&name), size) != 0 || !all_free(ports)) {
    ::close(fd);
    return false;
  }
  claim_fd_ = fd;
  ports_ = ports;
  return true;
}

}  // namespace quorl::client
