#include "base/text_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <string_view>

namespace quorl {
namespace {

/// What `write` writes into memory of 64 bytes. Fails the test if it changes a byte behind that.
std::string written(const std::function<void(TextWriter&)>& write) {
  constexpr char UNTOUCHED = '\x7f';
  std::array<char, 64> memory;
  memory.fill(UNTOUCHED);
  TextWriter out(memory.data());
  write(out);
  const std::string_view all(memory.data(), memory.size());
  const auto size = static_cast<size_t>(out.position() - memory.data());
  EXPECT_EQ(all.substr(size), std::string(all.size() - size, UNTOUCHED));
  return std::string(all.substr(0, size));
}

std::string digits_of(uint32_t value, size_t width) {
  return written([&](TextWriter& out) { out.digits(value, width); });
}

template <typename Integer>
std::string number_of(Integer value) {
  return written([&](TextWriter& out) { out.number(value); });
}

TEST(TextWriter, writes_its_pieces_one_behind_the_other) {
  EXPECT_EQ(written([](TextWriter& out) {
              out.text("17=E").number(12U).character('|').text("").digits(7, 3).text("end");
            }),
            "17=E12|007end");
}

TEST(TextWriter, writes_nothing_for_an_empty_text) {
  EXPECT_EQ(written([](TextWriter& out) { out.text("").text(std::string_view()); }), "");
}

TEST(TextWriter, writes_zero_bytes_as_they_stand) {
  EXPECT_EQ(written([](TextWriter& out) {
              out.text(std::string_view("a\0b", 3)).character('\0').character('\xff');
            }),
            std::string("a\0b\0\xff", 5));
}

TEST(TextWriter, writes_the_ends_of_the_number_ranges) {
  EXPECT_EQ(number_of(0), "0");
  EXPECT_EQ(number_of(std::numeric_limits<uint32_t>::max()), "4294967295");
  EXPECT_EQ(number_of(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(number_of(std::numeric_limits<int64_t>::max()), "9223372036854775807");
  EXPECT_EQ(number_of(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(number_of(std::numeric_limits<int64_t>::min()).size(), TextWriter::LONGEST_NUMBER);
}

TEST(TextWriter, fills_digits_up_with_zeros_in_front) {
  EXPECT_EQ(digits_of(0, 1), "0");
  EXPECT_EQ(digits_of(0, 3), "000");
  EXPECT_EQ(digits_of(7, 3), "007");
  EXPECT_EQ(digits_of(70, 3), "070");
  EXPECT_EQ(digits_of(255, 3), "255");
  EXPECT_EQ(digits_of(4294967295, 10), "4294967295");
  EXPECT_EQ(digits_of(4294967295, 15), "000004294967295");
}

TEST(TextWriter, keeps_the_low_digits_of_what_is_too_wide) {
  EXPECT_EQ(digits_of(1234, 3), "234");
  EXPECT_EQ(digits_of(1000, 3), "000");
  EXPECT_EQ(digits_of(4294967295, 1), "5");
}

TEST(TextWriter, writes_no_digit_of_no_width) { EXPECT_EQ(digits_of(123, 0), ""); }

TEST(TextWriter, agrees_with_printf_on_digits) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 10000; ++i) {
    const auto value = static_cast<uint32_t>(random() >> (32 + random() % 32));
    std::array<char, 16> expected{};
    std::snprintf(expected.data(), expected.size(), "%010u", value);
    ASSERT_EQ(digits_of(value, 10), expected.data());
  }
}

TEST(TextWriter, goes_back_and_writes_over_what_stands_there) {
  EXPECT_EQ(written([](TextWriter& out) {
              out.text("ab");
              char* const mark = out.position();
              out.text("cd");
              out.back_to(mark);
              out.text("xyz");
            }),
            "abxyz");
}

}  // namespace
}  // namespace quorl
