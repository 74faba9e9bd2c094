#include "fix/receive_buffer.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "fix/fix_codec.h"
#include "support/fix_wire.h"

namespace quorl::test {
namespace {

TEST(ReceiveBuffer, holds_what_was_appended_behind_what_was_dropped) {
  ReceiveBuffer buffer;
  EXPECT_TRUE(buffer.empty());
  buffer.append("abc");
  buffer.append("def");
  buffer.drop_front(2);
  EXPECT_EQ(buffer.bytes(), "cdef");
  EXPECT_EQ(buffer.size(), 4U);
  buffer.append("gh");
  EXPECT_EQ(buffer.bytes(), "cdefgh");
  buffer.drop_front(6);
  EXPECT_TRUE(buffer.empty());
  buffer.append("ij");
  EXPECT_EQ(buffer.bytes(), "ij");
}

TEST(ReceiveBuffer, is_empty_after_clear_and_can_be_used_again) {
  ReceiveBuffer buffer;
  buffer.append("abc");
  buffer.drop_front(1);
  buffer.clear();
  EXPECT_TRUE(buffer.empty());
  EXPECT_EQ(buffer.bytes(), "");
  buffer.append("xy");
  EXPECT_EQ(buffer.bytes(), "xy");
}

TEST(ReceiveBuffer, lets_the_framing_go_on_over_what_is_appended) {
  const std::string whole = framed("35=0|34=2|49=ALPHA|56=IEXG");
  ReceiveBuffer buffer;
  std::string frame;
  for (size_t i = 0; i + 1 < whole.size(); ++i) {
    buffer.append({&whole[i], 1});
    if (i + 1 < std::string_view("8=FIX").size()) continue;  // in pieces this would be lost
    EXPECT_FALSE(extract_frame(buffer, frame)) << "byte " << i;
    buffer.drop_front(0);
    EXPECT_EQ(buffer.size(), i + 1);
  }
  buffer.append({&whole.back(), 1});
  ASSERT_TRUE(extract_frame(buffer, frame));
  EXPECT_EQ(frame, whole);
  EXPECT_TRUE(buffer.empty());
}

TEST(ReceiveBuffer, starts_the_framing_over_with_each_new_front) {
  const std::string whole = framed("35=0|34=2|49=ALPHA|56=IEXG");
  for (const char* front : {
           "8=FIX.4.2|35=0|34=2|49=ALPHA|",      // searched for its BodyLength in vain
           "8=FIX.4.2|abcdefghijklmnop|9=12",    // part of its BodyLength read
           "8=FIX.4.2|9=1000|35=0|",             // not come to its end
           "8=FIX.4.2|9=18446744073709551615|",  // without an end
       }) {
    SCOPED_TRACE(front);
    for (const bool drops : {true, false}) {
      ReceiveBuffer buffer;
      buffer.append(wire(front));
      std::string frame;
      EXPECT_FALSE(extract_frame(buffer, frame));
      if (drops) {
        buffer.drop_front(buffer.size());
      } else {
        buffer.clear();
      }
      buffer.append(whole);
      ASSERT_TRUE(extract_frame(buffer, frame));
      EXPECT_EQ(frame, whole);
    }
  }
}

}  // namespace
}  // namespace quorl::test
