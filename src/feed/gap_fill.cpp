#include "feed/gap_fill.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/log.h"
#include "base/sockets.h"
#include "feed/tp_publisher.h"

namespace quorl {
namespace {

constexpr size_t REQUEST_HEAD_SIZE = 16;
constexpr size_t RANGE_SIZE = 16;
constexpr size_t LONGEST_REQUEST = 2048;  // a longer datagram is cut here
constexpr uint8_t REQUEST_VERSION = 1;
constexpr uint8_t KIND_SERVED = 1;
constexpr uint8_t KIND_KNOWN = 2;  // well formed, and refused
constexpr uint64_t MESSAGES_PER_REQUEST = 1000;

bool is_for(const TpPublisher& publisher, const GapRequest& request) {
  return request.protocol_id == DEEP_PROTOCOL_ID && request.channel_id == DEEP_CHANNEL_ID &&
         request.session_id == publisher.session_id();
}

void send(int fd, TpPacket& packet, const sockaddr_in& to) {
  const std::span<const uint8_t> bytes = packet.stamped();
  send_datagram(fd, bytes.data(), bytes.size(), to);
}

}  // namespace

bool parse_gap_request(const void* data, size_t size, GapRequest& out) {
  const auto* const bytes = static_cast<const uint8_t*>(data);
  if (size < REQUEST_HEAD_SIZE || bytes[0] != REQUEST_VERSION) return false;
  out.kind = bytes[1];
  if (out.kind != KIND_SERVED && out.kind != KIND_KNOWN) return false;
  out.protocol_id = read_le<uint16_t>(bytes + 2);
  out.channel_id = read_le<uint32_t>(bytes + 4);
  out.session_id = read_le<uint32_t>(bytes + 8);
  const uint64_t count = read_le<uint32_t>(bytes + 12);  // 64 bits: count + 1 must not wrap
  if ((count + 1) * RANGE_SIZE > size) return false;

  out.ranges.clear();
  for (uint64_t i = 0; i < count; ++i) {
    const uint8_t* const range = bytes + REQUEST_HEAD_SIZE + i * RANGE_SIZE;
    const auto first = read_le<uint64_t>(range);
    const auto last = read_le<uint64_t>(range + 8);
    if (last < first) return false;
    if (!out.ranges.empty() && out.ranges.back().second >= first) return false;
    out.ranges.emplace_back(first, last);
  }
  return true;
}

int open_gap_fill_port(uint16_t port) {
  if (port == 0) return -1;
  const int fd = open_udp_socket();
  if (!bind_reusable(fd, INADDR_ANY, port)) {
    print_log("quorl: gap-fill port: %s\n", std::strerror(errno));
    close_socket(fd);
    return -1;
  }
  set_nonblocking(fd);
  return fd;
}

GapFill::GapFill(const TpPublisher& publisher, int fd) : publisher_(publisher), fd_(fd) {}

void GapFill::serve() {
  if (fd_ < 0) return;
  std::array<uint8_t, LONGEST_REQUEST> datagram;
  while (true) {
    sockaddr_in from{};
    const ssize_t received = receive_datagram(fd_, datagram.data(), datagram.size(), from);
    if (received < 1) return;  // an empty datagram ends the turn's service too
    answer({datagram.data(), static_cast<size_t>(received)}, from);
  }
}

void GapFill::answer(std::span<const uint8_t> datagram, const sockaddr_in& from) {
  GapRequest request;
  if (!parse_gap_request(datagram.data(), datagram.size(), request) ||
      request.kind != KIND_SERVED || !is_for(publisher_, request)) {
    ++counts_.rejects;
    return;
  }
  ++counts_.requests;
  if (request.ranges.empty()) return send_status(from);
  uint64_t budget = MESSAGES_PER_REQUEST;
  for (const auto& [first, last] : request.ranges) {
    replay(std::max(first, publisher_.oldest_retained_seq()), std::min(last, publisher_.last_seq()),
           budget, from);
  }
}

void GapFill::send_status(const sockaddr_in& to) const {
  TpPacket status(publisher_.session_id());
  status.begin(publisher_.next_seq(), publisher_.stream_offset());
  send(fd_, status, to);
}

/// REQUIRES: `first` is retained or above `last`. What still waits in the packet under assembly is
/// replayed too, ahead of its multicast.
void GapFill::replay(uint64_t first, uint64_t last, uint64_t& budget, const sockaddr_in& to) {
  TpPacket reply(publisher_.session_id());
  while (first <= last && budget != 0) {
    reply.begin(first, publisher_.retained(first).stream_offset);
    for (; first <= last && budget != 0; ++first, --budget, ++counts_.messages) {
      const std::string_view message = publisher_.retained(first).bytes;
      if (!reply.fits(message.size())) break;
      reply.add(message);
    }
    if (reply.message_count() == 0) {
      ++first;  // too large for any packet: it was never on the feed either
      continue;
    }
    send(fd_, reply, to);
  }
}

}  // namespace quorl
