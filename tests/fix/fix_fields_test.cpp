#include "fix/fix_fields.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/fix_wire.h"

namespace quorl::test {
namespace {

TEST(FixFieldList, writes_fields_in_the_order_in_which_they_were_put) {
  FixFieldList fields;
  fields.put(TAG_CL_ORD_ID, "1000");
  fields.put(TAG_SIDE, '5');
  fields.put_number(TAG_ORDER_QTY, 300);
  EXPECT_EQ(readable(fields.wire()), "11=1000|54=5|38=300|");
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

constexpr int32_t LOWEST_TAG = std::numeric_limits<int32_t>::min();
constexpr int32_t HIGHEST_TAG = std::numeric_limits<int32_t>::max();

// The tags on both sides of the index's ends, and those that would fall on one of its places if
// they were cut to 8 bits.
const std::vector<int32_t> TAGS_AROUND_THE_INDEX = {
    LOWEST_TAG, -65536, -257, -256, -255, -1,  0,    1,     34,    254,
    255,        256,    257,  290,  511,  512, 9730, 65535, 65536, HIGHEST_TAG};

TEST(FixFieldMap, finds_each_tag_whatever_its_number_and_takes_none_for_another) {
  for (const int32_t tag : TAGS_AROUND_THE_INDEX) {
    FixFieldMap fields;
    fields.set(tag, "17");
    for (const int32_t other : TAGS_AROUND_THE_INDEX) {
      EXPECT_EQ(fields.has(other), other == tag) << other << " with only " << tag;
      EXPECT_EQ(fields.text(other), other == tag ? "17" : "");
      EXPECT_EQ(fields.number(other), other == tag ? 17U : 0U);
      EXPECT_EQ(fields.first_char(other, '-'), other == tag ? '1' : '-');
    }
  }
}

TEST(FixFieldMap, keeps_the_last_value_of_a_repeated_tag_whatever_its_number) {
  FixFieldMap fields;
  for (const char* value : {"first", "", "third", "last"}) {
    for (const int32_t tag : TAGS_AROUND_THE_INDEX) {
      fields.set(tag, value);
      EXPECT_EQ(fields.text(tag), value) << tag;
    }
  }
  for (const int32_t tag : TAGS_AROUND_THE_INDEX) EXPECT_EQ(fields.text(tag), "last") << tag;
}

TEST(FixFieldMap, holds_nothing_once_it_is_cleared) {
  FixFieldMap fields;
  for (int round = 0; round < 3; ++round) {
    for (const int32_t tag : TAGS_AROUND_THE_INDEX) {
      fields.set(tag, "old");
      fields.set(tag, "new");
    }
    fields.clear();
    for (const int32_t tag : TAGS_AROUND_THE_INDEX) {
      EXPECT_FALSE(fields.has(tag)) << tag;
      EXPECT_EQ(fields.text(tag), "") << tag;
      EXPECT_EQ(fields.number(tag), 0U) << tag;
    }
  }
  fields.clear();  // of an empty one
  fields.set(TAG_SIDE, "1");
  EXPECT_EQ(fields.text(TAG_SIDE), "1");
  EXPECT_FALSE(fields.has(TAG_MSG_TYPE));
}

TEST(FixFieldMap, holds_more_fields_than_any_message_has) {
  FixFieldMap fields;
  for (int32_t tag = -1000; tag < 3000; ++tag) fields.set(tag, "first");
  for (int32_t tag = -1000; tag < 3000; tag += 2) fields.set(tag, "second");
  for (int32_t tag = -1000; tag < 3000; ++tag) {
    ASSERT_EQ(fields.text(tag), tag % 2 == 0 ? "second" : "first") << tag;
  }
  EXPECT_FALSE(fields.has(-1001));
  EXPECT_FALSE(fields.has(3000));
}

TEST(FixFieldMap, answers_as_a_map_of_last_values_does) {
  std::mt19937_64 random(9);
  const std::vector<std::string> values = {"", "0", "1", "ALPHA", "4294967296"};
  FixFieldMap fields;
  std::map<int32_t, std::string> model;
  for (int step = 0; step < 20000; ++step) {
    if (random() % 50 == 0) {
      fields.clear();
      model.clear();
    }
    const auto tag = static_cast<int32_t>(random() % 600) - 50;
    const std::string& value = values[random() % values.size()];
    fields.set(tag, value);
    model[tag] = value;
    const auto asked = static_cast<int32_t>(random() % 600) - 50;
    const auto entry = model.find(asked);
    ASSERT_EQ(fields.has(asked), entry != model.end()) << asked << " in step " << step;
    ASSERT_EQ(fields.text(asked), entry == model.end() ? "" : entry->second);
    ASSERT_EQ(fields.text(tag), value);
  }
}

}  // namespace
}  // namespace quorl::test
