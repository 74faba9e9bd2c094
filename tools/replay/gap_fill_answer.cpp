#include "tools/replay/gap_fill_answer.h"

#include <algorithm>

#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace tools {
namespace {

using client::Bytes;
using client::SeqRange;

constexpr size_t REQUEST_HEADER = 16;
constexpr size_t RANGE_SIZE = 16;
constexpr uint8_t KIND_RANGES = 1;
constexpr size_t MOST_MESSAGES = 1000;
constexpr size_t KEPT = 400000;

/// Builds the packets of one answer.
class Answer {
 public:
  Answer(const Stream& stream, const Position& position, uint32_t session)
      : messages_(stream.messages()), stream_(stream), position_(position), session_(session) {
    end_ = position.messages();
    oldest_ = end_ - std::min(end_, KEPT);
  }

  void status() {
    packets_.push_back(
        client::encode_tp_packet(header(position_.next_seq(), position_.next_offset()), {}));
  }

  void range(const SeqRange& range) {
    const auto first =
        std::partition_point(messages_.begin() + static_cast<std::ptrdiff_t>(oldest_),
                             messages_.begin() + static_cast<std::ptrdiff_t>(end_),
                             [&range](const StreamMessage& m) { return m.seq < range.first; });
    size_t next = static_cast<size_t>(first - messages_.begin());
    while (next < end_ && messages_[next].seq <= range.last && budget_ > 0) {
      const size_t begin = next;
      next = packet(next, range.last);
      if (next < end_ && next > begin && !stream_.follows_on(next - 1)) return;
    }
  }

  std::vector<Bytes> packets() && { return std::move(packets_); }

 private:
  client::TpHeader header(uint64_t first_seq, uint64_t stream_offset) const {
    return {.version = 1,
            .reserved = 0,
            .protocol_id = client::DEEP_PROTOCOL_ID,
            .channel_id = client::DEEP_CHANNEL_ID,
            .session_id = session_,
            .payload_length = 0,  // the encoder counts
            .message_count = 0,
            .stream_offset = stream_offset,
            .first_seq = first_seq,
            .send_time_ns = position_.time_ns()};
  }

  /// One packet from message `begin` on; returns the index of the first message behind it.
  size_t packet(size_t begin, uint64_t last_seq) {
    std::vector<Bytes> blocks;
    size_t size = client::TP_HEADER_SIZE;
    size_t next = begin;
    while (next < end_ && messages_[next].seq <= last_seq && budget_ > 0 &&
           size + messages_[next].bytes.size() + 2 <= client::TP_MAX_PACKET &&
           (next == begin || stream_.follows_on(next - 1))) {
      const client::ByteView bytes = messages_[next++].bytes;
      blocks.emplace_back(bytes.begin(), bytes.end());
      size += bytes.size() + 2;
      --budget_;
    }
    packets_.push_back(client::encode_tp_packet(
        header(messages_[begin].seq, messages_[begin].stream_offset), blocks));
    return next;
  }

  const std::vector<StreamMessage>& messages_;
  const Stream& stream_;
  const Position& position_;
  uint32_t session_;
  size_t oldest_ = 0;  // indices of the messages at hand
  size_t end_ = 0;
  size_t budget_ = MOST_MESSAGES;
  std::vector<Bytes> packets_;
};

}  // namespace

std::optional<std::vector<SeqRange>> read_gap_fill_request(client::ByteView datagram,
                                                           uint32_t session) {
  if (datagram.size() < REQUEST_HEADER) return std::nullopt;
  client::ByteReader reader(datagram, "gap-fill request");
  const bool is_for_us = reader.u8("version") == 1 && reader.u8("kind") == KIND_RANGES &&
                         reader.u16("protocol id") == client::DEEP_PROTOCOL_ID &&
                         reader.u32("channel id") == client::DEEP_CHANNEL_ID &&
                         reader.u32("session id") == session;
  if (!is_for_us) return std::nullopt;
  const uint32_t count = reader.u32("count of ranges");
  if (count > reader.left() / RANGE_SIZE) return std::nullopt;
  std::vector<SeqRange> ranges;
  for (uint32_t i = 0; i < count; ++i) {
    const SeqRange range{reader.u64("first"), reader.u64("last")};
    if (range.last < range.first) return std::nullopt;
    if (!ranges.empty() && ranges.back().last >= range.first) return std::nullopt;
    ranges.push_back(range);
  }
  return ranges;
}

std::vector<Bytes> answer_gap_fill(const std::vector<SeqRange>& ranges, const Stream& stream,
                                   const Position& position, uint32_t session) {
  if (position.at_the_start()) return {};
  Answer answer(stream, position, session);
  if (ranges.empty()) answer.status();
  for (const SeqRange& range : ranges) answer.range(range);
  return std::move(answer).packets();
}

}  // namespace tools
