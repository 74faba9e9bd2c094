#include "driver/listener.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "base/sockets.h"

namespace quorl {

int listen_or_exit(uint16_t port, const char* name) {
  constexpr int BACKLOG = 8;
  const int fd = open_tcp_socket();
  if (!bind_reusable(fd, INADDR_ANY, port) || !start_listening(fd, BACKLOG)) {
    print_log("quorl: cannot listen on %s port %u: %s\n", name, static_cast<unsigned>(port),
              std::strerror(errno));
    std::exit(1);
  }
  set_nonblocking(fd);
  return fd;
}

}  // namespace quorl
