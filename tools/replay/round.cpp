#include "tools/replay/round.h"

#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace tools {
namespace {

constexpr size_t SESSION_AT = 8;

}  // namespace

Round::Round(const Stream& stream, uint32_t session)
    : stream_(stream), session_(session), position_(stream) {}

client::Bytes Round::wire_bytes(const RecordedPacket& packet) const {
  client::Bytes session;
  client::put_u32(session, session_);
  client::Bytes bytes = packet.bytes;
  for (size_t i = 0; i < session.size(); ++i) bytes[SESSION_AT + i] = session[i];
  return bytes;
}

client::Bytes Round::heartbeat(uint64_t later_ns) const {
  return client::encode_tp_packet({.version = 1,
                                   .reserved = 0,
                                   .protocol_id = client::DEEP_PROTOCOL_ID,
                                   .channel_id = client::DEEP_CHANNEL_ID,
                                   .session_id = session_,
                                   .payload_length = 0,
                                   .message_count = 0,
                                   .stream_offset = position_.next_offset(),
                                   .first_seq = position_.next_seq(),
                                   .send_time_ns = position_.time_ns() + later_ns},
                                  {});
}

MarketImage Round::image() {
  while (applied_ < position_.messages()) apply_next();
  while (market_.inside_event() && applied_ < stream_.messages().size() &&
         stream_.follows_on(applied_ - 1)) {
    apply_next();
  }
  MarketImage image{.seq = position_.next_seq() - 1,
                    .next_offset = position_.next_offset(),
                    .time_ns = position_.time_ns(),
                    .messages = market_.image(position_.time_ns())};
  if (applied_ > position_.messages()) {
    image.seq = stream_.messages()[applied_ - 1].seq;
    image.next_offset = stream_.messages()[applied_ - 1].end_offset();
  }
  return image;
}

void Round::apply_next() {
  if (applied_ > 0 && !stream_.follows_on(applied_ - 1)) market_.skip_lost_messages();
  // What is no message of the exchange has been counted when the recording was read.
  (void)market_.apply(stream_.messages()[applied_++].bytes);
}

}  // namespace tools
