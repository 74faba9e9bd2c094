#include "feed/tp_packet.h"

#include <cstring>

#include "base/clocks.h"

namespace quorl {

void TpPacket::begin(uint64_t first_seq, uint64_t stream_offset) {
  size_ = TP_HEADER_SIZE;
  header_.message_count = 0;
  header_.first_seq = first_seq;
  header_.stream_offset = stream_offset;
}

void TpPacket::add(std::string_view message) {
  size_ += put_block(bytes_.data() + size_, message.data(), message.size());
  ++header_.message_count;
}

std::span<const uint8_t> TpPacket::stamped() {
  header_.payload_length = static_cast<uint16_t>(payload_size());
  header_.send_time = system_ns();
  const auto head = encode(header_);
  std::memcpy(bytes_.data(), head.data(), head.size());
  return {bytes_.data(), size_};
}

}  // namespace quorl
