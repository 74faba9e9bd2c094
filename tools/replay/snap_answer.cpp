#include "tools/replay/snap_answer.h"

#include <algorithm>

#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

namespace tools {
namespace {

using client::Bytes;
using client::ByteView;

constexpr size_t LENGTH_SIZE = 2;
constexpr size_t SMALLEST_REQUEST = 57;  // bytes behind the length
constexpr size_t NAME_SIZE = 40;

Bytes frame_of(char type, ByteView body) {
  Bytes frame;
  client::put_u16(frame, static_cast<uint16_t>(body.size() + 1));
  client::put_u8(frame, static_cast<uint8_t>(type));
  client::put_bytes(frame, body);
  return frame;
}

Bytes number_frame(char type, uint64_t number) {
  Bytes body;
  client::put_u64(body, number);
  return frame_of(type, body);
}

Bytes image_reply(const MarketImage& image, uint32_t session) {
  const client::TpHeader header{.version = 1,
                                .reserved = 0,
                                .protocol_id = client::DEEP_PROTOCOL_ID,
                                .channel_id = client::DEEP_CHANNEL_ID,
                                .session_id = session,
                                .payload_length = 0,  // the encoder counts
                                .message_count = 0,
                                .stream_offset = image.next_offset,
                                .first_seq = image.seq,
                                .send_time_ns = image.time_ns};
  Bytes data;
  for (const Bytes& message : image.messages) {
    client::put_bytes(data, frame_of('d', client::encode_tp_packet(header, {message})));
  }
  const Bytes end = number_frame('x', image.seq);
  Bytes reply = number_frame('s', 2 * end.size() + data.size());  // the start frame is as long
  client::put_bytes(reply, data);
  client::put_bytes(reply, end);
  return reply;
}

SnapAnswer refusal(char code) {
  const auto byte = static_cast<uint8_t>(code);
  return {.bytes = frame_of('e', ByteView(&byte, 1)), .error = code};
}

}  // namespace

std::optional<ByteView> whole_frame(ByteView inbound) {
  if (inbound.size() <= LENGTH_SIZE) return std::nullopt;
  const size_t length = client::ByteReader(inbound, "request").u16("length");
  if (length == 0 || inbound.size() < length + LENGTH_SIZE) return std::nullopt;
  return inbound.first(length + LENGTH_SIZE);
}

SnapAnswer answer_snap(ByteView frame, Round& round) {
  client::ByteReader reader(frame, "DEEP SNAP request");
  const size_t length = reader.u16("length");
  if (reader.character("type") != 'r' || length < SMALLEST_REQUEST) return refusal('U');
  const ByteView name = reader.take(NAME_SIZE, "name");
  const bool named =
      std::any_of(name.begin(), name.end(), [](uint8_t byte) { return byte != 0 && byte != ' '; });
  if (!named) return refusal('A');
  if (reader.u32("channel id") != client::DEEP_CHANNEL_ID) return refusal('C');
  if (reader.u32("session id") != round.session()) return refusal('S');
  const uint64_t minimum = reader.u64("minimum");
  if (round.position().at_the_start()) return refusal('R');
  const MarketImage image = round.image();
  if (image.seq < minimum) return refusal('R');
  return {.bytes = image_reply(image, round.session()),
          .error = 0,
          .seq = image.seq,
          .minimum_seq = minimum};
}

}  // namespace tools
