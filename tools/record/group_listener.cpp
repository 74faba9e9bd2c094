#include "tools/record/group_listener.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr int RECEIVE_BUFFER = 32 * 1024 * 1024;
constexpr size_t LARGEST_DATAGRAM = 65536;

template <typename Value>
void require_option(int fd, int level, int option, const Value& value, const std::string& name) {
  if (::setsockopt(fd, level, option, &value, sizeof value) != 0) throw client::SystemError(name);
}

uint64_t nanoseconds(const timespec& time) {
  return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

uint64_t system_clock_ns() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now);
}

}  // namespace

GroupListener::GroupListener(const Endpoint& group, const std::string& interface)
    : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (fd_ < 0) throw client::SystemError("socket");
  try {
    set_up(group, interface);
  } catch (...) {
    ::close(fd_);
    throw;
  }
}

GroupListener::~GroupListener() { ::close(fd_); }

void GroupListener::set_up(const Endpoint& group, const std::string& interface) {
  const int on = 1;
  require_option(fd_, SOL_SOCKET, SO_REUSEADDR, on, "SO_REUSEADDR");
  require_option(fd_, SOL_SOCKET, SO_TIMESTAMPNS, on, "SO_TIMESTAMPNS");
  require_option(fd_, SOL_SOCKET, SO_RXQ_OVFL, on, "SO_RXQ_OVFL");
  // Beyond the system's limit only with privileges; without them the limit is what we get.
  if (::setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER) != 0) {
    (void)::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER);
  }
  const sockaddr_in address = socket_address(group);  // bound to it: no other group is heard
  if (::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw client::SystemError("cannot listen at " + text_of(group));
  }
  ip_mreq membership{};
  membership.imr_multiaddr = address.sin_addr;
  membership.imr_interface = socket_address(endpoint_of(interface, 0)).sin_addr;
  require_option(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership,
                 "cannot join " + text_of(group) + " on interface " + interface);
}

std::optional<HeardDatagram> GroupListener::take() {
  static thread_local client::Bytes buffer(LARGEST_DATAGRAM);
  sockaddr_in from{};
  iovec piece{buffer.data(), buffer.size()};
  alignas(cmsghdr) char control[256];
  msghdr message{};
  message.msg_name = &from;
  message.msg_namelen = sizeof from;
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t size = ::recvmsg(fd_, &message, 0);
  if (size < 0) {
    if (errno == EAGAIN || errno == EINTR) return std::nullopt;
    throw client::SystemError("recvmsg");
  }
  HeardDatagram heard{.time_ns = 0, .from = endpoint_of(from), .bytes = {}};
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    if (c->cmsg_level != SOL_SOCKET) continue;
    if (c->cmsg_type == SO_RXQ_OVFL) {
      std::memcpy(&kernel_drops_, CMSG_DATA(c), sizeof kernel_drops_);
    } else if (c->cmsg_type == SCM_TIMESTAMPNS) {
      timespec time{};
      std::memcpy(&time, CMSG_DATA(c), sizeof time);
      heard.time_ns = nanoseconds(time);
    }
  }
  if (heard.time_ns == 0) heard.time_ns = system_clock_ns();
  heard.bytes.assign(buffer.begin(), buffer.begin() + size);
  return heard;
}

}  // namespace tools
