#include "tools/capture/udp_frame.h"

#include "tools/capture/network_order.h"

namespace client = quorl::client;

namespace tools {
namespace {

using client::Bytes;
using client::ByteView;

constexpr uint16_t IP_HEADER = 20;
constexpr uint16_t DO_NOT_FRAGMENT = 0x4000;
constexpr uint8_t TIME_TO_LIVE = 1;

void put_ethernet_header(Bytes& frame, const Endpoint& group) {
  // A group's address on the Ethernet ends in the low 23 bits of its IP address.
  client::put_bytes(frame, Bytes{0x01, 0x00, 0x5e});
  client::put_u8(frame, static_cast<uint8_t>(group.address >> 16 & 0x7f));
  put_big_endian_16(frame, static_cast<uint16_t>(group.address & 0xffff));
  client::put_bytes(frame, Bytes(6, 0));
  put_big_endian_16(frame, ETHERTYPE_IPV4);
}

Bytes ip_header(const Endpoint& from, const Endpoint& group, uint16_t total, uint16_t checksum) {
  Bytes header;
  client::put_u8(header, 0x45);  // version 4, five words
  client::put_u8(header, 0);
  put_big_endian_16(header, total);
  put_big_endian_16(header, 0);
  put_big_endian_16(header, DO_NOT_FRAGMENT);
  client::put_u8(header, TIME_TO_LIVE);
  client::put_u8(header, PROTOCOL_UDP);
  put_big_endian_16(header, checksum);
  put_big_endian_32(header, from.address);
  put_big_endian_32(header, group.address);
  return header;
}

Bytes udp_header(const Endpoint& from, const Endpoint& group, uint16_t length, uint16_t checksum) {
  Bytes header;
  put_big_endian_16(header, from.port);
  put_big_endian_16(header, group.port);
  put_big_endian_16(header, length);
  put_big_endian_16(header, checksum);
  return header;
}

/// The datagram behind the pseudo header that its checksum covers.
uint16_t udp_checksum(const Endpoint& from, const Endpoint& group, ByteView payload) {
  const auto length = static_cast<uint16_t>(UDP_HEADER + payload.size());
  Bytes covered;
  put_big_endian_32(covered, from.address);
  put_big_endian_32(covered, group.address);
  put_big_endian_16(covered, PROTOCOL_UDP);
  put_big_endian_16(covered, length);
  client::put_bytes(covered, udp_header(from, group, length, 0));
  client::put_bytes(covered, payload);
  const uint16_t sum = internet_checksum(covered);
  return sum == 0 ? 0xffff : sum;  // 0 on the wire would mean that there is none
}

}  // namespace

uint16_t internet_checksum(ByteView bytes, uint32_t sum) {
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) sum += big_endian_16(bytes, i);
  if (bytes.size() % 2 != 0) sum += static_cast<uint32_t>(bytes.back()) << 8;
  while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum & 0xffff);
}

Bytes ethernet_frame(const Endpoint& from, const Endpoint& group, ByteView payload) {
  const auto udp_length = static_cast<uint16_t>(UDP_HEADER + payload.size());
  const auto total = static_cast<uint16_t>(IP_HEADER + udp_length);
  Bytes frame;
  put_ethernet_header(frame, group);
  const uint16_t checksum = internet_checksum(ip_header(from, group, total, 0));
  client::put_bytes(frame, ip_header(from, group, total, checksum));
  client::put_bytes(frame, udp_header(from, group, udp_length, udp_checksum(from, group, payload)));
  client::put_bytes(frame, payload);
  return frame;
}

}  // namespace tools
