#include "quorl/client/gap_fill_client.h"

#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr size_t MOST_MESSAGES = 1000;

[[noreturn]] void refuse(const std::string& why, uint64_t seq) {
  throw WireError("gap fill: " + why + " at number " + std::to_string(seq));
}

/// Holds the packets of an answer, in order, to what was asked for.
class AnswerCheck {
 public:
  explicit AnswerCheck(const std::vector<SeqRange>& ranges) : ranges_(ranges) {}

  void packet(const TpPacket& packet, std::map<uint64_t, TpMessage>& messages) {
    uint64_t seq = packet.header.first_seq;
    const bool continues = range_ < ranges_.size() && seq == next_seq_ && seq <= last();
    if (continues) {
      if (packet.header.stream_offset != next_offset_) refuse("a stream offset that jumps", seq);
      if (size_ + packet.messages[0].bytes.size() + 2 <= TP_MAX_PACKET) {
        refuse("a packet that had room for one more message", seq);
      }
    } else {
      enter_range_of(seq);
    }
    for (const TpMessage& message : packet.messages) {
      if (seq > last()) refuse("a message that was not asked for", seq);
      messages.emplace(seq++, message);
    }
    if (messages.size() > MOST_MESSAGES) refuse("more than 1000 messages", seq);
    next_seq_ = seq;
    next_offset_ = packet.end_offset();
    size_ = packet.size();
  }

 private:
  uint64_t last() const { return ranges_[range_].last; }

  /// The ranges are answered in order, each from its start or from the oldest message kept.
  void enter_range_of(uint64_t seq) {
    range_ = entered_ ? range_ + 1 : 0;
    entered_ = true;
    while (range_ < ranges_.size() && ranges_[range_].last < seq) ++range_;
    if (range_ == ranges_.size() || seq < ranges_[range_].first) {
      refuse("a message that was not asked for", seq);
    }
  }

  const std::vector<SeqRange>& ranges_;
  size_t range_ = 0;
  bool entered_ = false;
  uint64_t next_seq_ = 0;
  uint64_t next_offset_ = 0;
  size_t size_ = 0;
};

}  // namespace

Bytes encode(const GapFillRequest& request) {
  Bytes bytes;
  put_u8(bytes, request.version);
  put_u8(bytes, request.kind);
  put_u16(bytes, request.protocol_id);
  put_u32(bytes, request.channel_id);
  put_u32(bytes, request.session_id);
  put_u32(bytes, request.range_count.value_or(static_cast<uint32_t>(request.ranges.size())));
  for (const SeqRange& range : request.ranges) {
    put_u64(bytes, range.first);
    put_u64(bytes, range.last);
  }
  put_bytes(bytes, request.trailing);
  return bytes;
}

GapFillClient::GapFillClient(uint16_t port, uint32_t session)
    : port_(port), session_(session), socket_(UdpSocket::on_loopback()) {}

void GapFillClient::send(ByteView datagram) { socket_.send_to(port_, datagram); }

std::optional<TpPacket> GapFillClient::receive(std::chrono::milliseconds patience) {
  const auto datagram = socket_.receive(Deadline::after(patience));
  if (!datagram) return std::nullopt;
  if (datagram->from_port != port_) {
    throw WireError("gap fill: a packet from port " + std::to_string(datagram->from_port));
  }
  return decode_tp_packet(datagram->bytes, session_);
}

GapFillAnswer GapFillClient::collect(Deadline deadline) {
  GapFillAnswer answer;
  for (;;) {
    auto packet = receive(std::chrono::milliseconds(deadline.remaining_ms()));
    if (!packet) throw Timeout("gap fill: no answer to the status query");
    if (packet->is_heartbeat()) {
      answer.next_seq = packet->header.first_seq;
      answer.stream_offset = packet->header.stream_offset;
      return answer;
    }
    answer.packets.push_back(std::move(*packet));
  }
}

GapFillAnswer GapFillClient::fetch_raw(ByteView request, std::chrono::milliseconds patience) {
  socket_ = UdpSocket::on_loopback();  // what a former answer left behind stays behind
  send(request);
  send(encode(GapFillRequest{.session_id = session_}));
  return collect(Deadline::after(patience));
}

GapFillAnswer GapFillClient::fetch(const std::vector<SeqRange>& ranges,
                                   std::chrono::milliseconds patience) {
  GapFillAnswer answer = fetch_raw(encode({.session_id = session_, .ranges = ranges}), patience);
  AnswerCheck check(ranges);
  for (const TpPacket& packet : answer.packets) check.packet(packet, answer.messages);
  return answer;
}

std::map<uint64_t, TpMessage> GapFillClient::fetch_all(uint64_t first, uint64_t last,
                                                       std::chrono::milliseconds patience) {
  std::map<uint64_t, TpMessage> all;
  while (first <= last) {
    GapFillAnswer answer = fetch({{first, last}}, patience);
    if (answer.messages.empty()) break;
    first = answer.messages.rbegin()->first + 1;
    all.merge(answer.messages);
  }
  return all;
}

GapFillAnswer GapFillClient::status(std::chrono::milliseconds patience) {
  socket_ = UdpSocket::on_loopback();
  send(encode(GapFillRequest{.session_id = session_}));
  return collect(Deadline::after(patience));
}

}  // namespace quorl::client
