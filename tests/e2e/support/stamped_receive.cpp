#include "tests/e2e/support/stamped_receive.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>

#include <cstddef>
#include <cstring>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace e2e {

void stamp_arrivals(int fd) {
  const int on = 1;
  if (::setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0) {
    throw client::SystemError("SO_TIMESTAMPNS");
  }
}

Stamped receive_stamped(int fd, client::Deadline deadline) {
  pollfd ready{fd, POLLIN, 0};
  while (::poll(&ready, 1, deadline.remaining_ms()) <= 0) {
    if (deadline.expired()) throw client::Timeout("nothing arrives on the socket");
  }
  Stamped received;
  received.bytes.resize(65536);
  iovec piece{received.bytes.data(), received.bytes.size()};
  alignas(cmsghdr) char control[256];
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t size = ::recvmsg(fd, &message, MSG_DONTWAIT);
  if (size < 0) throw client::SystemError("recvmsg");
  received.bytes.resize(static_cast<size_t>(size));
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_TIMESTAMPNS) continue;
    timespec stamp{};
    std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
    received.stamp_ns = int64_t{stamp.tv_sec} * 1000000000 + stamp.tv_nsec;
  }
  return received;
}

}  // namespace e2e
