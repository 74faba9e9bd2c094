#include "fix/fix_codec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "fix/outbox.h"
#include "support/exchange.h"
#include "support/fix_wire.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Every frame that can be had now, in order, readable.
std::vector<std::string> frames_in(ReceiveBuffer& buffer) {
  std::vector<std::string> frames;
  std::string frame;
  while (extract_frame(buffer, frame)) frames.push_back(readable(frame));
  return frames;
}

std::vector<std::string> frames_of(std::string_view bytes) {
  ReceiveBuffer buffer;
  buffer.append(bytes);
  return frames_in(buffer);
}

/// A frame with a body of its own that keeps its head as it is given: "8=FIX.4.2|9=5".
std::string frame_with_head(const std::string& head, const std::string& body = "35=0|34=2|") {
  return sealed(head + "|" + body);
}

const std::string GOOD = framed("35=0|34=2");

// --- Framing ---

TEST(ExtractFrame, takes_a_whole_frame_and_leaves_nothing) {
  ReceiveBuffer buffer;
  buffer.append(wire("8=FIX.4.2|9=10|35=0|34=2|10=164|"));
  EXPECT_THAT(frames_in(buffer), ElementsAre("8=FIX.4.2|9=10|35=0|34=2|10=164|"));
  EXPECT_TRUE(buffer.empty());
}

TEST(ExtractFrame, takes_one_frame_per_call_in_order) {
  ReceiveBuffer buffer;
  buffer.append(framed("35=0|34=2") + framed("35=1|34=3"));
  std::string frame;
  ASSERT_TRUE(extract_frame(buffer, frame));
  EXPECT_EQ(frame, framed("35=0|34=2"));
  EXPECT_EQ(buffer.bytes(), framed("35=1|34=3"));
  ASSERT_TRUE(extract_frame(buffer, frame));
  EXPECT_EQ(frame, framed("35=1|34=3"));
  EXPECT_FALSE(extract_frame(buffer, frame));
}

TEST(ExtractFrame, frames_any_version_behind_the_prefix) {
  for (const char* version : {"FIX.4.2", "FIX.4.4", "FIXT.1.1", "FIX", "FIXED"}) {
    const std::string frame = frame_with_head("8=" + std::string(version) + "|9=10");
    EXPECT_THAT(frames_of(frame), ElementsAre(readable(frame)));
  }
}

TEST(ExtractFrame, needs_no_order_of_fields_and_no_msg_type) {
  const std::string frame = framed("34=2|junk|=|49=");
  EXPECT_THAT(frames_of(frame), ElementsAre(readable(frame)));
}

TEST(ExtractFrame, finds_the_length_field_behind_other_fields) {
  const std::string frame = sealed("8=FIX.4.2|1=x|9=10|35=0|34=2|");
  EXPECT_THAT(frames_of(frame), ElementsAre(readable(frame)));
}

TEST(ExtractFrame, frames_an_empty_body) {
  EXPECT_THAT(frames_of(sealed("8=FIX.4.2|9=0|")), ElementsAre("8=FIX.4.2|9=0|10=198|"));
}

TEST(ExtractFrame, sums_bytes_as_unsigned) {
  const std::string frame = framed("35=0|58=\xff\xfe\x80");
  EXPECT_THAT(frames_of(frame), ElementsAre(readable(frame)));
}

TEST(ExtractFrame, takes_zero_bytes_for_bytes) {
  const std::string frame = framed(std::string_view("35=0|58=a\0b", 11));
  EXPECT_THAT(frames_of(frame), ElementsAre(readable(frame)));
}

TEST(ExtractFrame, loses_garbage_ahead_of_a_frame) {
  for (const char* garbage : {"xx", "8=FI", "8=8=FI", "\x01", "10=123\x01", "8=fix.4.2\x01"}) {
    EXPECT_THAT(frames_of(garbage + GOOD), ElementsAre(readable(GOOD))) << garbage;
  }
}

TEST(ExtractFrame, loses_garbage_between_frames) {
  EXPECT_THAT(frames_of(GOOD + "???" + GOOD), ElementsAre(readable(GOOD), readable(GOOD)));
}

TEST(ExtractFrame, empties_a_buffer_without_the_prefix_even_if_one_may_be_beginning) {
  for (size_t size = 1; size < 5; ++size) {
    ReceiveBuffer buffer;
    buffer.append(std::string_view(GOOD).substr(0, size));
    EXPECT_THAT(frames_in(buffer), IsEmpty());
    EXPECT_TRUE(buffer.empty()) << size;
    buffer.append(std::string_view(GOOD).substr(size));
    EXPECT_THAT(frames_in(buffer), IsEmpty()) << "a frame cut at " << size << " is lost";
    EXPECT_TRUE(buffer.empty()) << size;
  }
}

TEST(ExtractFrame, empties_a_tail_that_could_have_become_the_prefix) {
  ReceiveBuffer buffer;
  buffer.append(GOOD + "garbage 8=FI");
  EXPECT_THAT(frames_in(buffer), ElementsAre(readable(GOOD)));
  EXPECT_TRUE(buffer.empty());
}

TEST(ExtractFrame, completes_a_frame_that_is_cut_anywhere_behind_the_prefix) {
  const std::string frame = framed("35=D|34=2|11=a1|55=AAPL");
  for (size_t cut = 5; cut < frame.size(); ++cut) {
    ReceiveBuffer buffer;
    buffer.append(std::string_view(frame).substr(0, cut));
    EXPECT_THAT(frames_in(buffer), IsEmpty()) << cut;
    EXPECT_EQ(buffer.size(), cut);
    buffer.append(std::string_view(frame).substr(cut));
    EXPECT_THAT(frames_in(buffer), ElementsAre(readable(frame))) << cut;
  }
}

TEST(ExtractFrame, completes_a_frame_that_comes_byte_by_byte_behind_its_prefix) {
  ReceiveBuffer buffer;
  buffer.append("8=FIX");
  std::vector<std::string> frames;
  for (const char byte : GOOD.substr(5)) {
    EXPECT_THAT(frames, IsEmpty());
    buffer.append({&byte, 1});
    frames = frames_in(buffer);
  }
  EXPECT_THAT(frames, ElementsAre(readable(GOOD)));
}

TEST(ExtractFrame, completes_a_second_frame_that_is_cut_behind_a_whole_one) {
  const std::string second = framed("35=1|34=3");
  for (size_t cut = 5; cut < second.size(); ++cut) {
    ReceiveBuffer buffer;
    buffer.append("xx" + GOOD + second.substr(0, cut));
    EXPECT_THAT(frames_in(buffer), ElementsAre(readable(GOOD)));
    EXPECT_EQ(buffer.bytes(), second.substr(0, cut));
    buffer.append(second.substr(cut));
    EXPECT_THAT(frames_in(buffer), ElementsAre(readable(second))) << cut;
  }
}

// --- BodyLength ---

TEST(ExtractFrame, a_length_that_is_no_number_costs_one_byte_and_the_search_goes_on) {
  for (const char* text :
       {"abc", "", "x10", "-", "+", " ", ".5", "18446744073709551616", "-18446744073709551616",
        "99999999999999999999",
        "1000000000000000000000000000000000000000000000000000000000000000000000000000"
        "0000000000000000000000000000000000000000000000000000000000000000000000000000"
        "000000000000000000000000000000000000000000000000"}) {
    SCOPED_TRACE(text);
    const std::string bad = frame_with_head("8=FIX.4.2|9=" + std::string(text));
    EXPECT_THAT(frames_of(bad), IsEmpty());
    EXPECT_THAT(frames_of(bad + GOOD), ElementsAre(readable(GOOD)));
  }
}

TEST(ExtractFrame, loses_one_byte_only_to_a_bad_length) {
  // What follows the bad length holds a prefix at once: nothing of it may be skipped.
  const std::string inner = framed("35=0|34=9");
  EXPECT_THAT(frames_of(wire("8=FIX|9=x|") + inner), ElementsAre(readable(inner)));
  EXPECT_THAT(frames_of("8=FIX" + std::string("8=FIX") + wire("|9=abc|") + inner),
              ElementsAre(readable(inner)));
  EXPECT_THAT(frames_of(wire("8=FIX|9=x") + inner), ElementsAre(readable(inner)));
}

TEST(ExtractFrame, takes_a_length_for_the_number_it_begins_with) {
  for (const char* text : {"10", "+10", " 10", "\t\n\v\f\r10", "10x", "10 ", "010", "10.9",
                           "00000000000000000000000000010", "-18446744073709551606"}) {
    SCOPED_TRACE(text);
    const std::string frame = frame_with_head("8=FIX.4.2|9=" + std::string(text));
    EXPECT_THAT(frames_of(frame + GOOD), ElementsAre(readable(frame), readable(GOOD)));
  }
}

TEST(ExtractFrame, reads_a_negative_length_modulo_two_to_the_64) {
  const std::string frame = sealed("8=FIX.4.2|9=-18446744073709551615|x");
  EXPECT_THAT(frames_of(frame + GOOD), ElementsAre(readable(frame), readable(GOOD)));
}

TEST(ExtractFrame, a_length_that_is_never_reached_holds_back_what_stands_behind_it_for_ever) {
  for (const char* text :
       {"18446744073709551615", "18446744073709551614", "18446744073709551600",
        "18446744073709551585", "18446744073709551575", "9223372036854775807",
        "9223372036854775808", "-1", "-8", "-20", "-30", "-40", "4294967296", "1000000"}) {
    SCOPED_TRACE(text);
    ReceiveBuffer buffer;
    const std::string huge = frame_with_head("8=FIX.4.2|9=" + std::string(text));
    buffer.append("xx" + huge);
    EXPECT_THAT(frames_in(buffer), IsEmpty());
    for (int i = 0; i < 50; ++i) {
      buffer.append(GOOD);
      EXPECT_THAT(frames_in(buffer), IsEmpty());
    }
    EXPECT_EQ(buffer.size(), huge.size() + 50 * GOOD.size());
  }
}

TEST(ExtractFrame, drops_a_frame_that_announces_too_little_and_its_tail_with_it) {
  for (int length = 0; length < 10; ++length) {
    const std::string frame = frame_with_head("8=FIX.4.2|9=" + std::to_string(length));
    EXPECT_THAT(frames_of(frame + GOOD), ElementsAre(readable(GOOD))) << length;
  }
}

TEST(ExtractFrame, lets_a_frame_that_announces_too_much_swallow_what_follows) {
  const std::string frame = frame_with_head("8=FIX.4.2|9=11");
  ReceiveBuffer buffer;
  buffer.append(frame);
  EXPECT_THAT(frames_in(buffer), IsEmpty());
  EXPECT_EQ(buffer.bytes(), frame);  // it waits for one byte more
  buffer.append(GOOD + GOOD);
  EXPECT_THAT(frames_in(buffer), ElementsAre(readable(GOOD)));  // the first has lost its "8"
}

// --- CheckSum ---

/// A frame whose bytes sum to `wanted`, with `trailer` (seven bytes) in place of its own.
std::string frame_summing_to(unsigned wanted, const std::string& trailer) {
  for (size_t letters = 1; letters < 256; ++letters) {  // 'a' is odd: each adds another 97
    const std::string frame = framed("58=" + std::string(letters, 'a'));
    const std::string head = frame.substr(0, frame.size() - 7);
    if (checksum_of(head) == wanted) return head + wire(trailer);
  }
  ADD_FAILURE() << "no frame sums to " << wanted;
  return "";
}

TEST(ExtractFrame, reads_the_checksum_from_at_most_three_bytes) {
  const std::vector<std::pair<unsigned, std::string>> sums_and_trailers = {
      {7, "10=007|"}, {0, "10=000|"},   {255, "10=255|"},
      {7, "10=7|||"}, {7, "10=07||"},   {7, "10=7abc"},  // padding is not required
      {7, "10= 7||"}, {7, "10=+7||"},   {7, "10=007x"},
      {7, "10=0071"}, {123, "10=1234"},  // the last byte is not looked at
      {0, "10=abc|"}, {0, "10=||||"},    // no digit is 0
  };
  for (const auto& [sum, trailer] : sums_and_trailers) {
    const std::string frame = frame_summing_to(sum, trailer);
    EXPECT_THAT(frames_of(frame + GOOD), ElementsAre(readable(frame), readable(GOOD))) << trailer;
  }
}

TEST(ExtractFrame, drops_a_frame_with_a_wrong_or_misplaced_checksum) {
  const std::vector<std::pair<unsigned, std::string>> sums_and_trailers = {
      {7, "10=008|"},   {7, "10=abc|"}, {7, "10=263|"}, {7, "10=-7||"},
      {249, "10=-7||"},  // compared as it is, not modulo 256
      {7, "11=007|"},   {7, "010=007"}, {7, "|10=007"}, {7, "10:007|"},
  };
  for (const auto& [sum, trailer] : sums_and_trailers) {
    const std::string frame = frame_summing_to(sum, trailer);
    EXPECT_THAT(frames_of(frame + GOOD), ElementsAre(readable(GOOD))) << trailer;
  }
}

TEST(ExtractFrame, goes_on_to_a_good_frame_in_the_call_that_drops_a_bad_one) {
  std::string bad = framed("35=0|34=5");
  bad[bad.size() - 2] = bad[bad.size() - 2] == '0' ? '1' : '0';
  ReceiveBuffer buffer;
  buffer.append(bad + bad + GOOD);
  std::string frame;
  ASSERT_TRUE(extract_frame(buffer, frame));
  EXPECT_EQ(frame, GOOD);
}

TEST(ExtractFrame, drops_a_frame_with_any_one_byte_of_its_body_changed) {
  const std::string frame = framed("35=D|34=2|11=a1");
  for (size_t i = frame.find("35="); i < frame.size() - 7; ++i) {
    std::string changed = frame;
    ++changed[i];
    EXPECT_THAT(frames_of(changed), IsEmpty()) << i;
  }
}

// --- Cost: a buffer of some megabytes is framed in well under a second of processor time, and
// would take minutes if each step moved or searched all of it ---

constexpr double GENEROUS_CPU_S = 10.0;

template <typename Work>
double cpu_seconds_of(const Work& work) {
  const std::clock_t begin = std::clock();
  work();
  return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

TEST(ExtractFrame, frames_a_large_burst_in_linear_time) {
  std::string bytes;
  for (int i = 0; i < 300000; ++i) bytes += GOOD;
  EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(frames_of(bytes).size(), 300000U); }), GENEROUS_CPU_S);
}

TEST(ExtractFrame, drops_many_bad_frames_in_linear_time) {
  std::string bytes;
  for (int i = 0; i < 100000; ++i) bytes += wire("8=FIX.4.2|9=x|35=0|and some more of it|");
  std::string bad_sum = GOOD;
  bad_sum[bad_sum.size() - 2] ^= 1;
  for (int i = 0; i < 100000; ++i) bytes += bad_sum;
  bytes += GOOD;
  EXPECT_LT(cpu_seconds_of([&] { EXPECT_THAT(frames_of(bytes), ElementsAre(readable(GOOD))); }),
            GENEROUS_CPU_S);
}

TEST(ExtractFrame, drops_many_prefixes_ahead_of_one_bad_length_in_linear_time) {
  std::string bytes;
  for (int i = 0; i < 800000; ++i) bytes += "8=FIX";
  bytes += wire("|9=x|") + GOOD;
  EXPECT_LT(cpu_seconds_of([&] { EXPECT_THAT(frames_of(bytes), ElementsAre(readable(GOOD))); }),
            GENEROUS_CPU_S);
}

TEST(ExtractFrame, does_not_search_an_incomplete_frame_again_and_again) {
  for (const char* beginning : {"8=FIX.4.2", "8=FIX.4.2|9=", "8=FIX.4.2|9=99999999|"}) {
    const std::string piece(16, '1');
    EXPECT_LT(cpu_seconds_of([&] {
                ReceiveBuffer buffer;
                buffer.append(wire(beginning));
                std::string frame;
                for (int i = 0; i < 250000; ++i) {
                  buffer.append(piece);
                  ASSERT_FALSE(extract_frame(buffer, frame));
                }
              }),
              GENEROUS_CPU_S)
        << beginning;
  }
}

// --- Field split ---

/// "35=0 34=2", for the tags named; "(no)" for one that is absent.
std::string split_of(const std::string& text, const std::vector<int>& tags) {
  const std::string frame = wire(text);
  FixFieldMap fields;
  parse_fields(frame, fields);
  std::string found;
  for (const int tag : tags) {
    found += std::to_string(tag) + "=" +
             (fields.has(tag) ? std::string(fields.text(tag)) : std::string("(no)")) + " ";
  }
  return found;
}

TEST(ParseFields, finds_header_trailer_and_body_alike) {
  EXPECT_EQ(split_of("8=FIX.4.2|9=10|35=0|34=2|10=166|", {8, 9, 35, 34, 10}),
            "8=FIX.4.2 9=10 35=0 34=2 10=166 ");
}

TEST(ParseFields, keeps_the_last_of_a_repeated_tag) {
  EXPECT_EQ(split_of("34=1|35=0|34=7|", {34, 35}), "34=7 35=0 ");
}

TEST(ParseFields, keeps_an_equals_sign_in_a_value) {
  EXPECT_EQ(split_of("58=a=b=|34=1|", {58, 34}), "58=a=b= 34=1 ");
}

TEST(ParseFields, keeps_an_empty_value) {
  EXPECT_EQ(split_of("108=|34=1|", {108, 34}), "108= 34=1 ");
}

TEST(ParseFields, stops_at_the_first_piece_without_an_equals_sign) {
  EXPECT_EQ(split_of("35=0|junk|34=5|", {35, 34}), "35=0 34=(no) ");
  EXPECT_EQ(split_of("35=0||34=5|", {35, 34}), "35=0 34=(no) ");
  EXPECT_EQ(split_of("junk|34=5|", {34}), "34=(no) ");
  EXPECT_EQ(split_of("35=0|12|34=5|", {35, 12, 34}), "35=0 12=(no) 34=(no) ");
  EXPECT_EQ(split_of("35=0|123456789012|34=5|", {35, 34}), "35=0 34=(no) ");
}

TEST(ParseFields, stops_at_a_last_piece_without_its_end) {
  EXPECT_EQ(split_of("35=0|34=5", {35, 34}), "35=0 34=(no) ");
  EXPECT_EQ(split_of("35=0|34", {35, 34}), "35=0 34=(no) ");
  EXPECT_EQ(split_of("", {35}), "35=(no) ");
}

TEST(ParseFields, reads_a_tag_up_to_its_first_other_character) {
  EXPECT_EQ(split_of("12x=a|", {12}), "12=a ");
  EXPECT_EQ(split_of(" 12=a|", {12}), "12=a ");
  EXPECT_EQ(split_of("+12=a|", {12}), "12=a ");
  EXPECT_EQ(split_of("-12=a|", {12, -12}), "12=(no) -12=a ");
  EXPECT_EQ(split_of("012=a|", {12}), "12=a ");
}

TEST(ParseFields, reads_tags_of_any_length) {
  EXPECT_EQ(split_of("9999=a|12345678=b|123456789=c|1234567890=d|0000000000000000034=e|",
                     {9999, 12345678, 123456789, 1234567890, 34}),
            "9999=a 12345678=b 123456789=c 1234567890=d 34=e ");
}

TEST(ParseFields, takes_a_tag_that_is_no_number_for_0) {
  EXPECT_EQ(split_of("abc=a|34=1|", {0, 34}), "0=a 34=1 ");
  EXPECT_EQ(split_of("=a|34=1|", {0, 34}), "0=a 34=1 ");
}

TEST(ParseFields, narrows_a_tag_to_32_bits) {
  EXPECT_EQ(split_of("4294967331=0|", {35}), "35=0 ");
  EXPECT_EQ(split_of("2147483648=a|", {-2147483647 - 1}), "-2147483648=a ");
  EXPECT_EQ(split_of("-4294967261=a|", {35}), "35=a ");
}

TEST(ParseFields, saturates_a_tag_of_many_digits_before_it_is_narrowed) {
  EXPECT_EQ(split_of("123456789012345678901234567890=a|", {-1}), "-1=a ");
  EXPECT_EQ(split_of("-123456789012345678901234567890=a|", {0}), "0=a ");
}

TEST(ParseFields, keeps_zero_bytes_in_a_value) {
  const std::string frame = wire(std::string_view("49=A\0B|34=1|", 12));
  FixFieldMap fields;
  parse_fields(frame, fields);
  EXPECT_EQ(fields.text(49), std::string_view("A\0B", 3));
  EXPECT_EQ(fields.text(34), "1");
}

TEST(ParseFields, leaves_nothing_of_what_the_map_held_before) {
  const std::string first = wire("35=D|34=7|9730=x|58=text|");
  const std::string second = wire("35=0|34|");
  FixFieldMap fields;
  parse_fields(first, fields);
  EXPECT_EQ(fields.text(58), "text");
  parse_fields(second, fields);
  EXPECT_EQ(fields.text(35), "0");
  for (const int tag : {34, 9730, 58}) EXPECT_FALSE(fields.has(tag)) << tag;
  parse_fields("", fields);
  EXPECT_FALSE(fields.has(35));
}

// --- Composition ---

class ComposeMessage : public testing::Test {
 protected:
  ComposeMessage() { reset_clocks(); }

  /// The fields of the body and of the header, readable: "58=text|".
  static std::string composed(std::string_view msg_type, uint32_t seq, std::string_view target,
                              std::string_view body = "", std::string_view header = "") {
    Outbox out;
    compose_message(msg_type, seq, "IEXG", target, wire(body), wire(header), out);
    EXPECT_EQ(out.size(), 1U);
    return std::string(out[0]);
  }
};

TEST_F(ComposeMessage, writes_every_byte_of_head_session_fields_marks_body_and_trailer) {
  const std::string message =
      composed("8", 12, "ALPHA", "37=1000|11=a1|37=again|", "43=Y|122=20231114-22:13:19.000|");
  EXPECT_EQ(readable(message),
            "8=FIX.4.2|9=107|35=8|34=12|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|43=Y|"
            "122=20231114-22:13:19.000|37=1000|11=a1|37=again|10=240|");
}

TEST_F(ComposeMessage, writes_a_message_without_fields_of_its_own) {
  EXPECT_EQ(readable(composed("0", 1, "A")),
            "8=FIX.4.2|9=48|35=0|34=1|49=IEXG|56=A|52=20231114-22:13:20.123|10=050|");
}

TEST_F(ComposeMessage, writes_an_empty_target_and_the_largest_number) {
  EXPECT_EQ(readable(composed("5", 4294967295, "", "58=|")),
            "8=FIX.4.2|9=60|35=5|34=4294967295|49=IEXG|56=|52=20231114-22:13:20.123|58=|10=131|");
}

TEST_F(ComposeMessage, reads_the_system_clock_once) {
  composed("0", 1, "A");
  EXPECT_EQ(system_readings(), 1U);
}

TEST_F(ComposeMessage, writes_values_as_they_stand) {
  const std::string message = composed("3", 1, wire("A|B"), "58=x|y=|");
  EXPECT_NE(readable(message).find("|56=A|B|52="), std::string::npos);
  EXPECT_NE(readable(message).find("|58=x|y=|10="), std::string::npos);
  EXPECT_EQ(split_messages(message).size(), 1U);
}

TEST_F(ComposeMessage, adds_behind_what_the_outbox_holds) {
  Outbox out;
  compose_message("0", 1, "IEXG", "A", {}, {}, out);
  compose_message("8", 2, "IEXG", "B", wire("58=x|"), {}, out);
  ASSERT_EQ(out.size(), 2U);
  EXPECT_EQ(out[0], composed("0", 1, "A"));
  EXPECT_EQ(out[1], composed("8", 2, "B", "58=x|"));
}

TEST_F(ComposeMessage, has_a_right_length_and_a_checksum_of_three_digits_for_any_body) {
  bool below_ten = false;
  bool below_hundred = false;
  for (size_t size = 0; size < 1200; ++size) {
    const std::string text(size, size % 2 == 0 ? 'a' : '\xf3');
    const std::string message = composed("8", 1, "A", "58=" + text + "|");
    ASSERT_THAT(split_messages(message), ElementsAre(message));
    ASSERT_THAT(frames_of(message), ElementsAre(readable(message)));
    const std::string digits = message.substr(message.size() - 4, 3);
    below_ten = below_ten || digits.starts_with("00");
    below_hundred = below_hundred || (digits[0] == '0' && digits[1] != '0');
  }
  EXPECT_TRUE(below_ten && below_hundred);  // the padding has been seen
}

}  // namespace
}  // namespace quorl::test
