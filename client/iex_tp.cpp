#include "quorl/client/iex_tp.h"

#include <string>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

template <typename Value>
void require(Value actual, Value wanted, const char* field) {
  if (actual == wanted) return;
  throw WireError("IEX-TP header: " + std::string(field) + " is " + std::to_string(actual) +
                  " and not " + std::to_string(wanted));
}

}  // namespace

TpHeader decode_tp_header(ByteView bytes, std::optional<uint32_t> session) {
  ByteReader reader(bytes, "IEX-TP header");
  TpHeader header;
  header.version = reader.u8("version");
  header.reserved = reader.u8("reserved byte");
  header.protocol_id = reader.u16("protocol id");
  header.channel_id = reader.u32("channel id");
  header.session_id = reader.u32("session id");
  header.payload_length = reader.u16("payload length");
  header.message_count = reader.u16("message count");
  header.stream_offset = reader.u64("stream offset");
  header.first_seq = reader.u64("first sequence number");
  header.send_time_ns = reader.u64("send time");
  reader.expect_end();
  require<unsigned>(header.version, 1, "version");
  require<unsigned>(header.reserved, 0, "reserved byte");
  require<unsigned>(header.protocol_id, DEEP_PROTOCOL_ID, "protocol id");
  require<unsigned>(header.channel_id, DEEP_CHANNEL_ID, "channel id");
  if (session) require<unsigned>(header.session_id, *session, "session id");
  if (header.first_seq == 0) throw WireError("IEX-TP header: first sequence number is 0");
  if (header.send_time_ns == 0) throw WireError("IEX-TP header: send time is 0");
  return header;
}

TpPacket decode_tp_packet(ByteView bytes, std::optional<uint32_t> session) {
  if (bytes.size() > TP_MAX_PACKET) {
    throw WireError("IEX-TP packet of " + std::to_string(bytes.size()) + " bytes");
  }
  ByteReader reader(bytes, "IEX-TP packet");
  TpPacket packet;
  packet.header = decode_tp_header(reader.take(TP_HEADER_SIZE, "header"), session);
  if (reader.left() != packet.header.payload_length) {
    throw WireError("IEX-TP packet announces a payload of " +
                    std::to_string(packet.header.payload_length) + " bytes and carries " +
                    std::to_string(reader.left()));
  }
  while (reader.left() > 0) {
    TpMessage message;
    message.stream_offset = packet.header.stream_offset + (reader.position() - TP_HEADER_SIZE);
    const uint16_t length = reader.u16("block length");
    if (length == 0) throw WireError("IEX-TP packet with an empty block: " + hex(bytes));
    const ByteView body = reader.take(length, "block");
    message.bytes.assign(body.begin(), body.end());
    packet.messages.push_back(std::move(message));
  }
  if (packet.messages.size() != packet.header.message_count) {
    throw WireError("IEX-TP packet announces " + std::to_string(packet.header.message_count) +
                    " messages and carries " + std::to_string(packet.messages.size()));
  }
  return packet;
}

Bytes encode_tp_packet(const TpHeader& header, const std::vector<Bytes>& messages) {
  Bytes payload;
  for (const Bytes& message : messages) {
    put_u16(payload, static_cast<uint16_t>(message.size()));
    put_bytes(payload, message);
  }
  Bytes packet;
  put_u8(packet, header.version);
  put_u8(packet, header.reserved);
  put_u16(packet, header.protocol_id);
  put_u32(packet, header.channel_id);
  put_u32(packet, header.session_id);
  put_u16(packet, static_cast<uint16_t>(payload.size()));
  put_u16(packet, static_cast<uint16_t>(messages.size()));
  put_u64(packet, header.stream_offset);
  put_u64(packet, header.first_seq);
  put_u64(packet, header.send_time_ns);
  put_bytes(packet, payload);
  return packet;
}

}  // namespace quorl::client
