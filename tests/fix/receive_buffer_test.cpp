#include "fix/receive_buffer.h"

#include <gtest/gtest.h>

#include <string>

namespace quorl::test {
namespace {

TEST(ReceiveBuffer, holds_what_was_appended_behind_what_was_dropped) {
  ReceiveBuffer buffer;
  EXPECT_TRUE(buffer.empty());
  buffer.append("abc");
  buffer.append("def");
  buffer.drop_front(2);
  EXPECT_EQ(buffer.bytes(), "cdef");
  EXPECT_EQ(buffer.size(), 4U);
  buffer.append("gh");
  EXPECT_EQ(buffer.bytes(), "cdefgh");
  buffer.drop_front(6);
  EXPECT_TRUE(buffer.empty());
  buffer.append("ij");
  EXPECT_EQ(buffer.bytes(), "ij");
}

TEST(ReceiveBuffer, is_empty_after_clear_and_can_be_used_again) {
  ReceiveBuffer buffer;
  buffer.append("abc");
  buffer.drop_front(1);
  buffer.clear();
  EXPECT_TRUE(buffer.empty());
  EXPECT_EQ(buffer.bytes(), "");
  buffer.append("xy");
  EXPECT_EQ(buffer.bytes(), "xy");
}

TEST(ReceiveBuffer, keeps_the_progress_of_the_framing_over_what_is_appended) {
  ReceiveBuffer buffer;
  buffer.append("abc");
  buffer.progress.searched = 2;
  buffer.append("def");
  buffer.drop_front(0);
  EXPECT_EQ(buffer.progress.searched, 2U);
}

TEST(ReceiveBuffer, starts_the_framing_over_with_each_new_front) {
  ReceiveBuffer buffer;
  buffer.append("abc");
  buffer.progress = {.searched = 2, .length_field = 1, .frame_size = 9, .endless = true};
  buffer.drop_front(1);
  EXPECT_EQ(buffer.progress.searched, 0U);
  EXPECT_EQ(buffer.progress.length_field, FrameProgress::UNKNOWN);
  EXPECT_EQ(buffer.progress.frame_size, 0U);
  EXPECT_FALSE(buffer.progress.endless);
}

}  // namespace
}  // namespace quorl::test
