#include "base/price4.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace quorl {
namespace {

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t LOWEST = std::numeric_limits<int64_t>::min();

TEST(Prices, a_price_is_counted_in_ten_thousandths_of_a_dollar) {
  EXPECT_EQ(price_of_dollars(190.0), 1900000);
  EXPECT_EQ(price_of_dollars(190.01), 1900100);
  EXPECT_EQ(price_of_dollars(0.0001), 1);
  EXPECT_EQ(price_of_dollars(-1.5), -15000);
}

TEST(Prices, rounding_is_to_the_nearest_and_halves_go_away_from_zero) {
  EXPECT_EQ(rounded(0.5), 1);
  EXPECT_EQ(rounded(-0.5), -1);
  EXPECT_EQ(rounded(1.5), 2);
  EXPECT_EQ(rounded(2.5), 3);  // not to the even neighbour
  EXPECT_EQ(rounded(-2.5), -3);
  EXPECT_EQ(rounded(0.49999999999999994), 0);  // the largest below a half
  EXPECT_EQ(rounded(2.4), 2);
}

TEST(Prices, what_does_not_fit_is_the_lowest_integer) {
  for (const double value : {NOT_A_NUMBER, INF, -INF, 1e19, -1e19, 1e300, -1e300, 0x1p63}) {
    EXPECT_EQ(rounded(value), LOWEST) << value;
    EXPECT_EQ(price_of_dollars(value), LOWEST) << value;
  }
  EXPECT_EQ(price_of_dollars(1e15), LOWEST);  // the product is what must fit
  EXPECT_EQ(rounded(-0x1p63), LOWEST);        // fits by itself
  EXPECT_EQ(rounded(0x1.fffffffffffffp62), 9223372036854774784);
}

TEST(Prices, the_walk_has_its_price_in_whole_cents) {
  EXPECT_EQ(price_of_mid(190.0), 1900000);
  EXPECT_EQ(price_of_mid(190.004), 1900000);
  EXPECT_EQ(price_of_mid(190.006), 1900100);
  EXPECT_EQ(price_of_mid(0.125), 1300);  // 12.5 cents, exact: away from zero
  EXPECT_EQ(price_of_mid(-0.125), -1300);
  EXPECT_EQ(price_of_mid(0.004), 0);
}

TEST(Prices, a_mid_without_bounds_wraps_and_no_number_is_zero) {
  EXPECT_EQ(price_of_mid(NOT_A_NUMBER), 0);  // the lowest integer times 100
  EXPECT_EQ(price_of_mid(INF), 0);
  EXPECT_EQ(price_of_mid(1e300), 0);
  // 10^17 cents times 100 is 10^19, which is 10^19 - 2^64 in 64 signed bits.
  EXPECT_EQ(price_of_mid(1e15), static_cast<int64_t>(10000000000000000000ULL));
}

TEST(Prices, a_sum_wraps_at_the_ends_of_the_range) {
  EXPECT_EQ(wrapping_sum(1900000, -150), 1899850);
  EXPECT_EQ(wrapping_sum(std::numeric_limits<int64_t>::max(), 1), LOWEST);
  EXPECT_EQ(wrapping_sum(LOWEST, -1), std::numeric_limits<int64_t>::max());
}

TEST(Prices, money_is_quantity_times_price_beyond_64_bits) {
  EXPECT_DOUBLE_EQ(notional_of(300, 1900100), 57003.0);
  EXPECT_DOUBLE_EQ(notional_of(4294967295U, 9200000000000000000), 4294967295.0 * 9.2e14);
  EXPECT_DOUBLE_EQ(dollars_of(1900100), 190.01);
}

}  // namespace
}  // namespace quorl
