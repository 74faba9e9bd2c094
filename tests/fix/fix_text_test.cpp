#include "fix/fix_text.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <vector>

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

/// "%.4f" as printf writes it, cut to the 47 characters that a price may have, without the zeros at
/// the end of its decimals.
std::string printed(double value) {
  std::array<char, 400> text{};
  std::snprintf(text.data(), text.size(), "%.4f", value);
  std::string stripped = std::string(text.data()).substr(0, LONGEST_PRICE - 1);
  if (stripped.find('.') == std::string::npos) return stripped;
  while (stripped.ends_with('0')) stripped.pop_back();
  if (stripped.ends_with('.')) stripped.pop_back();
  return stripped;
}

std::string printed_price(int64_t price) { return printed(static_cast<double>(price) / 10000.0); }

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

// --- Prices that were computed, such as an average ---

std::string price_text(double value) {
  std::array<char, LONGEST_PRICE> text;
  TextWriter out(text.data());
  put_price(out, value);
  return {text.data(), out.position()};
}

void expect_as_printed(double value) {
  if (testing::Test::HasFailure()) return;  // one of a hundred thousand says enough
  ASSERT_EQ(price_text(value), printed(value)) << std::hexfloat << value;
}

/// The value and its neighbours, on both sides of 0.
void expect_as_printed_around(double value) {
  constexpr double INF = std::numeric_limits<double>::infinity();
  double below = value;
  double above = value;
  for (int i = 0; i < 3; ++i) {
    for (const double near : {below, above, -below, -above}) expect_as_printed(near);
    below = std::nextafter(below, -INF);
    above = std::nextafter(above, INF);
  }
}

double random_between(std::mt19937_64& random, double low, double high) {
  return low + (high - low) * (static_cast<double>(random() >> 11) / 9007199254740992.0);
}

TEST(PutPrice, shows_dollars_with_four_decimals_at_most) {
  EXPECT_EQ(price_text(0.0), "0");
  EXPECT_EQ(price_text(190.0), "190");
  EXPECT_EQ(price_text(190.5), "190.5");
  EXPECT_EQ(price_text(190.003333333), "190.0033");
  EXPECT_EQ(price_text(189.99996), "190");
  EXPECT_EQ(price_text(0.0001), "0.0001");
  EXPECT_EQ(price_text(9999999.9999), "9999999.9999");
  EXPECT_EQ(price_text(9999999.99996), "10000000");
  EXPECT_EQ(price_text(12345678.9012), "12345678.9012");
  EXPECT_EQ(price_text(-190.25), "-190.25");
}

TEST(PutPrice, rounds_a_half_as_printf_does_by_the_double_s_exact_value) {
  EXPECT_EQ(price_text(0.03125), "0.0312");  // exactly halfway: to the even digit
  EXPECT_EQ(price_text(0.09375), "0.0938");
  EXPECT_EQ(price_text(1.00005), "1.0001");  // the double lies a little above
  EXPECT_EQ(price_text(190.00005), "190");   // and here a little below
  EXPECT_EQ(price_text(190.00015), "190.0001");
}

TEST(PutPrice, shows_what_is_no_price_as_the_general_form_does) {
  constexpr double INF = std::numeric_limits<double>::infinity();
  constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(price_text(INF), "inf");
  EXPECT_EQ(price_text(-INF), "-inf");
  EXPECT_EQ(price_text(NOT_A_NUMBER), "nan");
  EXPECT_EQ(price_text(-0.0), "-0");
  for (const double value :
       {INF, -INF, NOT_A_NUMBER, -NOT_A_NUMBER, 0.0, -0.0, std::numeric_limits<double>::max(),
        std::numeric_limits<double>::lowest(), std::numeric_limits<double>::min(),
        std::numeric_limits<double>::denorm_min(), 1e300, 1e41, 1e42, 1e43, 1e44}) {
    expect_as_printed(value);
    expect_as_printed(-value);
  }
}

TEST(PutPrice, agrees_with_printf_halfway_between_two_prices_and_next_to_it) {
  std::mt19937_64 random(13);
  for (int64_t k = 0; k < 5000; ++k) {
    expect_as_printed_around(static_cast<double>(2 * k + 1) / 20000.0);
  }
  for (int i = 0; i < 10000; ++i) {
    const uint64_t k = random() % 1'000'000'000'000 >> random() % 40;
    expect_as_printed_around(static_cast<double>(2 * k + 1) / 20000.0);
  }
}

TEST(PutPrice, agrees_with_printf_at_all_distances_from_halfway) {
  std::mt19937_64 random(17);
  for (int i = 0; i < 10000; ++i) {
    const auto price = static_cast<double>(random() % 100'000'000'000 >> random() % 36);
    const double distance = std::ldexp(1.0, -static_cast<int>(random() % 45));
    expect_as_printed((price + 0.5 + distance) / 10000.0);
    expect_as_printed((price + 0.5 - distance) / 10000.0);
    expect_as_printed((price + random_between(random, 0.4985, 0.5015)) / 10000.0);
  }
}

TEST(PutPrice, agrees_with_printf_at_a_price_and_next_to_it) {
  std::mt19937_64 random(19);
  for (int i = 0; i < 10000; ++i) {
    const uint64_t price = random() >> (1 + random() % 63);
    expect_as_printed_around(static_cast<double>(price) / 10000.0);
  }
}

TEST(PutPrice, agrees_with_printf_where_the_short_way_ends) {
  for (const double value : {1e7, 1e7 - 0.0001, 1e7 - 0.00005, 1e7 - 0.00004, 1e7 + 0.00005,
                             1e7 + 0.0001, 9999999.5, 1e8, 1e15, 4503599627370496.0, 1e16, 1e22}) {
    expect_as_printed_around(value);
  }
}

TEST(PutPrice, agrees_with_printf_on_the_tiny) {
  for (double value = 1.0; value > 0.0; value /= 2.0) expect_as_printed_around(value);
  for (const double value : {0.0001, 0.00005, 0.00004999, 0.00005001, 0.00015, 1e-5, 1e-10}) {
    expect_as_printed_around(value);
  }
}

TEST(PutPrice, agrees_with_printf_on_averages_of_fills) {
  std::mt19937_64 random(23);
  for (int i = 0; i < 30000; ++i) {
    double notional = 0.0;
    uint32_t cum = 0;
    for (uint64_t fills = 1 + random() % 5; fills > 0; --fills) {
      const auto qty = static_cast<uint32_t>(1 + random() % (i % 2 == 0 ? 1000 : 300'000'000));
      const auto price = static_cast<int64_t>(1 + random() % 10'000'000);
      notional += static_cast<double>(qty) * static_cast<double>(price) / 10000.0;
      cum += qty;
    }
    expect_as_printed(notional / cum);
  }
}

TEST(PutPrice, agrees_with_printf_on_any_double) {
  std::mt19937_64 random(29);
  for (int i = 0; i < 10000; ++i) {
    expect_as_printed(std::bit_cast<double>(random()));
    expect_as_printed(random_between(random, 0.0, 2000.0));
    expect_as_printed(random_between(random, -10.0, 2e7));
  }
}

}  // namespace
}  // namespace quorl::test
