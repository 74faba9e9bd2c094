#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "feed/tp_header.h"

namespace quorl {

/// An IEX-TP packet under assembly: the header, and behind it a block for each message.
class TpPacket {
 public:
  explicit TpPacket(uint32_t session_id) { header_.session_id = session_id; }

  /// Empties it. The numbers are those that its header will tell.
  void begin(uint64_t first_seq, uint64_t stream_offset);

  bool fits(size_t message_size) const {
    return size_ + BLOCK_PREFIX_SIZE + message_size <= MAX_PACKET_SIZE;
  }
  /// REQUIRES: fits(message.size()).
  void add(std::string_view message);

  /// The whole packet, stamped with the system clock; good until the packet changes.
  std::span<const uint8_t> stamped();

  /// Bytes, header included.
  size_t size() const { return size_; }
  size_t payload_size() const { return size_ - TP_HEADER_SIZE; }
  uint16_t message_count() const { return header_.message_count; }
  uint64_t first_seq() const { return header_.first_seq; }

 private:
  // As many messages as the header can count fit no packet, so nothing has to count them.
  static_assert((MAX_PACKET_SIZE - TP_HEADER_SIZE) / BLOCK_PREFIX_SIZE <= UINT16_MAX);

  TpHeader header_;
  size_t size_ = TP_HEADER_SIZE;
  std::array<uint8_t, MAX_PACKET_SIZE> bytes_;
};

}  // namespace quorl
