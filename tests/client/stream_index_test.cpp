#include "quorl/client/stream_index.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

TEST(StreamIndex, packets_without_a_hole_number_themselves_from_the_beginning) {
  StreamIndex index;
  index.anchor(0, 1);
  index.packet(0, 100, 1, 4);
  index.packet(100, 200, 5, 3);
  EXPECT_EQ(index.seq_at(0), 1u);
  EXPECT_EQ(index.seq_at(100), 5u);
  EXPECT_EQ(index.seq_at(200), 8u);
}

TEST(StreamIndex, an_announced_number_one_too_high_is_seen_through) {
  StreamIndex index;
  index.anchor(0, 1);
  index.packet(0, 100, 1, 4);
  index.packet(100, 200, 6, 3);
  EXPECT_EQ(index.seq_at(100), 5u);
  index.packet(200, 300, 8, 1);
  EXPECT_EQ(index.seq_at(200), 8u);
}

TEST(StreamIndex, behind_a_hole_the_number_is_in_doubt_until_something_settles_it) {
  StreamIndex index;
  index.anchor(0, 1);
  index.packet(0, 100, 1, 4);
  index.packet(300, 400, 12, 2);
  EXPECT_FALSE(index.seq_at(300).has_value());
  index.packet(400, 500, 14, 2);  // both true, or both one too high
  EXPECT_FALSE(index.seq_at(300).has_value());
  index.anchor(500, 16);  // a heartbeat
  EXPECT_EQ(index.seq_at(400), 14u);
  EXPECT_EQ(index.seq_at(300), 12u);
}

TEST(StreamIndex, an_overlap_by_one_shows_that_the_packet_before_was_announced_too_high) {
  StreamIndex index;
  index.packet(300, 400, 12, 2);
  index.packet(400, 500, 13, 2);
  EXPECT_EQ(index.seq_at(300), 11u);
  EXPECT_EQ(index.seq_at(400), 13u);
}

TEST(StreamIndex, a_jump_by_one_shows_that_the_packet_before_was_announced_truly) {
  StreamIndex index;
  index.packet(300, 400, 12, 2);
  index.packet(400, 500, 15, 2);
  EXPECT_EQ(index.seq_at(300), 12u);
  EXPECT_EQ(index.seq_at(400), 14u);
}

TEST(StreamIndex, packets_may_come_in_any_order_and_twice) {
  StreamIndex index;
  index.packet(200, 300, 8, 1);
  index.packet(100, 200, 5, 3);
  index.packet(100, 200, 5, 3);
  index.packet(0, 100, 1, 4);
  index.anchor(0, 1);
  EXPECT_EQ(index.seq_at(300), 9u);
}

TEST(StreamIndex, a_number_two_too_high_or_one_too_low_is_refused) {
  StreamIndex index;
  index.anchor(0, 1);
  index.packet(0, 100, 1, 4);
  StreamIndex high = index;
  EXPECT_THROW(high.packet(100, 200, 7, 3), WireError);
  StreamIndex low = index;
  EXPECT_THROW(low.packet(100, 200, 4, 3), WireError);
}

TEST(StreamIndex, a_heartbeat_that_contradicts_the_packets_is_refused) {
  StreamIndex index;
  index.anchor(0, 1);
  index.packet(0, 100, 1, 4);
  EXPECT_THROW(index.anchor(100, 6), WireError);
}

TEST(StreamIndex, two_packets_of_different_shape_at_one_offset_are_refused) {
  StreamIndex index;
  index.packet(0, 100, 1, 4);
  EXPECT_THROW(index.packet(0, 100, 1, 3), WireError);
  EXPECT_THROW(index.packet(0, 90, 1, 4), WireError);
}

TEST(StreamIndex, a_packet_that_would_begin_below_number_one_is_refused) {
  StreamIndex index;
  index.packet(100, 200, 3, 3);
  EXPECT_THROW(index.anchor(200, 3), WireError);
}

}  // namespace
}  // namespace quorl::client
