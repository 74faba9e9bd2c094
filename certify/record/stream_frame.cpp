#include "certify/record/stream_frame.h"

#include "tools/capture/network_order.h"
#include "tools/capture/udp_frame.h"

namespace client = quorl::client;

namespace certify {
namespace {

using client::Bytes;
using client::ByteView;
using tools::Endpoint;

constexpr uint16_t ETHERTYPE_IPV4 = 0x0800;
constexpr uint16_t IP_HEADER = 20;
constexpr uint16_t TCP_HEADER = 20;
constexpr uint8_t TCP = 6;
constexpr uint8_t TIME_TO_LIVE = 64;
constexpr uint16_t DO_NOT_FRAGMENT = 0x4000;
constexpr uint16_t WINDOW = 65535;

Bytes ip_header(const Endpoint& from, const Endpoint& to, uint16_t total, uint16_t checksum) {
  Bytes header;
  client::put_u8(header, 0x45);  // version 4, five words
  client::put_u8(header, 0);
  tools::put_big_endian_16(header, total);
  tools::put_big_endian_16(header, 0);
  tools::put_big_endian_16(header, DO_NOT_FRAGMENT);
  client::put_u8(header, TIME_TO_LIVE);
  client::put_u8(header, TCP);
  tools::put_big_endian_16(header, checksum);
  tools::put_big_endian_32(header, from.address);
  tools::put_big_endian_32(header, to.address);
  return header;
}

Bytes tcp_header(const Endpoint& from, const Endpoint& to, const SegmentHead& head,
                 uint16_t checksum) {
  Bytes header;
  tools::put_big_endian_16(header, from.port);
  tools::put_big_endian_16(header, to.port);
  tools::put_big_endian_32(header, head.seq);
  tools::put_big_endian_32(header, head.ack);
  client::put_u8(header, 0x50);  // five words
  client::put_u8(header, head.flags);
  tools::put_big_endian_16(header, WINDOW);
  tools::put_big_endian_16(header, checksum);
  tools::put_big_endian_16(header, 0);
  return header;
}

/// Over the pseudo header, too.
uint16_t tcp_checksum(const Endpoint& from, const Endpoint& to, const SegmentHead& head,
                      ByteView payload) {
  Bytes covered;
  tools::put_big_endian_32(covered, from.address);
  tools::put_big_endian_32(covered, to.address);
  tools::put_big_endian_16(covered, TCP);
  tools::put_big_endian_16(covered, static_cast<uint16_t>(TCP_HEADER + payload.size()));
  client::put_bytes(covered, tcp_header(from, to, head, 0));
  client::put_bytes(covered, payload);
  return tools::internet_checksum(covered);
}

}  // namespace

Bytes stream_frame(const Endpoint& from, const Endpoint& to, const SegmentHead& head,
                   ByteView payload) {
  const auto total = static_cast<uint16_t>(IP_HEADER + TCP_HEADER + payload.size());
  Bytes frame(12, 0);  // neither side has an address on the Ethernet
  tools::put_big_endian_16(frame, ETHERTYPE_IPV4);
  const uint16_t checksum = tools::internet_checksum(ip_header(from, to, total, 0));
  client::put_bytes(frame, ip_header(from, to, total, checksum));
  client::put_bytes(frame, tcp_header(from, to, head, tcp_checksum(from, to, head, payload)));
  client::put_bytes(frame, payload);
  return frame;
}

}  // namespace certify
