#include "certify/report/clean_text.h"

#include <gtest/gtest.h>

namespace certify {
namespace {

TEST(CleanText, leaves_what_can_be_read) {
  EXPECT_EQ(clean_text("35=D|58=\"a\" <b> & é€𝄞"), "35=D|58=\"a\" <b> & é€𝄞");
}

TEST(CleanText, shows_control_characters) {
  EXPECT_EQ(clean_text("a\x1b[31m\r\n\tb\x7f"), "a\\x1b[31m\\x0d\\x0a\\x09b\\x7f");
  EXPECT_EQ(clean_text(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(clean_text("\xc2\x9b"), "\\xc2\\x9b");
}

TEST(CleanText, shows_what_is_no_utf8) {
  EXPECT_EQ(clean_text("\xff"), "\\xff");
  EXPECT_EQ(clean_text("\xc0\xaf"), "\\xc0\\xaf");                    // too long a form
  EXPECT_EQ(clean_text("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // half of a pair
  EXPECT_EQ(clean_text("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // beyond the last
  EXPECT_EQ(clean_text("\xe2\x82"), "\\xe2\\x82");                    // cut off
  EXPECT_EQ(clean_text("\xe2\x82"
                       "a"),
            "\\xe2\\x82"
            "a");
}

TEST(CleanText, shows_what_xml_does_not_have_and_what_turns_the_writing) {
  EXPECT_EQ(clean_text("\xef\xbf\xbf"), "\\xef\\xbf\\xbf");
  EXPECT_EQ(clean_text("\xe2\x80\xae"), "\\xe2\\x80\\xae");
}

TEST(CutTo, counts_characters) {
  EXPECT_EQ(cut_to("größer", 6), "größer");
  EXPECT_EQ(cut_to("größer", 5), "größ…");
  EXPECT_EQ(cut_to("größer", 1), "…");
  EXPECT_EQ(cut_to("größer", 0), "größer");
}

TEST(Fold, breaks_at_blanks_behind_the_margin) {
  EXPECT_EQ(fold("one two three", 9, 2), "  one two\n  three");
  EXPECT_EQ(fold("one two three", 0, 2), "  one two three");
  EXPECT_EQ(fold("unbreakable it is", 5, 2), "  unbreakable\n  it\n  is");
  EXPECT_EQ(fold("", 5, 2), "  ");
}

}  // namespace
}  // namespace certify
