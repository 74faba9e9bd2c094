#include "quorl/client/iex_tp.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/hand_made.h"

namespace quorl::client {
namespace {

using hand_made::SESSION;

// Two messages, "S" of 10 bytes and one of 3, at stream offset 0x0102, first number 7.
const Bytes TWO_MESSAGES = {1,  0, 0x04, 0x80,               // version, reserved, protocol
                            1,  0, 0,    0,                  // channel
                            77, 0, 0,    0,                  // session
                            17, 0, 2,    0,                  // payload length, message count
                            2,  1, 0,    0,    0,  0, 0, 0,  // stream offset
                            7,  0, 0,    0,    0,  0, 0, 0,  // first sequence number
                            9,  8, 0,    0,    0,  0, 0, 0,  // send time
                            10, 0, 'S',  'O',  1,  0, 0, 0, 0, 0, 0, 0,  // a block of 12
                            3,  0, 'a',  'b',  'c'};                     // a block of 5

Bytes damaged(size_t at, uint8_t value) {
  Bytes bytes = TWO_MESSAGES;
  bytes.at(at) = value;
  return bytes;
}

TEST(IexTp, a_packet_is_read_field_by_field) {
  const TpPacket packet = decode_tp_packet(TWO_MESSAGES, SESSION);
  EXPECT_EQ(packet.header.session_id, 77u);
  EXPECT_EQ(packet.header.payload_length, 17);
  EXPECT_EQ(packet.header.message_count, 2);
  EXPECT_EQ(packet.header.stream_offset, 258u);
  EXPECT_EQ(packet.header.first_seq, 7u);
  EXPECT_EQ(packet.header.send_time_ns, 0x0809u);
  ASSERT_EQ(packet.messages.size(), 2u);
  EXPECT_EQ(packet.messages[0].stream_offset, 258u);
  EXPECT_EQ(packet.messages[0].bytes.size(), 10u);
  EXPECT_EQ(packet.messages[1].stream_offset, 270u);
  EXPECT_EQ(to_text(packet.messages[1].bytes), "abc");
  EXPECT_EQ(packet.messages[1].end_offset(), 275u);
  EXPECT_EQ(packet.end_offset(), 275u);
  EXPECT_EQ(packet.size(), TWO_MESSAGES.size());
  EXPECT_FALSE(packet.is_heartbeat());
}

TEST(IexTp, a_header_alone_is_a_heartbeat) {
  const Bytes bytes = encode_tp_packet(hand_made::header(500, 9), {});
  ASSERT_EQ(bytes.size(), TP_HEADER_SIZE);
  EXPECT_TRUE(decode_tp_packet(bytes, SESSION).is_heartbeat());
}

TEST(IexTp, each_constant_of_the_header_is_held_to) {
  for (const size_t at : {0u, 1u, 2u, 3u, 4u, 7u, 8u, 11u}) {
    SCOPED_TRACE(at);
    EXPECT_THROW(decode_tp_packet(damaged(at, 0x55), SESSION), WireError);
  }
}

TEST(IexTp, any_session_passes_if_none_is_expected) {
  EXPECT_EQ(decode_tp_packet(damaged(8, 0x55)).header.session_id, 0x55u);
}

TEST(IexTp, a_first_number_or_send_time_of_zero_is_refused) {
  EXPECT_THROW(decode_tp_packet(damaged(24, 0), SESSION), WireError);
  Bytes no_time = damaged(32, 0);
  no_time[33] = 0;
  EXPECT_THROW(decode_tp_packet(no_time, SESSION), WireError);
}

TEST(IexTp, lengths_and_counts_must_add_up_exactly) {
  EXPECT_THROW(decode_tp_packet(damaged(12, 16), SESSION), WireError);  // payload length
  EXPECT_THROW(decode_tp_packet(damaged(12, 18), SESSION), WireError);
  EXPECT_THROW(decode_tp_packet(damaged(14, 1), SESSION), WireError);  // message count
  EXPECT_THROW(decode_tp_packet(damaged(14, 3), SESSION), WireError);
  EXPECT_THROW(decode_tp_packet(damaged(52, 2), SESSION), WireError);  // second block too short
  EXPECT_THROW(decode_tp_packet(damaged(52, 4), SESSION), WireError);  // and too long
  Bytes longer = TWO_MESSAGES;
  longer.push_back(0);
  EXPECT_THROW(decode_tp_packet(longer, SESSION), WireError);
  for (size_t size = 0; size < TWO_MESSAGES.size(); ++size) {
    SCOPED_TRACE(size);
    EXPECT_THROW(decode_tp_packet(ByteView(TWO_MESSAGES).first(size), SESSION), WireError);
  }
}

TEST(IexTp, an_empty_block_is_refused) {
  const Bytes packet = encode_tp_packet(hand_made::header(0, 1), {Bytes{}});
  EXPECT_THROW(decode_tp_packet(packet, SESSION), WireError);
}

TEST(IexTp, a_packet_of_1500_bytes_passes_and_one_of_1501_does_not) {
  const Bytes full = encode_tp_packet(hand_made::header(0, 1), {Bytes(1458, 'x')});
  EXPECT_EQ(full.size(), 1500u);
  EXPECT_EQ(decode_tp_packet(full, SESSION).messages.size(), 1u);
  const Bytes over = encode_tp_packet(hand_made::header(0, 1), {Bytes(1459, 'x')});
  EXPECT_THROW(decode_tp_packet(over, SESSION), WireError);
}

TEST(IexTp, what_is_encoded_decodes_to_the_same_bytes) {
  TpHeader header = hand_made::header(258, 7);
  header.send_time_ns = 0x0809;
  const TpPacket packet = decode_tp_packet(TWO_MESSAGES, SESSION);
  EXPECT_EQ(encode_tp_packet(header, {packet.messages[0].bytes, packet.messages[1].bytes}),
            TWO_MESSAGES);
}

}  // namespace
}  // namespace quorl::client
