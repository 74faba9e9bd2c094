#include "driver/sockets.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quorl {

void set_nonblocking(int fd) { ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL, 0) | O_NONBLOCK); }

bool bind_reusable(int fd, in_addr_t address, uint16_t port) {
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_addr.s_addr = htonl(address);
  to.sin_port = htons(port);
  return ::bind(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

void send_datagram(int fd, const void* bytes, size_t size, const sockaddr_in& to) {
  [[maybe_unused]] const auto sent =
      ::sendto(fd, bytes, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

int listen_or_exit(uint16_t port, const char* name) {
  constexpr int BACKLOG = 8;
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (!bind_reusable(fd, INADDR_ANY, port) || ::listen(fd, BACKLOG) != 0) {
    std::fprintf(stderr, "quorl: cannot listen on %s port %u: %s\n", name,
                 static_cast<unsigned>(port), std::strerror(errno));
    std::exit(1);
  }
  set_nonblocking(fd);
  return fd;
}

}  // namespace quorl
