#include "tests/share/capture_file.h"

#include <fstream>

#include "quorl/client/errors.h"

namespace share {
namespace {

using client::Bytes;
using client::ByteView;
using client::put_bytes;
using client::put_u16;
using client::put_u32;
using client::put_u8;

constexpr uint32_t NANOSECOND_MAGIC = 0xa1b23c4d;
constexpr uint32_t RAW_IP = 101;  // the link type: packets begin with their IP header
constexpr uint32_t LARGEST_FRAME = 262144;
constexpr uint32_t BEGIN_S = 1790000000;
constexpr size_t IP_HEADER_SIZE = 20;
constexpr size_t UDP_HEADER_SIZE = 8;
constexpr uint8_t UDP = 17;
constexpr uint8_t TCP = 6;
constexpr uint8_t FIN = 0x01, SYN = 0x02, ACK = 0x10, PUSH = 0x08;

// Headers are big-endian, unlike all that they carry.
void put_be16(Bytes& out, size_t value) {
  put_u8(out, static_cast<uint8_t>(value >> 8));
  put_u8(out, static_cast<uint8_t>(value));
}

void put_be32(Bytes& out, uint32_t value) {
  put_be16(out, value >> 16);
  put_be16(out, value & 0xffff);
}

}  // namespace

CaptureFile::CaptureFile() {
  put_u32(bytes_, NANOSECOND_MAGIC);
  put_u16(bytes_, 2);  // version 2.4
  put_u16(bytes_, 4);
  put_u32(bytes_, 0);
  put_u32(bytes_, 0);
  put_u32(bytes_, LARGEST_FRAME);
  put_u32(bytes_, RAW_IP);
}

size_t CaptureFile::ip(uint8_t protocol, Endpoint from, Endpoint to, ByteView packet,
                       size_t uncaptured) {
  const size_t size = IP_HEADER_SIZE + packet.size();
  const uint64_t time_ms = frames_;
  put_u32(bytes_, BEGIN_S + static_cast<uint32_t>(time_ms / 1000));
  put_u32(bytes_, static_cast<uint32_t>(time_ms % 1000 * 1000000));
  put_u32(bytes_, static_cast<uint32_t>(size - uncaptured));
  put_u32(bytes_, static_cast<uint32_t>(size));
  put_u8(bytes_, 0x45);
  put_u8(bytes_, 0);
  put_be16(bytes_, size);
  put_be32(bytes_, 0);
  put_u8(bytes_, 1);  // TTL
  put_u8(bytes_, protocol);
  put_be16(bytes_, 0);  // no checksum: nobody looks, as network cards fill it in
  put_be32(bytes_, from.address);
  put_be32(bytes_, to.address);
  put_bytes(bytes_, packet.first(packet.size() - uncaptured));
  return ++frames_;
}

size_t CaptureFile::udp(Endpoint from, Endpoint to, ByteView payload, size_t uncaptured) {
  Bytes packet;
  put_be16(packet, from.port);
  put_be16(packet, to.port);
  put_be16(packet, UDP_HEADER_SIZE + payload.size());
  put_be16(packet, 0);
  put_bytes(packet, payload);
  return ip(UDP, from, to, packet, uncaptured);
}

size_t CaptureFile::tcp(Endpoint from, Endpoint to, uint32_t seq, uint32_t ack, uint8_t flags,
                        ByteView payload, size_t uncaptured) {
  Bytes packet;
  put_be16(packet, from.port);
  put_be16(packet, to.port);
  put_be32(packet, seq);
  put_be32(packet, ack);
  put_u8(packet, 0x50);
  put_u8(packet, flags);
  put_be16(packet, 65535);  // window
  put_be32(packet, 0);
  put_bytes(packet, payload);
  return ip(TCP, from, to, packet, uncaptured);
}

void CaptureFile::write(const std::string& path) const {
  std::ofstream file(path, std::ios::binary);
  file << client::to_text(bytes_);
  file.close();
  if (!file) throw client::SystemError("write " + path);
}

CapturedConnection::CapturedConnection(CaptureFile& file, Endpoint client, Endpoint server)
    : file_(file), client_(client), server_(server) {
  file_.tcp(client_, server_, client_seq_++, 0, SYN, {});
  file_.tcp(server_, client_, server_seq_++, client_seq_, SYN | ACK, {});
  file_.tcp(client_, server_, client_seq_, server_seq_, ACK, {});
}

size_t CapturedConnection::client_sends(ByteView bytes, size_t uncaptured) {
  const size_t frame =
      file_.tcp(client_, server_, client_seq_, server_seq_, ACK | PUSH, bytes, uncaptured);
  client_seq_ += static_cast<uint32_t>(bytes.size());
  return frame;
}

size_t CapturedConnection::server_sends(ByteView bytes, size_t uncaptured) {
  const size_t frame =
      file_.tcp(server_, client_, server_seq_, client_seq_, ACK | PUSH, bytes, uncaptured);
  server_seq_ += static_cast<uint32_t>(bytes.size());
  return frame;
}

void CapturedConnection::server_closes() {
  file_.tcp(server_, client_, server_seq_, client_seq_, FIN | ACK, {});
}

}  // namespace share
