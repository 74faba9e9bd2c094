#include "certify/tap/delay_figures.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using certify::DelayFigures;
using certify::TimeNs;

TEST(DelayFigures, are_nothing_without_a_span) {
  const DelayFigures figures;
  EXPECT_EQ(figures.median(), 0);
  EXPECT_EQ(figures.most(), 0);
}

TEST(DelayFigures, give_small_spans_exactly) {
  DelayFigures figures;
  for (const TimeNs span : {1, 2, 3, 30, 31}) figures.add(span);
  EXPECT_EQ(figures.median(), 3);
  EXPECT_EQ(figures.most(), 31);
}

TEST(DelayFigures, give_the_median_of_large_spans_to_one_part_in_16) {
  for (TimeNs middle = 32; middle < std::numeric_limits<TimeNs>::max() / 4; middle += middle / 3) {
    DelayFigures figures;
    for (const TimeNs span : {TimeNs{1}, middle, 2 * middle}) figures.add(span);
    EXPECT_GE(figures.median(), middle);
    EXPECT_LE(figures.median(), middle + middle / 16);
    EXPECT_EQ(figures.most(), 2 * middle);
  }
}

TEST(DelayFigures, take_any_span) {
  DelayFigures figures;
  figures.add(-5);  // the clock has stepped
  EXPECT_EQ(figures.median(), 0);
  figures.add(std::numeric_limits<TimeNs>::max());
  figures.add(std::numeric_limits<TimeNs>::max());
  EXPECT_EQ(figures.median(), std::numeric_limits<TimeNs>::max());
  EXPECT_EQ(figures.count(), 3U);
}
