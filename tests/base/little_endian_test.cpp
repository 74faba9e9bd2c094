#include "base/little_endian.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::hex;

template <typename... Fields>
Bytes packed(const Fields&... fields) {
  const auto bytes = pack_le(fields...);
  return {bytes.begin(), bytes.end()};
}

Bytes symbol_field(const std::string& symbol) { return packed(Symbol8(symbol)); }

TEST(LittleEndian, integers_stand_with_their_low_byte_first) {
  EXPECT_EQ(packed(uint8_t{0xAB}), hex("AB"));
  EXPECT_EQ(packed(uint16_t{0x8004}), hex("04 80"));
  EXPECT_EQ(packed(uint32_t{0x12345678}), hex("78 56 34 12"));
  EXPECT_EQ(packed(uint64_t{0x0102030405060708}), hex("08 07 06 05 04 03 02 01"));
}

TEST(LittleEndian, a_negative_price_stands_as_its_twos_complement) {
  EXPECT_EQ(packed(int64_t{-100}), hex("9C FF FF FF FF FF FF FF"));
  EXPECT_EQ(packed(int64_t{INT64_MIN}), hex("00 00 00 00 00 00 00 80"));
}

TEST(LittleEndian, characters_stand_as_they_are_and_fields_follow_each_other_without_padding) {
  EXPECT_EQ(packed('S', uint8_t{1}, uint64_t{2}, 'x', uint16_t{3}),
            hex("53 01 02 00 00 00 00 00 00 00 78 03 00"));
  EXPECT_EQ(packed(std::array<char, 4>{'a', 'b', 'c', ' '}), hex("61 62 63 20"));
}

TEST(LittleEndian, a_short_symbol_is_padded_with_spaces_on_the_right) {
  EXPECT_EQ(symbol_field("SPY"), hex("53 50 59 20 20 20 20 20"));
  EXPECT_EQ(symbol_field(""), hex("20 20 20 20 20 20 20 20"));
}

TEST(LittleEndian, a_symbol_of_eight_characters_fills_the_field) {
  EXPECT_EQ(symbol_field("ABCDEFGH"), hex("41 42 43 44 45 46 47 48"));
}

TEST(LittleEndian, a_longer_symbol_is_cut_to_eight) {
  EXPECT_EQ(symbol_field("ABCDEFGHI"), hex("41 42 43 44 45 46 47 48"));
  EXPECT_EQ(symbol_field(std::string(10000, 'Z')), hex("5A 5A 5A 5A 5A 5A 5A 5A"));
}

TEST(LittleEndian, integers_are_read_at_any_alignment) {
  const Bytes bytes = hex("00 01 02 03 04 05 06 07 88 FF");
  EXPECT_EQ(read_le<uint8_t>(&bytes[8]), 0x88u);
  EXPECT_EQ(read_le<uint16_t>(&bytes[1]), 0x0201u);
  EXPECT_EQ(read_le<uint32_t>(&bytes[3]), 0x06050403u);
  EXPECT_EQ(read_le<uint64_t>(&bytes[1]), 0x8807060504030201u);
  EXPECT_EQ(read_le<uint16_t>(&bytes[8]), 0xFF88u);
}

}  // namespace
}  // namespace quorl
