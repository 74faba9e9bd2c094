#include "tests/tools/support/capture_bytes.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace capture_bytes {
namespace {

using client::Bytes;
using client::ByteView;

constexpr uint64_t NS_PER_S = 1'000'000'000;

void put_be16(Bytes& out, size_t value) {
  client::put_u8(out, static_cast<uint8_t>(value >> 8 & 0xff));
  client::put_u8(out, static_cast<uint8_t>(value & 0xff));
}

Bytes quad(const std::string& address) {
  std::istringstream text(address);
  Bytes bytes;
  for (std::string part; std::getline(text, part, '.');) {
    bytes.push_back(static_cast<uint8_t>(std::stoi(part)));
  }
  return bytes;
}

Bytes udp_datagram(uint16_t port, ByteView payload) {
  Bytes datagram;
  put_be16(datagram, 5000);
  put_be16(datagram, port);
  put_be16(datagram, payload.size() + 8);
  put_be16(datagram, 0);  // no checksum
  client::put_bytes(datagram, payload);
  return datagram;
}

/// `fragment` is the field of flags and offset.
Bytes ip_packet(const std::string& group, size_t fragment, ByteView body) {
  Bytes packet = {0x45, 0};
  put_be16(packet, body.size() + 20);
  put_be16(packet, 4711);  // identification
  put_be16(packet, fragment);
  client::put_bytes(packet, Bytes{1, 17, 0, 0});  // time to live, UDP, no checksum
  client::put_bytes(packet, Bytes{10, 0, 0, 1});
  client::put_bytes(packet, quad(group));
  client::put_bytes(packet, body);
  return packet;
}

}  // namespace

PcapFile::PcapFile() : PcapFile(Format()) {}

PcapFile::PcapFile(const Format& format) : format_(format) {
  put(format.nanoseconds ? 0xa1b23c4d : 0xa1b2c3d4);
  put(2, 2);
  put(4, 2);
  put(0);
  put(0);
  put(format.snap_length);
  put(format.link_type);
}

PcapFile& PcapFile::frame(uint64_t time_ns, ByteView frame_bytes) {
  const size_t captured = std::min<size_t>(frame_bytes.size(), format_.snap_length);
  const uint64_t fraction = time_ns % NS_PER_S;
  put(static_cast<uint32_t>(time_ns / NS_PER_S));
  put(static_cast<uint32_t>(format_.nanoseconds ? fraction : fraction / 1000));
  put(static_cast<uint32_t>(captured));
  put(static_cast<uint32_t>(frame_bytes.size()));
  client::put_bytes(bytes, frame_bytes.first(captured));
  return *this;
}

void PcapFile::put(uint32_t value, size_t width) {
  for (size_t i = 0; i < width; ++i) {
    const size_t place = format_.big_endian ? width - 1 - i : i;
    client::put_u8(bytes, static_cast<uint8_t>(value >> (8 * place) & 0xff));
  }
}

PcapngFile::PcapngFile(uint16_t link_type) {
  Bytes section;
  client::put_u32(section, 0x1a2b3c4d);
  client::put_u16(section, 1);
  client::put_u16(section, 0);
  client::put_u64(section, UINT64_MAX);  // length not told
  block(0x0a0d0d0a, section);
  Bytes interface;
  client::put_u16(interface, link_type);
  client::put_u16(interface, 0);
  client::put_u32(interface, 0);                                // no snap length
  client::put_bytes(interface, Bytes{9, 0, 1, 0, 9, 0, 0, 0});  // if_tsresol: 10^-9 s
  client::put_u32(interface, 0);                                // end of options
  block(1, interface);
}

PcapngFile& PcapngFile::frame(uint64_t time_ns, ByteView frame_bytes) {
  Bytes packet;
  client::put_u32(packet, 0);  // interface
  client::put_u32(packet, static_cast<uint32_t>(time_ns >> 32));
  client::put_u32(packet, static_cast<uint32_t>(time_ns & 0xffffffff));
  client::put_u32(packet, static_cast<uint32_t>(frame_bytes.size()));
  client::put_u32(packet, static_cast<uint32_t>(frame_bytes.size()));
  client::put_bytes(packet, frame_bytes);
  block(6, packet);
  return *this;
}

void PcapngFile::block(uint32_t type, Bytes body) {
  while (body.size() % 4 != 0) body.push_back(0);
  const auto length = static_cast<uint32_t>(body.size() + 12);
  client::put_u32(bytes, type);
  client::put_u32(bytes, length);
  client::put_bytes(bytes, body);
  client::put_u32(bytes, length);
}

void write_file(const std::string& path, ByteView bytes) {
  std::ofstream file(path, std::ios::binary);
  const std::string text = client::to_text(bytes);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

Bytes udp_packet(const std::string& group, uint16_t port, ByteView payload) {
  return ip_packet(group, 0, udp_datagram(port, payload));
}

std::vector<Bytes> udp_fragments(const std::string& group, uint16_t port, ByteView payload,
                                 size_t most) {
  const Bytes datagram = udp_datagram(port, payload);
  std::vector<Bytes> packets;
  for (size_t offset = 0; offset < datagram.size(); offset += most) {
    const size_t size = std::min(most, datagram.size() - offset);
    const size_t more = offset + size < datagram.size() ? 0x2000 : 0;
    packets.push_back(
        ip_packet(group, more | offset / 8, ByteView(datagram).subspan(offset, size)));
  }
  return packets;
}

Bytes ethernet(ByteView packet, const std::vector<uint16_t>& vlan_types) {
  Bytes frame = {1, 0, 0x5e, 0, 0, 1, 2, 0, 0, 0, 0, 1};
  for (const uint16_t type : vlan_types) {
    put_be16(frame, type);
    put_be16(frame, 42);  // the VLAN's number
  }
  put_be16(frame, 0x0800);
  client::put_bytes(frame, packet);
  return frame;
}

Bytes cooked(ByteView packet) {
  return behind({0, 2, 0, 1, 0, 6, 2, 0, 0, 0, 0, 1, 0, 0, 0x08, 0x00}, packet);
}

Bytes cooked_2(ByteView packet) {
  return behind({0x08, 0x00, 0, 0, 0, 0, 0, 1, 0, 1, 2, 6, 2, 0, 0, 0, 0, 1, 0, 0}, packet);
}

Bytes behind(const Bytes& header, ByteView packet) {
  Bytes frame = header;
  client::put_bytes(frame, packet);
  return frame;
}

}  // namespace capture_bytes
