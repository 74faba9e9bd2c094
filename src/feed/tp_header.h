#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/little_endian.h"

namespace quorl {

constexpr size_t TP_HEADER_SIZE = 40;
constexpr size_t MAX_PACKET_SIZE = 1500;  // header included
constexpr size_t BLOCK_PREFIX_SIZE = 2;   // the length in front of each message
constexpr uint16_t DEEP_PROTOCOL_ID = 0x8004;
constexpr uint32_t DEEP_CHANNEL_ID = 1;

/// The IEX-TP segment header in front of every packet.
struct TpHeader {
  uint8_t version = 1;
  uint8_t reserved = 0;
  uint16_t protocol_id = DEEP_PROTOCOL_ID;
  uint32_t channel_id = DEEP_CHANNEL_ID;
  uint32_t session_id = 0;
  uint16_t payload_length = 0;  // bytes behind the header
  uint16_t message_count = 0;
  uint64_t stream_offset = 0;  // position of the payload in the stream of all payloads
  uint64_t first_seq = 0;      // of the packet's first message
  uint64_t send_time = 0;      // system clock, ns since the Unix epoch
};

/// Writes one message block, the length and the message, and returns its size.
/// REQUIRES: room for it at `at`.
inline size_t put_block(uint8_t* at, const void* message, size_t size) {
  const auto prefix = pack_le(static_cast<uint16_t>(size));
  static_assert(prefix.size() == BLOCK_PREFIX_SIZE);
  std::memcpy(at, prefix.data(), prefix.size());
  if (size != 0) std::memcpy(at + prefix.size(), message, size);
  return prefix.size() + size;
}

inline auto encode(const TpHeader& h) {
  const auto bytes =
      pack_le(h.version, h.reserved, h.protocol_id, h.channel_id, h.session_id, h.payload_length,
              h.message_count, h.stream_offset, h.first_seq, h.send_time);
  static_assert(bytes.size() == TP_HEADER_SIZE);
  return bytes;
}

}  // namespace quorl
