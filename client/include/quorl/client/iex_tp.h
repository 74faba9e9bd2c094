#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "quorl/client/bytes.h"

namespace quorl::client {

constexpr size_t TP_HEADER_SIZE = 40;
constexpr size_t TP_MAX_PACKET = 1500;
constexpr uint16_t DEEP_PROTOCOL_ID = 0x8004;
constexpr uint32_t DEEP_CHANNEL_ID = 1;

struct TpHeader {
  uint8_t version = 0;
  uint8_t reserved = 0;
  uint16_t protocol_id = 0;
  uint32_t channel_id = 0;
  uint32_t session_id = 0;
  uint16_t payload_length = 0;
  uint16_t message_count = 0;
  uint64_t stream_offset = 0;  // of the payload's first byte
  uint64_t first_seq = 0;      // as announced: on the multicast feed it can be one too high
  uint64_t send_time_ns = 0;   // system clock, since the Unix epoch
};

struct TpMessage {
  uint64_t stream_offset = 0;  // of its block, the length prefix included: always true
  Bytes bytes;                 // without the length prefix

  /// The offset of the block behind it.
  uint64_t end_offset() const { return stream_offset + bytes.size() + 2; }
};

struct TpPacket {
  TpHeader header;
  std::vector<TpMessage> messages;

  bool is_heartbeat() const { return header.message_count == 0; }
  uint64_t end_offset() const { return header.stream_offset + header.payload_length; }
  size_t size() const { return TP_HEADER_SIZE + header.payload_length; }
};

/// The 40 bytes as they stand, checked: version, reserved byte, protocol, channel, session (if
/// given), and a send time and first sequence number above 0. Throws WireError.
TpHeader decode_tp_header(ByteView bytes, std::optional<uint32_t> session);

/// One whole packet: the header, at most 1500 bytes, blocks that fill the payload exactly and are
/// as many as announced, none of them empty. Throws WireError.
TpPacket decode_tp_packet(ByteView bytes, std::optional<uint32_t> session = std::nullopt);

/// For tests that make packets of their own. Lengths and counts follow from `messages`.
Bytes encode_tp_packet(const TpHeader& header, const std::vector<Bytes>& messages);

}  // namespace quorl::client
