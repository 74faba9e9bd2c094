#include "stories/names.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace stories {
namespace {

TEST(Names, stand_for_what_came_first) {
  Names names;
  EXPECT_TRUE(names.match("$id", "1042"));
  EXPECT_TRUE(names.match("$id", "1042"));
  EXPECT_FALSE(names.match("$id", "1043"));
  EXPECT_FALSE(names.match("$id", "10421"));
  EXPECT_EQ(names.filled("oid $id!"), "oid 1042!");
}

TEST(Names, may_be_told_by_how_far_they_are_apart) {
  Names names;
  EXPECT_TRUE(names.match("$exec", "E9"));
  EXPECT_TRUE(names.match("$exec+1", "E10"));
  EXPECT_FALSE(names.match("$exec+1", "E11"));
  EXPECT_EQ(names.filled("$exec+12"), "E21");
}

TEST(Names, take_a_word_of_a_text_or_its_end) {
  Names names;
  EXPECT_TRUE(names.match("fd $fd (at $where): $rest", "fd 7 (at 127.0.0.1:80): gone for good"));
  EXPECT_EQ(names.filled("$fd $where $rest"), "7 127.0.0.1:80 gone for good");
  EXPECT_FALSE(names.match("$none", ""));
}

TEST(Names, are_not_bound_by_what_does_not_match) {
  Names names;
  EXPECT_FALSE(names.match("a $one c", "a b d"));
  EXPECT_THROW((void)names.filled("$one"), std::out_of_range);
  EXPECT_TRUE(names.match("$one", "other"));
}

TEST(Names, must_be_bound_where_they_are_used) {
  Names names;
  EXPECT_THROW((void)names.filled("$id"), std::out_of_range);
  EXPECT_THROW((void)names.match("$id+1", "2"), std::out_of_range);
  EXPECT_TRUE(names.match("$word", "word"));
  EXPECT_THROW((void)names.filled("$word+1"), std::out_of_range);
}

TEST(Names, leave_all_other_text_as_it_is) {
  Names names;
  EXPECT_TRUE(names.match("100% %s $5 a|b", "100% %s $5 a|b"));
  EXPECT_FALSE(names.match("ab", "a"));
  EXPECT_FALSE(names.match("a", "ab"));
  EXPECT_TRUE(names.match("", ""));
}

}  // namespace
}  // namespace stories
