#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string_view>
#include <vector>

// The far end of the UDP services in the unit tests. It takes packets apart by itself, without the
// encoders of the program under test.

namespace quorl::test {

using Bytes = std::vector<uint8_t>;

/// Of the publishers whose packets are taken apart.
inline constexpr uint32_t SESSION = 0x11223344;

/// Bytes from pairs of hexadecimal digits; blanks between pairs are ignored.
Bytes hex(std::string_view text);

/// The bytes one behind the other.
Bytes joined(const std::vector<Bytes>& pieces);

/// `width` bytes at `at`, little-endian; fails the test if `bytes` is too short.
uint64_t number_at(const Bytes& bytes, size_t at, size_t width);

/// The descriptor that the next socket will get.
int next_fd();

/// One packet of the feed or of a gap fill, taken apart.
struct Packet {
  uint64_t size = 0;  // of the whole datagram
  uint64_t session_id = 0;
  uint64_t payload_length = 0;
  uint64_t message_count = 0;
  uint64_t stream_offset = 0;
  uint64_t first_seq = 0;
  uint64_t send_time = 0;
  std::vector<Bytes> messages;  // without their lengths
};

/// Fails the test if the lengths in the packet do not add up.
Packet packet_of(const Bytes& datagram);
std::vector<Packet> packets_of(const std::vector<Bytes>& datagrams);

/// A UDP socket on a free port of 127.0.0.1.
class UdpInbox {
 public:
  UdpInbox();
  ~UdpInbox();
  UdpInbox(const UdpInbox&) = delete;
  UdpInbox& operator=(const UdpInbox&) = delete;

  uint16_t port() const { return port_; }

  /// All that has been sent here and not been taken yet, in order of arrival.
  std::vector<Bytes> take();

  /// Sends one datagram to 127.0.0.1. When this returns, it waits at the receiver.
  void send(const Bytes& datagram, uint16_t to_port);

  /// Returns once everything this thread has sent over the loopback device has been delivered:
  /// that device keeps the order, so a datagram from here to here comes last.
  void settle();

 private:
  bool receive_one();

  int fd_ = -1;
  uint16_t port_ = 0;
  uint64_t settled_ = 0;       // datagrams of our own seen
  std::deque<Bytes> waiting_;  // received and not taken
};

/// A UDP port that no other test gets while this lives. A socket that sets SO_REUSEADDR, as the
/// services under test do, can be bound to it meanwhile.
class ReservedUdpPort {
 public:
  ReservedUdpPort();
  ~ReservedUdpPort();
  ReservedUdpPort(const ReservedUdpPort&) = delete;
  ReservedUdpPort& operator=(const ReservedUdpPort&) = delete;

  uint16_t number() const { return number_; }
  /// From now on nobody else can bind the port at all.
  void refuse_sharing();

 private:
  void allow_sharing(int allowed);

  int fd_ = -1;
  uint16_t number_ = 0;
};

}  // namespace quorl::test
