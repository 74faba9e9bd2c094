#include "tools/replay/stream.h"

#include <algorithm>
#include <string>

#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/stream_index.h"

namespace client = quorl::client;

namespace tools {
namespace {

/// A packet announces a first number that is true or one too high; together they settle which.
client::StreamIndex index_of(const RecordedFeed& feed) {
  client::StreamIndex index;
  for (const RecordedPacket& packet : feed.packets) {
    const client::TpHeader& header = packet.header;
    if (header.stream_offset == 0) index.anchor(0, 1);
    if (packet.is_heartbeat()) {
      index.anchor(header.stream_offset, header.first_seq);
    } else {
      index.packet(header.stream_offset, packet.end_offset(), header.first_seq,
                   header.message_count);
    }
  }
  return index;
}

/// Each once, by stream offset, without heartbeats.
std::vector<const RecordedPacket*> in_order(const RecordedFeed& feed) {
  std::vector<const RecordedPacket*> packets;
  for (const RecordedPacket& packet : feed.packets) {
    if (!packet.is_heartbeat()) packets.push_back(&packet);
  }
  const auto offset_of = [](const RecordedPacket* packet) { return packet->header.stream_offset; };
  std::stable_sort(packets.begin(), packets.end(),
                   [&](const auto* a, const auto* b) { return offset_of(a) < offset_of(b); });
  const auto end = std::unique(packets.begin(), packets.end(), [&](const auto* a, const auto* b) {
    return offset_of(a) == offset_of(b);
  });
  packets.erase(end, packets.end());
  return packets;
}

}  // namespace

Stream::Stream(const RecordedFeed& feed) {
  const client::StreamIndex index = index_of(feed);
  for (const RecordedPacket* packet : in_order(feed)) {
    const uint64_t begin = packet->header.stream_offset;
    // Where nothing settles it, the rare exception is not assumed.
    uint64_t seq = index.seq_at(begin).value_or(packet->header.first_seq);
    if (!messages_.empty() &&
        (begin < messages_.back().end_offset() || seq <= messages_.back().seq)) {
      throw client::WireError("the packet at stream offset " + std::to_string(begin) +
                              " overlaps the one before it");
    }
    client::ByteReader reader(packet->bytes, "packet");
    (void)reader.take(client::TP_HEADER_SIZE, "header");
    while (reader.left() > 0) {
      const uint64_t offset = begin + reader.position() - client::TP_HEADER_SIZE;
      const uint16_t length = reader.u16("length");
      messages_.push_back({seq++, offset, reader.take(length, "message")});
    }
  }
}

size_t Stream::count_before(uint64_t stream_offset) const {
  const auto behind = std::partition_point(
      messages_.begin(), messages_.end(),
      [stream_offset](const StreamMessage& m) { return m.stream_offset < stream_offset; });
  return static_cast<size_t>(behind - messages_.begin());
}

uint64_t Stream::first_seq(const RecordedPacket& packet) const {
  if (packet.is_heartbeat()) return packet.header.first_seq;
  return messages_[count_before(packet.header.stream_offset)].seq;
}

}  // namespace tools
