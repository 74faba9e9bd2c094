#include "quorl/client/snap_client.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"
#include "tests/client/hand_made.h"

namespace quorl::client {
namespace {

using hand_made::SESSION;

/// A reply put together frame by frame, so that a test can spoil any of it.
struct Reply {
  uint64_t seq = 41;
  uint64_t offset = 5000;
  std::vector<Bytes> messages;
  std::optional<uint64_t> total;
  std::optional<uint64_t> end_seq;
  Bytes behind;

  Bytes bytes() const {
    Bytes frames;
    for (const Bytes& message : messages) {
      const Bytes segment = encode_tp_packet(hand_made::header(offset, seq), {message});
      put_u16(frames, static_cast<uint16_t>(segment.size() + 1));
      put_u8(frames, 'd');
      put_bytes(frames, segment);
    }
    Bytes reply;
    put_u16(reply, 9);
    put_u8(reply, 's');
    put_u64(reply, total.value_or(frames.size() + 22));
    put_bytes(reply, frames);
    put_u16(reply, 9);
    put_u8(reply, 'x');
    put_u64(reply, end_seq.value_or(seq));
    put_bytes(reply, behind);
    return reply;
  }
};

void put_symbol(std::vector<Bytes>& out, std::string_view symbol,
                const std::vector<Bytes>& levels) {
  out.push_back(hand_made::trading_status(symbol));
  out.push_back(hand_made::status('E', 'O', symbol));
  out.push_back(hand_made::status('O', 'N', symbol));
  out.push_back(hand_made::short_sale(symbol));
  out.insert(out.end(), levels.begin(), levels.end());
  out.push_back(hand_made::status('I', ' ', symbol));
}

Reply two_symbols() {
  Reply reply;
  reply.messages = {hand_made::directory("AAPL"), hand_made::directory("MSFT"),
                    hand_made::system_event('R')};
  put_symbol(reply.messages, "AAPL",
             {hand_made::level({.type = '8', .price = 1899900}),
              hand_made::level({.type = '8', .price = 1899800}),
              hand_made::level({.type = '5', .price = 1900000}),
              hand_made::level({.type = '5', .price = 1900100})});
  put_symbol(reply.messages, "MSFT", {});
  return reply;
}

void expect_refused(const Reply& reply, const char* why) {
  EXPECT_THROW(decode_snap_reply(reply.bytes(), SESSION), WireError) << why;
}

TEST(SnapRequest, its_bytes_are_as_told) {
  const Bytes bytes =
      encode(SnapRequest{.name = "AB", .channel_id = 1, .session_id = 77, .minimum_seq = 0x0102});
  Bytes wanted = {57, 0, 'r', 'A', 'B'};
  wanted.insert(wanted.end(), 38, ' ');
  put_bytes(wanted, Bytes{1, 0, 0, 0, 77, 0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(bytes, wanted);
}

TEST(SnapReply, an_image_gives_its_place_and_its_book) {
  const SnapReply reply = decode_snap_reply(two_symbols().bytes(), SESSION);
  const SnapImage& image = std::get<SnapImage>(reply);
  EXPECT_EQ(image.seq, 41u);
  EXPECT_EQ(image.stream_offset, 5000u);
  EXPECT_EQ(image.symbols(), (std::vector<std::string>{"AAPL", "MSFT"}));
  EXPECT_EQ(image.messages.size(), 17u);
  EXPECT_EQ(image.total_bytes, two_symbols().bytes().size());
  EXPECT_EQ(image.book().book("AAPL").bids, (BidLevels{{1899900, 300}, {1899800, 300}}));
  EXPECT_EQ(image.book().book("AAPL").asks, (AskLevels{{1900000, 300}, {1900100, 300}}));
}

TEST(SnapReply, an_error_gives_its_code_and_nothing_else) {
  EXPECT_EQ(std::get<SnapError>(decode_snap_reply(Bytes{2, 0, 'e', 'S'}, SESSION)).code, 'S');
  EXPECT_THROW(decode_snap_reply(Bytes{2, 0, 'e', 'X'}, SESSION), WireError);
  EXPECT_THROW(decode_snap_reply(Bytes{3, 0, 'e', 'S', 0}, SESSION), WireError);
  EXPECT_THROW(decode_snap_reply(Bytes{2, 0, 'e', 'S', 0}, SESSION), WireError);
  EXPECT_THROW(decode_snap_reply(Bytes{2, 0, 'e'}, SESSION), WireError);
}

TEST(SnapReply, an_image_cut_anywhere_is_refused) {
  const Bytes whole = two_symbols().bytes();
  for (size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    EXPECT_THROW(decode_snap_reply(ByteView(whole).first(size), SESSION), WireError);
  }
}

TEST(SnapReply, totals_and_numbers_must_agree) {
  Reply reply = two_symbols();
  reply.total = reply.bytes().size() - 1;
  expect_refused(reply, "the announced size");
  reply = two_symbols();
  reply.end_seq = 42;
  expect_refused(reply, "the end frame's number");
  reply = two_symbols();
  reply.behind = {0};
  expect_refused(reply, "a byte behind the end frame");
  EXPECT_THROW(decode_snap_reply(two_symbols().bytes(), SESSION + 1), WireError);
}

TEST(SnapReply, all_data_frames_carry_one_header) {
  // A frame is 45 bytes and its message; the offset of the second frame's header fields.
  const size_t second = 11 + 45 + 31;
  for (const size_t at :
       {second + 3, second + 15, second + 17, second + 19, second + 27, second + 35, second + 43}) {
    SCOPED_TRACE(at);
    Bytes bytes = two_symbols().bytes();
    bytes.at(at) ^= 1;
    EXPECT_THROW(decode_snap_reply(bytes, SESSION), WireError);
  }
}

TEST(SnapReply, the_messages_must_come_in_their_order) {
  for (size_t i = 0; i + 1 < two_symbols().messages.size(); ++i) {
    SCOPED_TRACE(i);
    Reply swapped = two_symbols();
    std::swap(swapped.messages[i], swapped.messages[i + 1]);
    if (i == 0) {
      expect_refused(swapped, "the directory disagrees with what follows");
    } else {
      expect_refused(swapped, "two neighbours changed places");
    }
  }
}

TEST(SnapReply, no_message_may_be_missing_or_doubled) {
  for (size_t i = 0; i < two_symbols().messages.size(); ++i) {
    SCOPED_TRACE(i);
    const bool is_level =
        two_symbols().messages[i][0] == '8' || two_symbols().messages[i][0] == '5';
    Reply without = two_symbols();
    without.messages.erase(without.messages.begin() + static_cast<std::ptrdiff_t>(i));
    if (!is_level) expect_refused(without, "missing");
    Reply doubled = two_symbols();
    doubled.messages.insert(doubled.messages.begin() + static_cast<std::ptrdiff_t>(i),
                            doubled.messages[i]);
    expect_refused(doubled, "doubled");
  }
}

TEST(SnapReply, a_level_within_an_event_and_a_trade_have_no_place_in_an_image) {
  Reply reply = two_symbols();
  reply.messages[7] = hand_made::level({.flags = 0});
  expect_refused(reply, "event flags 0");
  reply.messages[7] = hand_made::level({.size = 0});
  expect_refused(reply, "size 0");
  reply.messages[7] = hand_made::trade({});
  expect_refused(reply, "a trade");
  reply.messages[7] = hand_made::level({.at = hand_made::NOON + 1});
  expect_refused(reply, "another time");
  reply = two_symbols();
  reply.messages[2] = hand_made::system_event('S');
  expect_refused(reply, "a system that is not in regular hours");
}

TEST(SnapReply, a_market_without_symbols_is_one_system_event) {
  Reply reply;
  reply.messages = {hand_made::system_event('R')};
  EXPECT_TRUE(std::get<SnapImage>(decode_snap_reply(reply.bytes(), SESSION)).symbols().empty());
}

}  // namespace
}  // namespace quorl::client
