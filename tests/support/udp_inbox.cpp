#include "support/udp_inbox.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <string>

namespace quorl::test {
namespace {

constexpr int DELIVERY_LIMIT_MS = 10000;  // never reached on a machine that works

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

int bind_free_udp_port(in_addr_t where, uint16_t& port) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(where);
  EXPECT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
  socklen_t size = sizeof address;
  EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
  port = ntohs(address.sin_port);
  return fd;
}

}  // namespace

Bytes hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (const char c : text) {
    if (c == ' ') continue;
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) ADD_FAILURE() << "not hex: " << c;
    digits.push_back(c);
    if (digits.size() < 2) continue;
    bytes.push_back(static_cast<uint8_t>(std::stoul(digits, nullptr, 16)));
    digits.clear();
  }
  EXPECT_TRUE(digits.empty()) << "half a byte in " << text;
  return bytes;
}

Bytes joined(const std::vector<Bytes>& pieces) {
  Bytes whole;
  for (const Bytes& piece : pieces) whole.insert(whole.end(), piece.begin(), piece.end());
  return whole;
}

uint64_t number_at(const Bytes& bytes, size_t at, size_t width) {
  if (at + width > bytes.size()) {
    ADD_FAILURE() << "no " << width << " bytes at " << at << " of " << bytes.size();
    return 0;
  }
  uint64_t number = 0;
  for (size_t i = width; i > 0; --i) number = number * 256 + bytes[at + i - 1];
  return number;
}

int next_fd() {
  const int fd = ::dup(STDERR_FILENO);
  ::close(fd);
  return fd;
}

Packet packet_of(const Bytes& datagram) {
  Packet packet;
  packet.size = datagram.size();
  packet.session_id = number_at(datagram, 8, 4);
  packet.payload_length = number_at(datagram, 12, 2);
  packet.message_count = number_at(datagram, 14, 2);
  packet.stream_offset = number_at(datagram, 16, 8);
  packet.first_seq = number_at(datagram, 24, 8);
  packet.send_time = number_at(datagram, 32, 8);
  EXPECT_EQ(packet.size, packet.payload_length + 40);
  size_t at = 40;
  while (at < datagram.size()) {
    const size_t length = number_at(datagram, at, 2);
    if (at + 2 + length > datagram.size()) {
      ADD_FAILURE() << "a message of " << length << " bytes leaves the packet";
      break;
    }
    const auto begin = datagram.begin() + static_cast<std::ptrdiff_t>(at + 2);
    packet.messages.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
    at += 2 + length;
  }
  EXPECT_EQ(packet.message_count, packet.messages.size());
  return packet;
}

std::vector<Packet> packets_of(const std::vector<Bytes>& datagrams) {
  std::vector<Packet> packets;
  for (const Bytes& datagram : datagrams) packets.push_back(packet_of(datagram));
  return packets;
}

UdpInbox::UdpInbox() {
  fd_ = bind_free_udp_port(INADDR_LOOPBACK, port_);
  const int roomy = 4 << 20;
  ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &roomy, sizeof roomy);
}

UdpInbox::~UdpInbox() { ::close(fd_); }

std::vector<Bytes> UdpInbox::take() {
  settle();
  std::vector<Bytes> taken(waiting_.begin(), waiting_.end());
  waiting_.clear();
  return taken;
}

void UdpInbox::send(const Bytes& datagram, uint16_t to_port) {
  const sockaddr_in to = loopback(to_port);
  EXPECT_EQ(static_cast<ssize_t>(datagram.size()),
            ::sendto(fd_, datagram.data(), datagram.size(), 0,
                     reinterpret_cast<const sockaddr*>(&to), sizeof to));
  settle();
}

void UdpInbox::settle() {
  const uint64_t before = settled_;
  const sockaddr_in here = loopback(port_);
  const char marker = '.';
  ASSERT_EQ(1, ::sendto(fd_, &marker, 1, 0, reinterpret_cast<const sockaddr*>(&here), sizeof here));
  while (settled_ == before) {
    ASSERT_TRUE(receive_one()) << "the loopback device has lost a datagram: inbox overrun?";
  }
}

/// False if nothing has come within the limit.
bool UdpInbox::receive_one() {
  pollfd readable{fd_, POLLIN, 0};
  if (::poll(&readable, 1, DELIVERY_LIMIT_MS) != 1) return false;
  std::array<uint8_t, 65536> buffer;
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t received =
      ::recvfrom(fd_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  if (received < 0) return false;
  if (ntohs(from.sin_port) == port_ && received == 1) {
    ++settled_;
  } else {
    waiting_.emplace_back(buffer.begin(), buffer.begin() + received);
  }
  return true;
}

/// Bound plainly, so that no other search for a free port finds it, and shared from then on.
ReservedUdpPort::ReservedUdpPort() {
  fd_ = bind_free_udp_port(INADDR_ANY, number_);
  allow_sharing(1);
}

ReservedUdpPort::~ReservedUdpPort() { ::close(fd_); }

void ReservedUdpPort::refuse_sharing() { allow_sharing(0); }

void ReservedUdpPort::allow_sharing(int allowed) {
  ASSERT_EQ(0, ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &allowed, sizeof allowed));
}

}  // namespace quorl::test
