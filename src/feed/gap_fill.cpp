#include "feed/gap_fill.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/clocks.h"
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

/// A reply is built beside the packet under assembly, which a request must not touch.
struct ReplyPacket {
  TpHeader header;
  std::array<uint8_t, MAX_PACKET_SIZE> bytes;
  size_t fill = TP_HEADER_SIZE;

  bool fits(const RetainedMessage& message) const {
    return fill + message.bytes.size() + BLOCK_PREFIX_SIZE <= bytes.size() &&
           header.message_count != MAX_MESSAGE_COUNT;
  }

  void add(const RetainedMessage& message) {
    fill += put_block(bytes.data() + fill, message.bytes.data(), message.bytes.size());
    ++header.message_count;
  }

  void send(int fd, const sockaddr_in& to) {
    header.send_time = system_ns();
    header.payload_length = static_cast<uint16_t>(fill - TP_HEADER_SIZE);
    const auto head = encode(header);
    std::memcpy(bytes.data(), head.data(), head.size());
    send_datagram(fd, bytes.data(), fill, to);
  }
};

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

void TpPublisher::serve_gap_fill() {
  if (gap_fd < 0) return;
  std::array<uint8_t, LONGEST_REQUEST> datagram;
  while (true) {
    sockaddr_in from{};
    const ssize_t received = receive_datagram(gap_fd, datagram.data(), datagram.size(), from);
    if (received < 1) return;  // an empty datagram ends the turn's service too
    answer_gap_request(datagram.data(), static_cast<size_t>(received), from);
  }
}

void TpPublisher::answer_gap_request(const uint8_t* datagram, size_t size,
                                     const sockaddr_in& from) {
  GapRequest request;
  if (!parse_gap_request(datagram, size, request) || request.kind != KIND_SERVED ||
      request.protocol_id != DEEP_PROTOCOL_ID || request.channel_id != DEEP_CHANNEL_ID ||
      request.session_id != session_id) {
    ++gap_rejects;
    return;
  }
  ++gap_requests;
  if (request.ranges.empty()) {
    ReplyPacket status;
    status.header.session_id = session_id;
    status.header.stream_offset = stream_offset;
    status.header.first_seq = next_seq;
    return status.send(gap_fd, from);
  }
  uint64_t budget = MESSAGES_PER_REQUEST;
  const uint64_t oldest = retained.empty() ? next_seq : retained.front().seq;
  for (const auto& [first, last] : request.ranges) {
    replay(std::max(first, oldest), std::min(last, next_seq - 1), budget, from);
  }
}

/// REQUIRES: `first` is retained or above `last`. What still waits in the packet under assembly is
/// replayed too, ahead of its multicast.
void TpPublisher::replay(uint64_t first, uint64_t last, uint64_t& budget, const sockaddr_in& to) {
  const auto retained_at = [this](uint64_t seq) -> const RetainedMessage& {
    return retained[seq - retained.front().seq];
  };
  while (first <= last && budget != 0) {
    ReplyPacket reply;
    reply.header.session_id = session_id;
    reply.header.first_seq = first;
    reply.header.stream_offset = retained_at(first).stream_offset;
    while (first <= last && budget != 0 && reply.fits(retained_at(first))) {
      reply.add(retained_at(first));
      ++first;
      ++gap_messages;
      --budget;
    }
    if (reply.header.message_count == 0) {
      ++first;  // too large for any packet: it was never on the feed either
      continue;
    }
    reply.send(gap_fd, to);
  }
}

}  // namespace quorl
