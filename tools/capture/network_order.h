#pragma once

#include <cstddef>
#include <cstdint>

#include "quorl/client/bytes.h"

namespace tools {

constexpr uint16_t ETHERTYPE_IPV4 = 0x0800;
constexpr uint8_t PROTOCOL_UDP = 17;
constexpr uint16_t UDP_HEADER = 8;

// Headers of the network stand in big-endian order. Reading asks that the bytes be there.

inline uint16_t big_endian_16(quorl::client::ByteView bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

inline uint32_t big_endian_32(quorl::client::ByteView bytes, size_t at) {
  return static_cast<uint32_t>(big_endian_16(bytes, at)) << 16 | big_endian_16(bytes, at + 2);
}

inline void put_big_endian_16(quorl::client::Bytes& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value >> 8));
  out.push_back(static_cast<uint8_t>(value & 0xff));
}

inline void put_big_endian_32(quorl::client::Bytes& out, uint32_t value) {
  put_big_endian_16(out, static_cast<uint16_t>(value >> 16));
  put_big_endian_16(out, static_cast<uint16_t>(value & 0xffff));
}

}  // namespace tools
