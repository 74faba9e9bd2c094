#include "feed/tp_header.h"

#include <gtest/gtest.h>

#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::hex;

Bytes encoded(const TpHeader& header) {
  const auto bytes = encode(header);
  return {bytes.begin(), bytes.end()};
}

TEST(TpHeader, every_field_stands_at_its_offset) {
  TpHeader header;
  header.session_id = 0xA1B2C3D4;
  header.payload_length = 0x0123;
  header.message_count = 0x4567;
  header.stream_offset = 0x1122334455667788;
  header.first_seq = 0x99AABBCCDDEEFF00;
  header.send_time = 0x0F1E2D3C4B5A6978;
  EXPECT_EQ(encoded(header), hex("01 00 04 80 01 00 00 00 D4 C3 B2 A1 23 01 67 45"
                                 "88 77 66 55 44 33 22 11 00 FF EE DD CC BB AA 99"
                                 "78 69 5A 4B 3C 2D 1E 0F"));
}

TEST(TpHeader, a_fresh_one_says_version_1_deep_on_channel_1_and_nothing_else) {
  EXPECT_EQ(encoded(TpHeader{}), hex("01 00 04 80 01 00 00 00 00 00 00 00 00 00 00 00"
                                     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "00 00 00 00 00 00 00 00"));
}

}  // namespace
}  // namespace quorl
