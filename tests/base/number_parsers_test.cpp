#include "base/number_parsers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

namespace quorl {
namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

TEST(Low32Or, reads_plain_digits) {
  EXPECT_EQ(low32_or("0", 9), 0u);
  EXPECT_EQ(low32_or("40", 9), 40u);
  EXPECT_EQ(low32_or("0000000000000000000000000007", 9), 7u);
}

TEST(Low32Or, keeps_the_low_32_bits_of_64) {
  EXPECT_EQ(low32_or("4294967295", 9), 4294967295u);
  EXPECT_EQ(low32_or("4294967296", 9), 0u);
  EXPECT_EQ(low32_or("4294967303", 9), 7u);
  EXPECT_EQ(low32_or("18446744073709551615", 9), 4294967295u);
}

TEST(Low32Or, falls_back_for_no_digit_and_beyond_64_bits) {
  EXPECT_EQ(low32_or("", 9), 9u);
  EXPECT_EQ(low32_or("abc", 9), 9u);
  EXPECT_EQ(low32_or("-", 9), 9u);
  EXPECT_EQ(low32_or("18446744073709551616", 9), 9u);
  EXPECT_EQ(low32_or(std::string(200, '9'), 9), 9u);
}

TEST(Low32Or, takes_blanks_and_a_sign_in_front_and_stops_at_the_first_other_character) {
  EXPECT_EQ(low32_or(" \t\n\v\f\r+12abc", 9), 12u);
  EXPECT_EQ(low32_or("-1", 9), 4294967295u);
  EXPECT_EQ(low32_or("7.9", 9), 7u);
  EXPECT_EQ(low32_or("0x10", 9), 0u);
  EXPECT_EQ(low32_or("+-1", 9), 9u);
}

TEST(ParseU64, reads_the_full_width) {
  uint64_t value = 5;
  EXPECT_TRUE(parse_u64("18446744073709551615", value));
  EXPECT_EQ(value, UINT64_MAX);
  EXPECT_TRUE(parse_u64("999999999999999999", value));
  EXPECT_EQ(value, 999999999999999999u);
  EXPECT_TRUE(parse_u64("1000000000000000000", value));
  EXPECT_EQ(value, 1000000000000000000u);
}

TEST(ParseU64, a_minus_sign_wraps) {
  uint64_t value = 0;
  EXPECT_TRUE(parse_u64("-18446744073709551615", value));
  EXPECT_EQ(value, 1u);
}

TEST(ParseU64, leaves_the_value_alone_where_there_is_none) {
  uint64_t value = 5;
  EXPECT_FALSE(parse_u64("", value));
  EXPECT_FALSE(parse_u64("abc", value));
  EXPECT_FALSE(parse_u64("12345678901234567890123", value));
  EXPECT_FALSE(parse_u64("-", value));
  EXPECT_EQ(value, 5u);
}

TEST(ParseU64, a_text_that_is_cut_out_of_a_longer_one_ends_where_it_is_cut) {
  const std::string_view text = "123456";
  uint64_t value = 0;
  EXPECT_TRUE(parse_u64(text.substr(0, 3), value));
  EXPECT_EQ(value, 123u);
  EXPECT_TRUE(parse_u64(std::string_view(" 123456").substr(0, 4), value));
  EXPECT_EQ(value, 123u);
}

TEST(DoubleOrZero, reads_decimals_in_all_their_forms) {
  EXPECT_EQ(double_or_zero("190.01"), 190.01);
  EXPECT_EQ(double_or_zero("100"), 100.0);
  EXPECT_EQ(double_or_zero(".5"), 0.5);
  EXPECT_EQ(double_or_zero("5."), 5.0);
  EXPECT_EQ(double_or_zero("-1.25"), -1.25);
  EXPECT_EQ(double_or_zero(" +1e3xyz"), 1000.0);
  EXPECT_EQ(double_or_zero("1.2.3"), 1.2);
  EXPECT_EQ(double_or_zero("0x64"), 100.0);
  EXPECT_EQ(double_or_zero("5000000000"), 5e9);
}

TEST(DoubleOrZero, reads_infinities_and_nan) {
  EXPECT_EQ(double_or_zero("inf"), INFINITE);
  EXPECT_EQ(double_or_zero("-INFINITY"), -INFINITE);
  EXPECT_TRUE(std::isnan(double_or_zero("nan")));
}

TEST(DoubleOrZero, what_is_no_number_or_no_double_is_0) {
  EXPECT_EQ(double_or_zero(""), 0.0);
  EXPECT_EQ(double_or_zero("abc"), 0.0);
  EXPECT_EQ(double_or_zero("."), 0.0);
  EXPECT_EQ(double_or_zero("-"), 0.0);
  EXPECT_EQ(double_or_zero("1e400"), 0.0);
  EXPECT_EQ(double_or_zero("1e-310"), 0.0);
}

TEST(DoubleOrZero, rounds_every_decimal_text_as_the_platform_does) {
  std::mt19937_64 rng(1);
  for (int i = 0; i < 20000; ++i) {
    std::string text = std::to_string(rng() >> (rng() % 64));
    const size_t point = rng() % (text.size() + 1);
    text.insert(point, ".");
    EXPECT_EQ(double_or_zero(text), std::stod(text)) << text;
  }
}

TEST(NarrowedStrtol, reads_what_strtol_reads) {
  EXPECT_EQ(narrowed_strtol("35"), 35);
  EXPECT_EQ(narrowed_strtol("-7"), -7);
  EXPECT_EQ(narrowed_strtol(" +30s"), 30);
  EXPECT_EQ(narrowed_strtol("999999999"), 999999999);
  EXPECT_EQ(narrowed_strtol("2147483647"), INT32_MAX);
}

TEST(NarrowedStrtol, is_0_without_a_digit) {
  EXPECT_EQ(narrowed_strtol(""), 0);
  EXPECT_EQ(narrowed_strtol("abc"), 0);
  EXPECT_EQ(narrowed_strtol("-"), 0);
}

TEST(NarrowedStrtol, keeps_the_low_32_bits_and_saturates_at_64_before_that) {
  EXPECT_EQ(narrowed_strtol("4294967331"), 35);
  EXPECT_EQ(narrowed_strtol("4294967326"), 30);
  EXPECT_EQ(narrowed_strtol("2147483648"), INT32_MIN);
  EXPECT_EQ(narrowed_strtol(std::string(30, '9')), -1);
  EXPECT_EQ(narrowed_strtol("-" + std::string(30, '9')), 0);
}

}  // namespace
}  // namespace quorl
