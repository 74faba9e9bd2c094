#include "fix/fix_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <random>

#include "support/test_clock.h"

namespace quorl::test {
namespace {

constexpr uint64_t NS_PER_S = 1'000'000'000;

std::string text_at(uint64_t ns) { return std::string(FixTimestamp(ns).view()); }

/// The calendar as the C library's strftime prints it.
std::string calendar_text(uint64_t ns) {
  const auto seconds = static_cast<time_t>(ns / NS_PER_S);
  tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y%m%d-%H:%M:%S", &utc);
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%s.%03u", date.data(),
                static_cast<unsigned>(ns / 1'000'000 % 1000));
  return text.data();
}

TEST(FixTimestamp, shows_utc_with_milliseconds) {
  EXPECT_EQ(text_at(1'700'000'000'123'456'789), "20231114-22:13:20.123");
}

TEST(FixTimestamp, cuts_what_is_finer_than_a_millisecond) {
  EXPECT_EQ(text_at(1'700'000'000'000'999'999), "20231114-22:13:20.000");
  EXPECT_EQ(text_at(1'700'000'000'001'000'000), "20231114-22:13:20.001");
  EXPECT_EQ(text_at(1'700'000'000'999'999'999), "20231114-22:13:20.999");
}

TEST(FixTimestamp, turns_the_year_at_midnight) {
  EXPECT_EQ(text_at(1'704'067'199'999'000'000), "20231231-23:59:59.999");
  EXPECT_EQ(text_at(1'704'067'200'000'000'000), "20240101-00:00:00.000");
  EXPECT_EQ(text_at(1'735'689'599'999'999'999), "20241231-23:59:59.999");
  EXPECT_EQ(text_at(1'735'689'600'000'000'000), "20250101-00:00:00.000");
}

TEST(FixTimestamp, knows_leap_days) {
  EXPECT_EQ(text_at(1'709'164'800'000'000'000), "20240229-00:00:00.000");
  EXPECT_EQ(text_at(1'709'251'200'000'000'000), "20240301-00:00:00.000");
  EXPECT_EQ(text_at(4'107'542'399'000'000'000), "21000228-23:59:59.000");
  EXPECT_EQ(text_at(4'107'542'400'000'000'000), "21000301-00:00:00.000");
}

TEST(FixTimestamp, begins_with_the_epoch) { EXPECT_EQ(text_at(0), "19700101-00:00:00.000"); }

TEST(FixTimestamp, follows_the_calendar_through_the_years_and_back) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const uint64_t ns = random() % (6'000'000'000 * NS_PER_S);
    ASSERT_EQ(text_at(ns), calendar_text(ns)) << ns;
    ASSERT_EQ(text_at(ns + 1'000'000), calendar_text(ns + 1'000'000))
        << ns;  // often the same second
  }
}

TEST(FixTimestamp, is_taken_by_one_reading_of_the_system_clock) {
  reset_clocks();
  EXPECT_EQ(fix_timestamp().view(), "20231114-22:13:20.123");
  EXPECT_EQ(system_readings(), 1U);
  set_system_ns(1'704'067'199'999'999'999);
  EXPECT_EQ(fix_timestamp().view(), "20231231-23:59:59.999");
  EXPECT_EQ(steady_readings(), 0U);
}

TEST(FormatPrice, strips_trailing_zeros_and_a_point_that_is_left_last) {
  EXPECT_EQ(format_price(4, 190.5), "190.5");
  EXPECT_EQ(format_price(4, 190), "190");
  EXPECT_EQ(format_price(4, 0), "0");
  EXPECT_EQ(format_price(4, 0.0001), "0.0001");
  EXPECT_EQ(format_price(4, 100), "100");
  EXPECT_EQ(format_price(4, 1200.0500), "1200.05");
  EXPECT_EQ(format_price(4, -190.25), "-190.25");
}

TEST(FormatPrice, rounds_to_the_decimals_asked_for) {
  EXPECT_EQ(format_price(4, 0.00005001), "0.0001");
  EXPECT_EQ(format_price(4, 0.00004999), "0");
  EXPECT_EQ(format_price(4, 189.99994), "189.9999");
  EXPECT_EQ(format_price(4, 189.99996), "190");
  EXPECT_EQ(format_price(2, 189.996), "190");
  EXPECT_EQ(format_price(1, 0.25), "0.2");  // halves go to the even digit, as printf has it
}

TEST(FormatPrice, strips_nothing_from_a_text_without_a_point) {
  EXPECT_EQ(format_price(0, 100), "100");
  EXPECT_EQ(format_price(0, 0), "0");
}

TEST(FormatPrice, keeps_the_sign_of_what_rounds_to_nothing) {
  EXPECT_EQ(format_price(4, -0.00001), "-0");
}

TEST(FormatPrice, is_cut_by_its_buffer_and_never_overruns_it) {
  const std::string text = format_price(4, 1e300);
  EXPECT_EQ(text.size(), 47U);
  EXPECT_EQ(text.substr(0, 6), "100000");
  EXPECT_EQ(format_price(4, std::numeric_limits<double>::infinity()), "inf");
}

std::string price4_text(int64_t price) {
  std::array<char, LONGEST_PRICE> text;
  TextWriter out(text.data());
  put_price4(out, price);
  return {text.data(), out.position()};
}

/// "%.4f" of price / 10000.0, without the zeros at its end.
std::string printed_price(int64_t price) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.4f", static_cast<double>(price) / 10000.0);
  std::string stripped = text.data();
  while (stripped.ends_with('0')) stripped.pop_back();
  if (stripped.ends_with('.')) stripped.pop_back();
  return stripped;
}

TEST(PutPrice4, shows_ten_thousandths_as_dollars) {
  EXPECT_EQ(price4_text(0), "0");
  EXPECT_EQ(price4_text(1), "0.0001");
  EXPECT_EQ(price4_text(10), "0.001");
  EXPECT_EQ(price4_text(9999), "0.9999");
  EXPECT_EQ(price4_text(10000), "1");
  EXPECT_EQ(price4_text(10001), "1.0001");
  EXPECT_EQ(price4_text(100000), "10");
  EXPECT_EQ(price4_text(1000000), "100");
  EXPECT_EQ(price4_text(1905000), "190.5");
  EXPECT_EQ(price4_text(1900100), "190.01");
  EXPECT_EQ(price4_text(-1), "-0.0001");
  EXPECT_EQ(price4_text(-1900000), "-190");
}

TEST(PutPrice4, shows_the_lowest_price_there_is) {
  EXPECT_EQ(price4_text(std::numeric_limits<int64_t>::min()), "-922337203685477.625");
}

TEST(PutPrice4, agrees_with_printf_for_small_prices) {
  for (int64_t price = -30000; price <= 30000; ++price) {
    ASSERT_EQ(price4_text(price), printed_price(price)) << price;
  }
}

TEST(PutPrice4, agrees_with_printf_at_powers_of_ten_and_the_ends_of_the_range) {
  std::vector<int64_t> prices = {std::numeric_limits<int64_t>::min(),
                                 std::numeric_limits<int64_t>::max()};
  int64_t power = 1;
  for (int digits = 0; digits < 19; ++digits, power = digits < 19 ? power * 10 : power) {
    for (int64_t offset = -3; offset <= 3; ++offset) {
      prices.push_back(power + offset);
      prices.push_back(-power + offset);
    }
  }
  for (const int64_t price : prices) ASSERT_EQ(price4_text(price), printed_price(price)) << price;
}

TEST(PutPrice4, agrees_with_printf_at_every_magnitude) {
  std::mt19937_64 random(11);
  for (int bits = 1; bits <= 63; ++bits) {
    for (int i = 0; i < 2000; ++i) {
      const auto price = static_cast<int64_t>(random() >> (64 - bits));
      ASSERT_EQ(price4_text(price), printed_price(price)) << price;
      ASSERT_EQ(price4_text(-price), printed_price(-price)) << -price;
    }
  }
}

}  // namespace
}  // namespace quorl::test
