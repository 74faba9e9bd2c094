#include "fix/fix_fields.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "support/fix_wire.h"

namespace quorl::test {
namespace {

TEST(FixFieldList, writes_fields_in_the_order_in_which_they_were_put) {
  FixFieldList fields;
  fields.put(TAG_ORDER_ID, "1000");
  fields.put(TAG_SIDE, '5');
  fields.put_number(TAG_ORDER_QTY, 300);
  EXPECT_EQ(readable(fields.wire()), "37=1000|54=5|38=300|");
}

TEST(FixFieldList, keeps_a_tag_that_is_put_twice) {
  EXPECT_EQ(readable(FixFieldList({{TAG_TEXT, "a"}, {TAG_SIDE, "1"}, {TAG_TEXT, "b"}}).wire()),
            "58=a|54=1|58=b|");
}

TEST(FixFieldList, writes_values_as_they_stand) {
  FixFieldList fields;
  fields.put(TAG_TEXT, "");
  fields.put(TAG_TEXT, "a=b");
  fields.put(TAG_TEXT, std::string_view("\xff\0\x80", 3));
  fields.put(TAG_SIDE, '\0');
  EXPECT_EQ(readable(fields.wire()), std::string("58=|58=a=b|58=\xff\0\x80|54=\0|", 23));
}

TEST(FixFieldList, writes_the_ends_of_the_number_ranges) {
  FixFieldList fields;
  fields.put_number(0, 0);
  fields.put_number(2147483647, 4294967295);
  fields.put_number(-2147483647 - 1, std::numeric_limits<int64_t>::max());
  fields.put_number(1, std::numeric_limits<int64_t>::min());
  EXPECT_EQ(readable(fields.wire()),
            "0=0|2147483647=4294967295|-2147483648=9223372036854775807|1=-9223372036854775808|");
}

TEST(FixFieldList, starts_empty) { EXPECT_EQ(FixFieldList().wire(), ""); }

TEST(FixFieldMap, gives_the_last_value_of_a_repeated_tag) {
  FixFieldMap fields;
  fields.set(TAG_MSG_SEQ_NUM, "5");
  fields.set(TAG_SIDE, "1");
  fields.set(TAG_MSG_SEQ_NUM, "7");
  EXPECT_EQ(fields.text(TAG_MSG_SEQ_NUM), "7");
  EXPECT_EQ(fields.number(TAG_MSG_SEQ_NUM), 7U);
}

TEST(FixFieldMap, lets_a_later_empty_value_replace_an_earlier_one) {
  FixFieldMap fields;
  fields.set(TAG_MSG_SEQ_NUM, "5");
  fields.set(TAG_MSG_SEQ_NUM, "");
  EXPECT_TRUE(fields.has(TAG_MSG_SEQ_NUM));
  EXPECT_EQ(fields.text(TAG_MSG_SEQ_NUM), "");
  EXPECT_EQ(fields.number(TAG_MSG_SEQ_NUM), 0U);
}

TEST(FixFieldMap, tells_an_empty_value_from_an_absent_tag) {
  FixFieldMap fields;
  fields.set(TAG_HEART_BT_INT, "");
  EXPECT_TRUE(fields.has(TAG_HEART_BT_INT));
  EXPECT_FALSE(fields.has(TAG_SIDE));
  EXPECT_EQ(fields.text(TAG_HEART_BT_INT), "");
  EXPECT_EQ(fields.text(TAG_SIDE), "");
}

TEST(FixFieldMap, looks_at_the_first_character_only) {
  FixFieldMap fields;
  fields.set(TAG_SIDE, "12");
  fields.set(TAG_ORD_TYPE, "");
  EXPECT_EQ(fields.first_char(TAG_SIDE, ' '), '1');
  EXPECT_EQ(fields.first_char(TAG_ORD_TYPE, '2'), '2');
  EXPECT_EQ(fields.first_char(TAG_TIME_IN_FORCE, '0'), '0');
}

TEST(FixFieldMap, counts_an_absent_number_as_0) { EXPECT_EQ(FixFieldMap().number(34), 0U); }

TEST(FixFieldMap, reads_numbers_in_base_10_and_cuts_them_to_their_low_32_bits) {
  const std::vector<std::pair<std::string, uint32_t>> numbers = {
      {"12", 12},
      {"007", 7},
      {" \t12", 12},
      {"+12", 12},
      {"12x", 12},
      {"1.9", 1},
      {"1e3", 1},
      {"0x10", 0},
      {"-1", 4294967295},
      {"4294967295", 4294967295},
      {"4294967296", 0},
      {"4294967297", 1},
      {"999999999999999999", 2808348671},
      {"18446744073709551615", 4294967295},
      {"-18446744073709551615", 1},
  };
  for (const auto& [text, number] : numbers) {
    FixFieldMap fields;
    fields.set(TAG_MSG_SEQ_NUM, text);
    EXPECT_EQ(fields.number(TAG_MSG_SEQ_NUM), number) << text;
  }
}

TEST(FixFieldMap, counts_what_is_no_number_or_too_large_as_0) {
  for (const char* text : {"", "-", "+", " ", "abc", "x12", "18446744073709551616",
                           "-18446744073709551616", "123456789012345678901234567890"}) {
    FixFieldMap fields;
    fields.set(TAG_MSG_SEQ_NUM, text);
    EXPECT_EQ(fields.number(TAG_MSG_SEQ_NUM), 0U) << text;
  }
}

}  // namespace
}  // namespace quorl::test
