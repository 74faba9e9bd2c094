#include "market/order_checks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace quorl {
namespace {

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

TEST(ClOrdIdCheck, from_1_to_20_bytes_are_good) {
  EXPECT_TRUE(is_bad_cl_ord_id(""));
  EXPECT_FALSE(is_bad_cl_ord_id("a"));
  EXPECT_FALSE(is_bad_cl_ord_id(std::string(20, 'a')));
  EXPECT_TRUE(is_bad_cl_ord_id(std::string(21, 'a')));
}

TEST(ClOrdIdCheck, exactly_five_bytes_are_forbidden_wherever_they_stand) {
  const std::string forbidden = "\x01\",@|";
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool bad = forbidden.find(c) != std::string::npos;
    EXPECT_EQ(is_bad_cl_ord_id(std::string(1, c)), bad) << byte;
    EXPECT_EQ(is_bad_cl_ord_id("x" + std::string(1, c)), bad) << byte;
    EXPECT_EQ(is_bad_cl_ord_id(std::string(1, c) + std::string(19, 'x')), bad) << byte;
  }
}

TEST(TickCheck, from_one_dollar_up_the_tick_is_a_cent) {
  for (Price4 price = 0; price <= 9999; ++price) EXPECT_FALSE(is_off_tick(price)) << price;
  EXPECT_FALSE(is_off_tick(10000));
  EXPECT_TRUE(is_off_tick(10001));
  EXPECT_TRUE(is_off_tick(10050));
  EXPECT_TRUE(is_off_tick(10099));
  EXPECT_FALSE(is_off_tick(10100));
  EXPECT_TRUE(is_off_tick(1900001));
  EXPECT_FALSE(is_off_tick(1900000));
}

TEST(TickCheck, a_negative_price_is_not_off_the_tick_but_refused_elsewhere) {
  EXPECT_FALSE(is_off_tick(-1));
  EXPECT_FALSE(is_off_tick(-10001));
  EXPECT_FALSE(is_off_tick(std::numeric_limits<Price4>::min()));
}

TEST(SharesOf, an_order_quantity_is_truncated) {
  EXPECT_EQ(shares_of(100.0), 100U);
  EXPECT_EQ(shares_of(100.9), 100U);
  EXPECT_EQ(shares_of(0.999), 0U);
  EXPECT_EQ(shares_of(10000000.0), 10000000U);
}

TEST(SharesOf, what_is_not_above_zero_or_no_number_is_no_share) {
  EXPECT_EQ(shares_of(0.0), 0U);
  EXPECT_EQ(shares_of(-0.0), 0U);
  EXPECT_EQ(shares_of(-1.0), 0U);
  EXPECT_EQ(shares_of(-1e300), 0U);
  EXPECT_EQ(shares_of(-INF), 0U);
  EXPECT_EQ(shares_of(NOT_A_NUMBER), 0U);
  EXPECT_EQ(shares_of(std::numeric_limits<double>::denorm_min()), 0U);
}

TEST(SharesOf, a_large_quantity_keeps_its_low_32_bits) {
  EXPECT_EQ(shares_of(4294967295.0), 4294967295U);
  EXPECT_EQ(shares_of(4294967296.0), 0U);
  EXPECT_EQ(shares_of(5e9), 705032704U);
  EXPECT_EQ(shares_of(0x1.fffffffffffffp63), 4294965248U);  // 2^64 - 2048, the largest that fits
  EXPECT_EQ(shares_of(0x1p64), 0U);
  EXPECT_EQ(shares_of(1e300), 0U);
  EXPECT_EQ(shares_of(INF), 0U);
}

}  // namespace
}  // namespace quorl
