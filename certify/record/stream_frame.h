#pragma once

#include <cstdint>

#include "quorl/client/bytes.h"
#include "tools/capture/endpoint.h"

namespace certify {

/// What a TCP segment says besides its bytes.
struct SegmentHead {
  uint32_t seq = 0;  // of its first byte
  uint32_t ack = 0;  // the next byte that is expected; only with ACK
  uint8_t flags = 0;
};
constexpr uint8_t TCP_FIN = 0x01;
constexpr uint8_t TCP_SYN = 0x02;
constexpr uint8_t TCP_RST = 0x04;
constexpr uint8_t TCP_PSH = 0x08;
constexpr uint8_t TCP_ACK = 0x10;

/// A TCP segment as a capture on the loopback interface would show it: Ethernet without addresses,
/// IPv4, TCP, lengths and checksums right. At most 65495 bytes of payload.
quorl::client::Bytes stream_frame(const tools::Endpoint& from, const tools::Endpoint& to,
                                  const SegmentHead& head, quorl::client::ByteView payload);

}  // namespace certify
