#include "tools/ladder/price_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ladder {
namespace {

using testing::ElementsAre;
using testing::Optional;

constexpr uint64_t SECOND = 1000000000;
constexpr uint64_t NOON = 1700000000 * SECOND;

TEST(PriceLine, is_empty_before_the_first_trade) {
  const PriceLine line;
  EXPECT_THAT(line.columns(3, NOON), ElementsAre(std::nullopt, std::nullopt, std::nullopt));
  EXPECT_EQ(line.span(3, NOON).count(), 3);
}

TEST(PriceLine, grows_from_the_right_a_second_a_column) {
  PriceLine line;
  line.add(NOON, 100);
  line.add(NOON + SECOND, 200);
  EXPECT_THAT(line.columns(4, NOON + SECOND),
              ElementsAre(std::nullopt, std::nullopt, Optional(100), Optional(200)));
}

TEST(PriceLine, carries_the_last_price_over_seconds_without_trades) {
  PriceLine line;
  line.add(NOON, 100);
  EXPECT_THAT(line.columns(3, NOON + 2 * SECOND),
              ElementsAre(Optional(100), Optional(100), Optional(100)));
}

TEST(PriceLine, keeps_the_last_of_several_prices_in_a_second) {
  PriceLine line;
  line.add(NOON, 100);
  line.add(NOON + SECOND / 2, 300);
  EXPECT_THAT(line.columns(1, NOON + SECOND), ElementsAre(Optional(300)));
}

TEST(PriceLine, is_pressed_together_until_it_covers_its_span_and_then_moves_on) {
  PriceLine line;
  for (uint64_t second = 0; second <= 1000; ++second) {
    line.add(NOON + second * SECOND, static_cast<int64_t>(second));
  }
  EXPECT_EQ(line.span(10, NOON + 59 * SECOND).count(), 10) << "before the first that is kept";
  EXPECT_EQ(line.span(10, NOON + 1000 * SECOND), PriceLine::SPAN);
  const auto columns = line.columns(3, NOON + 1000 * SECOND);
  EXPECT_THAT(columns, ElementsAre(Optional(800), Optional(900), Optional(1000)));
}

TEST(PriceLine, covers_all_since_the_first_trade_in_between) {
  PriceLine line;
  line.add(NOON, 100);
  EXPECT_EQ(line.span(10, NOON + 59 * SECOND).count(), 60);
}

TEST(PriceLine, remembers_the_price_from_before_its_span) {
  PriceLine line;
  line.add(NOON, 100);
  line.add(NOON + 400 * SECOND, 500);
  const auto columns = line.columns(3, NOON + 400 * SECOND);
  EXPECT_THAT(columns, ElementsAre(Optional(100), Optional(100), Optional(500)));
}

TEST(PriceLine, shows_a_trade_of_a_clock_ahead_of_ours_as_the_latest) {
  PriceLine line;
  line.add(NOON, 100);
  line.add(NOON + 5 * SECOND, 700);
  EXPECT_THAT(line.columns(2, NOON), ElementsAre(std::nullopt, Optional(700)));
}

TEST(Heights, run_from_the_lowest_price_to_the_highest) {
  EXPECT_THAT(heights({100, 150, 200, std::nullopt}, 7),
              ElementsAre(Optional(0), Optional(4), Optional(7), std::nullopt));
}

TEST(Heights, are_in_the_middle_for_one_price) {
  EXPECT_THAT(heights({100, 100}, 7), ElementsAre(Optional(3), Optional(3)));
  EXPECT_TRUE(heights({}, 7).empty());
}

}  // namespace
}  // namespace ladder
