#include "certify/run/feed_ear.h"

#include <sys/socket.h>

#include <array>
#include <cstring>

namespace client = quorl::client;

namespace certify {
namespace {

constexpr unsigned MOST_DATAGRAMS_AT_ONCE = 512;
constexpr size_t LARGEST = 2048;  // a packet of the feed has 1500 bytes at most

}  // namespace

FeedEar::FeedEar(const std::string& group, uint16_t port)
    : socket_(client::UdpSocket::in_group(group, port)) {}

void FeedEar::take(const std::function<void(client::ByteView packet)>& heard) {
  std::array<uint8_t, LARGEST> bytes;
  for (unsigned i = 0; i < MOST_DATAGRAMS_AT_ONCE; ++i) {
    iovec piece{bytes.data(), bytes.size()};
    alignas(cmsghdr) char control[256];
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = ::recvmsg(socket_.fd(), &message, MSG_DONTWAIT);
    if (size < 0) return;
    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
      if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
        std::memcpy(&missed_, CMSG_DATA(c), sizeof missed_);
      }
    }
    heard({bytes.data(), static_cast<size_t>(size)});
  }
}

}  // namespace certify
