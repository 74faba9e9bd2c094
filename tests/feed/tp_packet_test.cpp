#include "feed/tp_packet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/test_clock.h"
#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::hex;
using test::SESSION;

Bytes bytes_of(TpPacket& packet) {
  const auto bytes = packet.stamped();
  return {bytes.begin(), bytes.end()};
}

TEST(TpPacket, byte_by_byte) {
  test::reset_clocks();
  test::set_system_ns(0x0807060504030201);
  TpPacket packet(SESSION);
  packet.begin(7, 0x0A0B);
  packet.add("SO");
  packet.add("");
  EXPECT_EQ(packet.message_count(), 2);
  EXPECT_EQ(packet.payload_size(), 6u);
  EXPECT_EQ(packet.size(), 46u);
  EXPECT_EQ(bytes_of(packet), hex("01 00 04 80 01 00 00 00 44 33 22 11 06 00 02 00"
                                  "0B 0A 00 00 00 00 00 00 07 00 00 00 00 00 00 00"
                                  "01 02 03 04 05 06 07 08"
                                  "02 00 53 4F 00 00"));
}

TEST(TpPacket, is_empty_again_when_it_is_begun_anew) {
  TpPacket packet(SESSION);
  packet.begin(1, 0);
  packet.add("gone");
  packet.begin(2, 6);
  EXPECT_EQ(packet.message_count(), 0);
  EXPECT_EQ(packet.first_seq(), 2u);
  EXPECT_EQ(test::packet_of(bytes_of(packet)).size, 40u);
}

TEST(TpPacket, is_stamped_with_the_present_time_each_time) {
  test::reset_clocks();
  TpPacket packet(SESSION);
  packet.begin(1, 0);
  bytes_of(packet);
  test::advance_ms(3);
  EXPECT_EQ(test::packet_of(bytes_of(packet)).send_time, test::START_SYSTEM_NS + 3'000'000);
}

TEST(TpPacket, takes_messages_up_to_byte_1500) {
  TpPacket packet(SESSION);
  packet.begin(1, 0);
  EXPECT_TRUE(packet.fits(1458));
  EXPECT_FALSE(packet.fits(1459));
  packet.add(std::string(100, 'x'));
  EXPECT_TRUE(packet.fits(1356));
  EXPECT_FALSE(packet.fits(1357));
  packet.add(std::string(1356, 'x'));
  EXPECT_EQ(bytes_of(packet).size(), 1500u);
  EXPECT_FALSE(packet.fits(0));
}

}  // namespace
}  // namespace quorl
