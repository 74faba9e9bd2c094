#include "quorl/client/fix_message.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

// Worked out by hand: 5 + 5 + 8 + 5 + 25 bytes of body; the bytes sum to 50 modulo 256.
const std::string HEARTBEAT =
    with_soh("8=FIX.4.2|9=48|35=0|34=2|49=IEXG|56=A|52=20240102-03:04:05.006|10=050|");

std::string framed_with(const std::string& body) { return frame_fix(body); }

TEST(FixMessage, a_frame_is_split_into_its_fields_in_order) {
  const std::string frame =
      framed_with("35=0|34=12|49=IEXG|56=ALPHA|52=20240102-03:04:05.006|112=a=b|");
  const FixMessage message = parse_fix(frame);
  EXPECT_EQ(message.tags(), (std::vector<int>{8, 9, 35, 34, 49, 56, 52, 112, 10}));
  EXPECT_EQ(message.type(), "0");
  EXPECT_EQ(message.seq(), 12u);
  EXPECT_EQ(message.get(112), "a=b");
  EXPECT_EQ(message.body(), (FixFields{{112, "a=b"}}));
  EXPECT_EQ(message.raw(), frame);
  EXPECT_FALSE(message.has(58));
  EXPECT_THROW(message.get(58), WireError);
  EXPECT_THROW(message.number(112), WireError);
}

TEST(FixMessage, body_length_and_checksum_of_a_composed_message_are_those_worked_out_by_hand) {
  const FixHeader header{.type = "0",
                         .seq = "2",
                         .sender = "IEXG",
                         .target = "A",
                         .sending_time = "20240102-03:04:05.006"};
  EXPECT_EQ(with_bars(compose_fix(header, {})), with_bars(HEARTBEAT));
  EXPECT_NO_THROW(parse_fix(HEARTBEAT));
}

TEST(FixMessage, header_extras_stand_between_the_header_and_the_body) {
  const FixHeader header{.type = "8",
                         .seq = "3",
                         .sender = "S",
                         .target = "T",
                         .sending_time = "20240102-03:04:05.006",
                         .extra = {{43, "Y"}}};
  EXPECT_EQ(parse_fix(compose_fix(header, {{37, "1"}})).tags(),
            (std::vector<int>{8, 9, 35, 34, 49, 56, 52, 43, 37, 10}));
}

TEST(FixMessage, a_changed_byte_anywhere_is_noticed) {
  for (size_t i = 0; i < HEARTBEAT.size(); ++i) {
    SCOPED_TRACE(i);
    std::string damaged = HEARTBEAT;
    damaged[i] = damaged[i] == '7' ? '8' : '7';
    EXPECT_THROW(parse_fix(damaged), WireError);
  }
}

TEST(FixMessage, a_frame_cut_anywhere_is_refused) {
  for (size_t size = 0; size < HEARTBEAT.size(); ++size) {
    SCOPED_TRACE(size);
    EXPECT_THROW(parse_fix(std::string_view(HEARTBEAT).substr(0, size)), WireError);
  }
}

TEST(FixMessage, a_checksum_of_two_digits_is_refused) {
  // This body sums to a number below 100.
  for (int i = 0; i < 1000; ++i) {
    const std::string good = framed_with(
        "35=0|34=2|49=IEXG|56=A|52=20240102-03:04:05.006|112=" + std::to_string(i) + "|");
    if (good.find("\x01"
                  "10=0") == std::string::npos)
      continue;
    EXPECT_NO_THROW(parse_fix(good));
    std::string short_sum = good;
    short_sum.erase(good.size() - 4, 1);
    EXPECT_THROW(parse_fix(short_sum), WireError);
    return;
  }
  FAIL() << "no such body among 1000";
}

TEST(FixMessage, header_fields_out_of_order_are_refused) {
  EXPECT_THROW(parse_fix(framed_with("34=2|35=0|49=IEXG|56=A|52=20240102-03:04:05.006|")),
               WireError);
  EXPECT_THROW(parse_fix(framed_with("35=0|34=2|56=A|49=IEXG|52=20240102-03:04:05.006|")),
               WireError);
  EXPECT_THROW(parse_fix(framed_with("35=0|34=2|49=IEXG|56=A|112=x|52=20240102-03:04:05.006|")),
               WireError);
}

TEST(FixMessage, a_tag_that_comes_twice_or_is_no_number_is_refused) {
  const std::string header = "35=0|34=2|49=IEXG|56=A|52=20240102-03:04:05.006|";
  EXPECT_NO_THROW(parse_fix(framed_with(header + "112=x|")));
  EXPECT_THROW(parse_fix(framed_with(header + "112=x|112=x|")), WireError);
  EXPECT_THROW(parse_fix(framed_with(header + "0112=x|")), WireError);
  EXPECT_THROW(parse_fix(framed_with(header + "x=x|")), WireError);
  EXPECT_THROW(parse_fix(framed_with(header + "=x|")), WireError);
  EXPECT_THROW(parse_fix(framed_with(header + "112|")), WireError);
}

TEST(FixMessage, only_version_42_is_taken) {
  EXPECT_THROW(parse_fix(frame_fix("35=0|34=2|49=IEXG|56=A|52=20240102-03:04:05.006|", "FIX.4.4")),
               WireError);
}

TEST(FixMessage, a_sequence_number_must_be_plain_decimal) {
  for (const char* seq : {"", "02", "-2", "+2", "2x", " 2"}) {
    SCOPED_TRACE(seq);
    EXPECT_THROW(parse_fix(framed_with("35=0|34=" + std::string(seq) +
                                       "|49=IEXG|56=A|52=20240102-03:04:05.006|")),
                 WireError);
  }
}

TEST(FixMessage, timestamps_have_one_form) {
  EXPECT_TRUE(is_fix_timestamp("20240102-23:59:59.999"));
  EXPECT_TRUE(is_fix_timestamp(fix_timestamp_now()));
  for (const char* text :
       {"", "20240102-23:59:59", "20240102-23:59:59.99", "20240102 23:59:59.999",
        "20241302-23:59:59.999", "20240100-23:59:59.999", "20240102-24:59:59.999",
        "20240102-23:60:59.999", "2024010a-23:59:59.999"}) {
    EXPECT_FALSE(is_fix_timestamp(text)) << text;
  }
}

TEST(FixMessage, fields_are_read_from_text_with_bars) {
  EXPECT_EQ(fix_fields("35=8|58=a b|44="), (FixFields{{35, "8"}, {58, "a b"}, {44, ""}}));
  EXPECT_THROW(fix_fields("35"), WireError);
}

TEST(FixFramer, frames_come_out_whole_however_the_stream_is_cut) {
  const std::string two = HEARTBEAT + HEARTBEAT;
  for (size_t cut = 0; cut <= two.size(); ++cut) {
    SCOPED_TRACE(cut);
    FixFramer framer;
    std::vector<std::string> frames;
    for (const std::string& piece : {two.substr(0, cut), two.substr(cut)}) {
      framer.append(piece);
      while (auto frame = framer.next()) frames.push_back(*frame);
    }
    EXPECT_EQ(frames, (std::vector<std::string>{HEARTBEAT, HEARTBEAT}));
    EXPECT_EQ(framer.pending(), 0u);
  }
}

TEST(FixFramer, bytes_between_frames_are_refused) {
  FixFramer framer;
  framer.append(HEARTBEAT + "x" + HEARTBEAT);
  EXPECT_TRUE(framer.next().has_value());
  EXPECT_THROW(framer.next(), WireError);
}

TEST(FixFramer, a_body_length_that_is_no_plain_number_is_refused) {
  for (const char* length : {"abc", "-5", "05", "", "1234567890"}) {
    SCOPED_TRACE(length);
    FixFramer framer;
    framer.append(with_soh("8=FIX.4.2|9=" + std::string(length) + "|35=0|"));
    EXPECT_THROW(framer.next(), WireError);
  }
}

}  // namespace
}  // namespace quorl::client
