#include "tools/replay/feed_sender.h"

#include <sys/socket.h>
#include <unistd.h>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {

FeedSender::FeedSender(const Endpoint& group, const std::string& interface)
    : group_(group), fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (fd_ < 0) throw client::SystemError("socket");
  const in_addr from = socket_address(endpoint_of(interface, 0)).sin_addr;
  const unsigned char one = 1;
  if (::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_IF, &from, sizeof from) != 0) {
    const client::SystemError failure("cannot send from interface " + interface);
    ::close(fd_);
    throw failure;
  }
  // Both are the system's own settings already, unless someone has changed them.
  (void)::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_TTL, &one, sizeof one);
  (void)::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_LOOP, &one, sizeof one);
}

FeedSender::~FeedSender() { ::close(fd_); }

void FeedSender::send(client::ByteView packet) {
  const sockaddr_in to = socket_address(group_);
  const ssize_t sent = ::sendto(fd_, packet.data(), packet.size(), 0,
                                reinterpret_cast<const sockaddr*>(&to), sizeof to);
  if (sent != static_cast<ssize_t>(packet.size())) {
    throw client::SystemError("cannot send to " + text_of(group_));
  }
}

}  // namespace tools
