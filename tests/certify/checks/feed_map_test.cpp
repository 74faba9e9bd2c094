#include "certify/checks/feed_map.h"

#include <gtest/gtest.h>

namespace client = quorl::client;

namespace certify {
namespace {

constexpr uint64_t BLOCK = 32;

client::TpPacket packet(uint64_t first, uint64_t count, uint64_t announced) {
  client::TpPacket packet;
  packet.header.first_seq = announced;
  packet.header.message_count = static_cast<uint16_t>(count);
  packet.header.payload_length = static_cast<uint16_t>(count * BLOCK);
  packet.header.stream_offset = (first - 1) * BLOCK;
  for (uint64_t i = 0; i < count; ++i) {
    packet.messages.push_back(
        {.stream_offset = (first - 1 + i) * BLOCK, .bytes = client::Bytes(30)});
  }
  return packet;
}
client::TpPacket packet(uint64_t first, uint64_t count) { return packet(first, count, first); }

TEST(FeedMap, packets_that_follow_each_other_are_one_stretch) {
  FeedMap map;
  EXPECT_EQ(map.heard(packet(1, 3), 0), 3U);
  EXPECT_EQ(map.heard(packet(4, 2), 0), 2U);
  EXPECT_EQ(map.stretches(), 1U);
  EXPECT_EQ(map.next_number(), 6U);
  EXPECT_TRUE(map.holes().empty());
}

TEST(FeedMap, what_comes_twice_is_nothing_new) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  EXPECT_EQ(map.heard(packet(1, 3), 0), 0U);
  EXPECT_EQ(map.filled(packet(2, 1), 0), 0U);
}

TEST(FeedMap, a_hole_is_known_by_its_offsets_and_by_its_numbers_up_to_one) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  map.heard(packet(7, 2), 5);
  ASSERT_EQ(map.holes().size(), 1U);
  const FeedHole hole = map.holes().front();
  EXPECT_EQ(hole.offset, 3 * BLOCK);
  EXPECT_EQ(hole.end_offset, 6 * BLOCK);
  EXPECT_EQ(hole.first.low, 4U);
  EXPECT_EQ(hole.first.high, 4U);
  EXPECT_EQ(hole.last.low, 5U);
  EXPECT_EQ(hole.last.high, 6U);
  EXPECT_EQ(hole.shown, 5);
}

TEST(FeedMap, a_heartbeat_settles_the_number_behind_a_hole) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  map.heard(packet(7, 2, 8), 5);
  map.heard(packet(9, 0), 6);
  const FeedHole hole = map.holes().front();
  EXPECT_EQ(hole.last.low, 6U);
  EXPECT_EQ(hole.last.high, 6U);
}

TEST(FeedMap, a_heartbeat_shows_that_the_last_packet_is_missing) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  map.heard(packet(6, 0), 7);
  ASSERT_EQ(map.holes().size(), 1U);
  EXPECT_EQ(map.holes().front().last.high, 5U);
  map.heard(packet(6, 2), 8);
  EXPECT_EQ(map.holes().size(), 1U);
  map.heard(packet(4, 2), 9);
  EXPECT_TRUE(map.holes().empty());
  EXPECT_EQ(map.stretches(), 1U);
}

TEST(FeedMap, what_lands_within_a_hole_makes_two_that_were_shown_when_the_one_was) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  map.heard(packet(9, 1), 5);
  map.heard(packet(6, 1), 6);
  ASSERT_EQ(map.holes().size(), 2U);
  EXPECT_EQ(map.holes()[0].shown, 5);
  EXPECT_EQ(map.holes()[1].shown, 5);
}

TEST(FeedMap, gap_fill_packs_in_its_own_way) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  map.heard(packet(6, 2), 0);
  map.heard(packet(10, 1), 0);
  EXPECT_EQ(map.filled(packet(2, 12), 0), 7U);  // 4 5 8 9 11 12 13
  EXPECT_EQ(map.next_number(), 14U);
  EXPECT_TRUE(map.holes().empty());
}

TEST(FeedMap, what_has_come_for_certain_leaves_out_one_at_each_end) {
  FeedMap map;
  map.heard(packet(1, 9), 0);
  map.heard(packet(21, 10), 0);
  EXPECT_FALSE(map.certainly_there({10, 20}));
  EXPECT_FALSE(map.certainly_there({9, 21}));
  ASSERT_TRUE(map.certainly_there({8, 20}));
  EXPECT_EQ(map.certainly_there({8, 20})->first, 8U);
  EXPECT_EQ(map.certainly_there({8, 20})->last, 8U);
  ASSERT_TRUE(map.certainly_there({10, 24}));  // 22 can be the first: it is 21 or 20 on the wire
  EXPECT_EQ(map.certainly_there({10, 24})->first, 22U);
  EXPECT_FALSE(map.certainly_there({30, UINT64_MAX}));
}

TEST(FeedMap, the_lowest_stretch_that_has_come_is_named) {
  FeedMap map;
  map.heard(packet(1, 9), 0);
  map.heard(packet(21, 10), 0);
  ASSERT_TRUE(map.certainly_there({0, UINT64_MAX}));
  EXPECT_EQ(map.certainly_there({0, UINT64_MAX})->first, 2U);
  EXPECT_EQ(map.certainly_there({0, UINT64_MAX})->last, 8U);
}

TEST(FeedMap, a_settled_hole_is_not_told_of_again) {
  FeedMap map;
  map.heard(packet(1, 3), 0);
  map.heard(packet(7, 2), 0);
  map.heard(packet(10, 2), 0);
  map.settle(9 * BLOCK);
  EXPECT_EQ(map.holes().size(), 1U);
  EXPECT_EQ(map.stretches(), 3U);
  map.settle(6 * BLOCK);
  EXPECT_TRUE(map.holes().empty());
  EXPECT_EQ(map.stretches(), 1U);
  EXPECT_EQ(map.filled(packet(4, 3), 0), 0U);
}

TEST(FeedMap, memory_grows_with_neither_messages_nor_holes_without_end) {
  FeedMap map;
  for (uint64_t i = 0; i < 50'000; ++i) map.heard(packet(1 + 4 * i, 2), 0);
  EXPECT_EQ(map.stretches(), 10'000U);
  EXPECT_EQ(map.next_number(), 199'998U);
}

}  // namespace
}  // namespace certify
