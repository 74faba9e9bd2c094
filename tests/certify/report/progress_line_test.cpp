#include "certify/report/progress_line.h"

#include <gtest/gtest.h>

#include "certify/report/clean_text.h"

namespace certify {
namespace {

Progress half_way() {
  return {.plan = "lost-race",
          .elapsed = 12'340 * MILLISECOND,
          .orders = 40,
          .fills = 31,
          .armed = "fill_on_cancel 2",
          .replayed = 1,
          .filled = 14,
          .images = 2};
}

TEST(ProgressLine, says_it_all_in_one_line) {
  EXPECT_EQ(
      progress_line(half_way(), 120),
      "lost-race  12.3 s  orders 40  fills 31  armed fill_on_cancel 2  recovered 1 report, 14 "
      "messages, 2 images");
}

TEST(ProgressLine, leaves_out_what_has_not_happened) {
  EXPECT_EQ(progress_line({.plan = "calm", .elapsed = 0}, 80), "calm  0.0 s  orders 0  fills 0");
}

TEST(ProgressLine, leaves_out_as_a_whole_what_does_not_fit) {
  EXPECT_EQ(progress_line(half_way(), 79),
            "lost-race  12.3 s  orders 40  fills 31  armed fill_on_cancel 2");
  EXPECT_EQ(progress_line(half_way(), 28), "lost-race  12.3 s  orders 40");
  EXPECT_EQ(progress_line(half_way(), 8), "lost-ra…");
  EXPECT_EQ(progress_line(half_way(), 0), "");
}

TEST(ProgressLine, never_is_wider_than_asked_and_never_moves_the_cursor) {
  Progress progress = half_way();
  progress.plan = "größe\n\x1b[2J";
  progress.armed = "drop\r3";
  for (size_t width = 0; width < 130; ++width) {
    const std::string line = progress_line(progress, width);
    EXPECT_LE(columns_of(line), width);
    EXPECT_EQ(line.find_first_of("\r\n\x1b"), std::string::npos);
  }
}

}  // namespace
}  // namespace certify
