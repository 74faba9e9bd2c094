// What a replay knows and answers, without its sockets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/deep.h"
#include "quorl/client/errors.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/snap_client.h"
#include "tests/tools/support/made_feed.h"
#include "tools/replay/drop_plan.h"
#include "tools/replay/gap_fill_answer.h"
#include "tools/replay/market.h"
#include "tools/replay/pace.h"
#include "tools/replay/position.h"
#include "tools/replay/recording.h"
#include "tools/replay/round.h"
#include "tools/replay/snap_answer.h"
#include "tools/replay/stream.h"

namespace {

using client::Bytes;
using client::SeqRange;
using testing::ElementsAre;
using testing::IsEmpty;

tools::RecordedFeed recorded(const MadeFeed& made) {
  tools::FeedSorter sorter;
  for (const MadeFeed::Packet& packet : made.packets()) {
    sorter.take(packet.time_ns, {.from = {}, .to = {0xef010203, 5555}, .payload = packet.bytes});
  }
  return std::move(sorter).feeds().at(0);
}

MadeFeed without(MadeFeed feed, size_t index) {
  feed.packets().erase(feed.packets().begin() + static_cast<std::ptrdiff_t>(index));
  return feed;
}

/// A round of a feed, its packets sent as the test says.
struct Played {
  explicit Played(const MadeFeed& made, uint32_t session = hand_made::SESSION)
      : feed(recorded(made)), stream(feed), round(stream, session) {}

  Played& sends(size_t packets) {
    for (size_t i = 0; i < packets; ++i) round.pass(feed.packets.at(sent++));
    return *this;
  }
  Played& sends_all() { return sends(feed.packets.size() - sent); }

  std::vector<Bytes> answers(const std::vector<SeqRange>& ranges) const {
    return tools::answer_gap_fill(ranges, stream, round.position(), round.session());
  }
  /// The first number of each packet of the answer and its count of messages.
  std::vector<std::pair<uint64_t, unsigned>> brings(const std::vector<SeqRange>& ranges) const {
    std::vector<std::pair<uint64_t, unsigned>> brought;
    for (const Bytes& bytes : answers(ranges)) {
      const client::TpPacket packet = client::decode_tp_packet(bytes, round.session());
      brought.emplace_back(packet.header.first_seq, packet.header.message_count);
    }
    return brought;
  }

  client::SnapReply asks_for_an_image(const client::SnapRequest& request) {
    return client::decode_snap_reply(tools::answer_snap(encode(request), round).bytes,
                                     round.session());
  }
  client::SnapImage image(uint64_t minimum = 0) {
    return std::get<client::SnapImage>(
        asks_for_an_image({.session_id = round.session(), .minimum_seq = minimum}));
  }
  /// The code of the refusal.
  char refusal(const client::SnapRequest& request) {
    return std::get<client::SnapError>(asks_for_an_image(request)).code;
  }

  tools::RecordedFeed feed;
  tools::Stream stream;
  tools::Round round;
  size_t sent = 0;
};

std::vector<uint64_t> numbers(const tools::Stream& stream) {
  std::vector<uint64_t> numbers;
  for (const tools::StreamMessage& message : stream.messages()) numbers.push_back(message.seq);
  return numbers;
}

Bytes a_bid(uint32_t size) { return hand_made::level({.size = size, .price = 1890000}); }

TEST(Stream, numbers_messages_as_they_are_and_not_as_announced) {
  const tools::RecordedFeed feed = recorded(
      MadeFeed().packet({a_bid(1), a_bid(2)}).packet_announced_high({a_bid(3)}).packet({a_bid(4)}));
  EXPECT_THAT(numbers(tools::Stream(feed)), ElementsAre(1, 2, 3, 4));
}

TEST(Stream, settles_the_numbers_of_a_run_joined_late_from_both_sides) {
  MadeFeed made = MadeFeed().bids(3).packet_announced_high({a_bid(9)}).bids(1);
  const tools::RecordedFeed feed = recorded(without(without(without(made, 0), 0), 0));
  EXPECT_THAT(numbers(tools::Stream(feed)), ElementsAre(4, 5));
}

TEST(Stream, has_each_message_once_in_order_whatever_the_network_did) {
  MadeFeed made = MadeFeed().bids(4).heartbeat();
  std::swap(made.packets()[1], made.packets()[2]);
  made.packets().push_back(made.packets()[0]);
  const tools::RecordedFeed feed = recorded(made);
  const tools::Stream stream(feed);
  EXPECT_THAT(numbers(stream), ElementsAre(1, 2, 3, 4));
  for (size_t i = 0; i < 3; ++i) EXPECT_TRUE(stream.follows_on(i));
  EXPECT_TRUE(stream.begins_with_the_run());
}

TEST(Stream, knows_where_messages_are_missing) {
  const tools::RecordedFeed feed = recorded(without(MadeFeed().bids(4), 1));
  const tools::Stream stream(feed);
  EXPECT_THAT(numbers(stream), ElementsAre(1, 3, 4));
  EXPECT_FALSE(stream.follows_on(0));
  EXPECT_TRUE(stream.follows_on(1));
}

TEST(Stream, refuses_packets_that_contradict_each_other) {
  MadeFeed made = MadeFeed().bids(3);
  made.packets()[1].bytes[24] = 9;  // another first number
  const tools::RecordedFeed feed = recorded(made);
  EXPECT_THROW(tools::Stream stream(feed), client::WireError);
}

TEST(Stream, refuses_packets_that_overlap) {
  const MadeFeed made = MadeFeed().packet({a_bid(1), a_bid(2)});
  MadeFeed other = MadeFeed().bids(2);
  other.packets()[0] = made.packets()[0];  // holds what the other's second packet holds
  other.packets()[0].bytes[32] = 1;
  const tools::RecordedFeed feed = recorded(other);
  EXPECT_THROW(tools::Stream stream(feed), client::WireError);
}

TEST(Position, goes_forward_only) {
  MadeFeed made = MadeFeed().bids(3).heartbeat();
  std::swap(made.packets()[1], made.packets()[2]);
  Played played(made);
  EXPECT_TRUE(played.round.position().at_the_start());
  played.sends(1);
  EXPECT_EQ(played.round.position().next_seq(), 2u);
  played.sends(1);  // number 3, ahead of number 2
  EXPECT_EQ(played.round.position().next_seq(), 4u);
  EXPECT_EQ(played.round.position().messages(), 3u);
  EXPECT_EQ(played.round.position().next_offset(), 96u);
  const uint64_t time_ns = played.round.position().time_ns();
  played.sends(1);
  EXPECT_EQ(played.round.position().next_seq(), 4u);
  EXPECT_EQ(played.round.position().time_ns(), time_ns);
  played.sends(1);
  EXPECT_EQ(played.round.position().next_seq(), 4u);
  EXPECT_GT(played.round.position().time_ns(), time_ns);
}

using std::chrono::milliseconds;

TEST(Pace, keeps_the_distances_of_the_recording) {
  const tools::Pace::Moment now{};
  tools::Pace pace(1.0);
  pace.begin(5'000'000'000, now);
  EXPECT_EQ(pace.due(5'000'000'000), now);
  EXPECT_EQ(pace.due(5'250'000'000), now + milliseconds(250));
  EXPECT_EQ(pace.due(7'000'000'000), now + milliseconds(2000));
  EXPECT_EQ(pace.due(4'000'000'000), now);  // captured out of order
}

TEST(Pace, divides_them_by_its_factor) {
  const tools::Pace::Moment now{};
  tools::Pace fast(4.0);
  fast.begin(0, now);
  EXPECT_EQ(fast.due(1'000'000'000), now + milliseconds(250));
  tools::Pace slow(0.5);
  slow.begin(0, now);
  EXPECT_EQ(slow.due(1'000'000'000), now + milliseconds(2000));
  tools::Pace crawling(0.0001);
  crawling.begin(0, now);
  EXPECT_GT(crawling.due(UINT64_MAX), now + std::chrono::hours(24 * 365));
}

TEST(Pace, without_a_factor_lets_everything_go_at_once) {
  const tools::Pace::Moment now{};
  tools::Pace pace(std::nullopt);
  pace.begin(0, now);
  EXPECT_EQ(pace.due(UINT64_MAX), now);
}

TEST(DropPlan, names_packets_or_takes_every_so_many) {
  const tools::DropPlan plan{.packets = {1, 4}, .every = 3};
  std::vector<uint64_t> dropped;
  for (uint64_t n = 1; n <= 9; ++n) {
    if (plan.drops(n)) dropped.push_back(n);
  }
  EXPECT_THAT(dropped, ElementsAre(1, 3, 4, 6, 9));
  EXPECT_FALSE(tools::DropPlan().drops(1));
}

TEST(Round, changes_nothing_in_a_packet_but_the_session) {
  Played played(MadeFeed().bids(1), 0x01020304);
  Bytes expected = played.feed.packets[0].bytes;
  EXPECT_EQ(client::hex(client::ByteView(expected).subspan(8, 4)), "4d 00 00 00");
  expected[8] = 4;
  expected[9] = 3;
  expected[10] = 2;
  expected[11] = 1;
  EXPECT_EQ(played.round.wire_bytes(played.feed.packets[0]), expected);
}

TEST(Round, makes_heartbeats_of_its_position) {
  Played played(MadeFeed().bids(3), 9);
  const auto packet = client::decode_tp_packet(played.sends(2).round.heartbeat(1000), 9);
  EXPECT_TRUE(packet.is_heartbeat());
  EXPECT_EQ(packet.header.first_seq, 3u);
  EXPECT_EQ(packet.header.stream_offset, 64u);
  EXPECT_EQ(packet.header.send_time_ns, played.feed.packets[1].header.send_time_ns + 1000);
}

// Gap fill.

std::optional<size_t> ranges_in(const client::GapFillRequest& request) {
  const auto ranges = tools::read_gap_fill_request(encode(request), hand_made::SESSION);
  if (!ranges) return std::nullopt;
  return ranges->size();
}

client::GapFillRequest asking(const std::vector<SeqRange>& ranges) {
  return {.session_id = hand_made::SESSION, .ranges = ranges};
}

TEST(GapFillRequest, holds_ranges_that_rise_and_stay_apart) {
  EXPECT_EQ(ranges_in(asking({})), 0u);
  EXPECT_EQ(ranges_in(asking({{5, 9}, {10, 12}})), 2u);
  EXPECT_EQ(ranges_in(asking({{5, 9}, {9, 12}})), std::nullopt);
  EXPECT_EQ(ranges_in(asking({{10, 12}, {5, 9}})), std::nullopt);
  EXPECT_EQ(ranges_in(asking({{9, 5}})), std::nullopt);
  EXPECT_EQ(ranges_in(asking({{5, 5}})), 1u);
  EXPECT_EQ(ranges_in(asking(std::vector<SeqRange>{{0, UINT64_MAX}})), 1u);
}

TEST(GapFillRequest, is_refused_for_any_wrong_field) {
  const auto refuses = [](void (*spoil)(client::GapFillRequest&)) {
    client::GapFillRequest request = asking({{1, 2}});
    spoil(request);
    return !ranges_in(request);
  };
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { r.version = 2; }));
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { r.kind = 2; }));
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { r.protocol_id = 0x8003; }));
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { r.channel_id = 2; }));
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { ++r.session_id; }));
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { r.range_count = 2; }));
  EXPECT_TRUE(refuses([](client::GapFillRequest& r) { r.range_count = UINT32_MAX; }));
  EXPECT_FALSE(refuses([](client::GapFillRequest& r) { r.trailing = Bytes(5, 1); }));
  const Bytes request = encode(asking({{1, 2}}));
  for (size_t size = 0; size < request.size(); ++size) {
    const client::ByteView cut = client::ByteView(request).first(size);
    EXPECT_FALSE(tools::read_gap_fill_request(cut, hand_made::SESSION)) << size;
  }
}

TEST(GapFill, answers_the_status_with_the_position) {
  Played played(MadeFeed().bids(3));
  EXPECT_THAT(played.answers({}), IsEmpty());  // nothing has been sent: there is no position yet
  const std::vector<Bytes> answer = played.sends(2).answers({});
  ASSERT_EQ(answer.size(), 1u);
  const client::TpPacket packet = client::decode_tp_packet(answer[0], hand_made::SESSION);
  EXPECT_TRUE(packet.is_heartbeat());
  EXPECT_EQ(packet.header.first_seq, 3u);
  EXPECT_EQ(packet.header.stream_offset, 64u);
}

TEST(GapFill, brings_what_has_been_sent_and_nothing_of_what_is_to_come) {
  Played played(MadeFeed().bids(9));
  played.sends(5);
  EXPECT_THAT(played.brings({{1, 100}}), ElementsAre(std::pair(1, 5)));
  EXPECT_THAT(played.brings({{2, 3}, {5, 5}}), ElementsAre(std::pair(2, 2), std::pair(5, 1)));
  EXPECT_THAT(played.brings({{6, 9}}), IsEmpty());
}

TEST(GapFill, brings_the_messages_with_true_numbers_and_offsets) {
  Played played(MadeFeed().bids(2).packet_announced_high({a_bid(50)}).bids(1));
  const std::vector<Bytes> answer = played.sends_all().answers({{3, 4}});
  ASSERT_EQ(answer.size(), 1u);
  const client::TpPacket packet = client::decode_tp_packet(answer[0], hand_made::SESSION);
  EXPECT_EQ(packet.header.first_seq, 3u);
  EXPECT_EQ(packet.header.stream_offset, 64u);
  EXPECT_EQ(packet.messages.at(0).bytes, a_bid(50));
  EXPECT_EQ(packet.messages.at(1).bytes, a_bid(3));
}

TEST(GapFill, fills_packets_to_45_messages_of_30_bytes) {
  Played played(MadeFeed().bids(100));
  EXPECT_THAT(played.sends_all().brings({{1, 100}}),
              ElementsAre(std::pair(1, 45), std::pair(46, 45), std::pair(91, 10)));
}

TEST(GapFill, brings_1000_messages_over_all_ranges_of_a_request) {
  Played played(MadeFeed().bids(3000));
  played.sends_all();
  uint64_t count = 0;
  uint64_t last = 0;
  for (const auto& [first, messages] : played.brings({{1, 800}, {1001, 1800}})) {
    count += messages;
    last = first + messages - 1;
  }
  EXPECT_EQ(count, 1000u);
  EXPECT_EQ(last, 1200u);
}

TEST(GapFill, keeps_the_latest_400000_messages) {
  MadeFeed made;
  std::vector<Bytes> full;
  for (uint32_t i = 0; i < 45; ++i) full.push_back(a_bid(i + 1));
  constexpr size_t PACKETS = 400000 / 45 + 1;  // 5 messages too many
  for (size_t i = 0; i < PACKETS; ++i) made.packet(full);
  Played played(made);
  EXPECT_THAT(played.sends_all().brings({{1, 10}}), ElementsAre(std::pair(6, 5)));
}

TEST(GapFill, serves_a_range_up_to_the_first_message_that_the_recording_lacks) {
  Played played(without(MadeFeed().bids(6), 2));
  played.sends_all();
  EXPECT_THAT(played.brings({{1, 6}}), ElementsAre(std::pair(1, 2)));
  EXPECT_THAT(played.brings({{3, 6}}), ElementsAre(std::pair(4, 3)));
  EXPECT_THAT(played.brings({{3, 3}}), IsEmpty());
}

TEST(GapFill, knows_a_packet_that_is_late_in_the_recording) {
  MadeFeed made = MadeFeed().bids(3);
  std::swap(made.packets()[1], made.packets()[2]);
  Played played(made);
  played.sends(2);  // numbers 1 and 3
  EXPECT_THAT(played.brings({{2, 2}}), ElementsAre(std::pair(2, 1)));
}

// Images.

TEST(Snap, shows_the_book_at_the_present_position) {
  Played played(MadeFeed().opening().bids(3));
  client::SnapImage image = played.sends(1).image();
  EXPECT_EQ(image.seq, 11u);
  EXPECT_EQ(image.stream_offset, played.feed.packets[1].header.stream_offset);
  EXPECT_EQ(image.timestamp_ns, played.feed.packets[0].header.send_time_ns);
  EXPECT_EQ(image.symbols(), std::vector<std::string>{"AAPL"});
  const auto& directory = std::get<client::SecurityDirectory>(image.messages.at(0));
  EXPECT_EQ(directory.previous_close, 1900000);
  EXPECT_THAT(image.book().book("AAPL").bids, ElementsAre(std::pair(1899900, 300u)));
  EXPECT_THAT(image.book().book("AAPL").asks, ElementsAre(std::pair(1900100, 500u)));

  image = played.sends(3).image();
  EXPECT_EQ(image.seq, 14u);
  EXPECT_THAT(image.book().book("AAPL").bids,
              ElementsAre(std::pair(1899900, 300u), std::pair(1890000, 3u)));
}

TEST(Snap, shows_symbols_in_the_order_of_the_directory_and_levels_from_the_best) {
  Played played(MadeFeed()
                    .packet({hand_made::directory("MSFT"), hand_made::directory("AAPL")})
                    .opening()
                    .packet({hand_made::level({.type = '5', .symbol = "MSFT", .price = 4000100}),
                             hand_made::level({.symbol = "MSFT", .price = 3999800}),
                             hand_made::level({.symbol = "MSFT", .price = 3999900}),
                             hand_made::level({.symbol = "MSFT", .size = 0, .price = 3999800})}));
  const client::SnapImage image = played.sends_all().image();
  EXPECT_THAT(image.symbols(), ElementsAre("MSFT", "AAPL"));
  EXPECT_THAT(image.book().book("MSFT").bids, ElementsAre(std::pair(3999900, 300u)));
}

TEST(Snap, stands_behind_the_event_that_the_position_lies_in) {
  const auto bid = [](uint8_t flags, int64_t price) {
    return hand_made::level({.flags = flags, .price = price});
  };
  Played played(MadeFeed()
                    .opening()
                    .packet({hand_made::trade({})})  // its level updates come in the next packets
                    .packet({bid(0, 1890000)})
                    .packet({bid(1, 1890100), bid(1, 1890200)}));
  const client::SnapImage image = played.sends(2).image();
  EXPECT_EQ(image.seq, 14u);
  EXPECT_EQ(image.stream_offset, played.stream.messages()[14].stream_offset);
  EXPECT_EQ(image.book().book("AAPL").bids.count(1890100), 1u);
  EXPECT_EQ(image.book().book("AAPL").bids.count(1890200), 0u);
  EXPECT_EQ(played.sends_all().image().seq, 15u);
}

TEST(Snap, stands_where_it_must_if_the_end_of_an_event_is_not_in_the_recording) {
  Played played(without(MadeFeed().opening().packet({hand_made::trade({})}).bids(2), 2));
  EXPECT_EQ(played.sends(2).image().seq, 12u);
  EXPECT_EQ(played.sends(1).image().seq, 14u);
}

TEST(Snap, of_a_recording_from_the_middle_shows_what_has_been_said_since) {
  MadeFeed made = MadeFeed().opening().packet(
      {hand_made::level({.type = '5', .size = 200, .price = 1900351}),
       hand_made::level({.size = 100, .price = 1899900}),
       hand_made::level({.size = 0, .price = 1880000})});  // of a level never heard of
  Played played(without(made, 0));
  const client::SnapImage image = played.sends_all().image();
  EXPECT_EQ(image.seq, 14u);
  const auto& directory = std::get<client::SecurityDirectory>(image.messages.at(0));
  EXPECT_EQ(directory.previous_close, 1900100);  // the middle, in whole cents
  EXPECT_THAT(image.book().book("AAPL").bids, ElementsAre(std::pair(1899900, 100u)));
  EXPECT_THAT(image.book().book("AAPL").asks, ElementsAre(std::pair(1900351, 200u)));
}

TEST(Snap, stands_behind_a_heartbeat_that_tells_of_lost_messages) {
  Played played(without(MadeFeed().opening().bids(1).heartbeat(), 1));
  const client::SnapImage image = played.sends_all().image();
  EXPECT_EQ(image.seq, 12u);
  EXPECT_EQ(image.stream_offset, played.feed.packets[1].header.stream_offset);
}

TEST(Snap, refuses_in_the_order_of_the_exchange) {
  Played played(MadeFeed().opening().bids(3));
  const client::SnapRequest good{.session_id = hand_made::SESSION};
  EXPECT_EQ(played.refusal(good), 'R');  // nothing has been sent yet
  played.sends(3);
  client::SnapRequest request = good;
  request.minimum_seq = 13;
  EXPECT_EQ(std::get<client::SnapImage>(played.asks_for_an_image(request)).seq, 13u);
  request.minimum_seq = 14;
  EXPECT_EQ(played.refusal(request), 'R');
  request.session_id = 1;
  EXPECT_EQ(played.refusal(request), 'S');
  request.channel_id = 2;
  EXPECT_EQ(played.refusal(request), 'C');
  request.name = "";
  EXPECT_EQ(played.refusal(request), 'A');
  request.name_padding = '\0';
  EXPECT_EQ(played.refusal(request), 'A');
  request.type = 'q';
  EXPECT_EQ(played.refusal(request), 'U');
  Bytes shorter = encode(good);
  shorter[0] = 56;
  shorter.pop_back();
  EXPECT_EQ(tools::answer_snap(shorter, played.round).error, 'U');
  request = good;
  request.trailing = Bytes(9, 1);
  EXPECT_NO_THROW((void)std::get<client::SnapImage>(played.asks_for_an_image(request)));
}

TEST(Snap, a_frame_is_whole_once_its_last_byte_has_come_and_never_if_its_length_is_0) {
  const Bytes request = encode(client::SnapRequest());
  for (size_t size = 0; size < request.size(); ++size) {
    EXPECT_FALSE(tools::whole_frame(client::ByteView(request).first(size))) << size;
  }
  EXPECT_TRUE(tools::whole_frame(request));
  EXPECT_FALSE(tools::whole_frame(Bytes(100, 0)));
}

TEST(Market, takes_no_message_that_the_exchange_does_not_send) {
  tools::Market market;
  EXPECT_TRUE(market.apply(hand_made::directory("AAPL")));
  EXPECT_FALSE(market.apply(client::to_bytes("Zebra")));
  EXPECT_FALSE(market.apply({}));
  EXPECT_EQ(market.image(1).size(), 7u);
}

}  // namespace
