#include "feed/gap_fill.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <utility>
#include <vector>

#include "base/sockets.h"
#include "feed/tp_publisher.h"
#include "support/inside.h"
#include "support/test_clock.h"
#include "support/udp_inbox.h"

namespace quorl {
namespace {

using test::Bytes;
using test::hex;
using test::joined;
using test::next_fd;
using test::Packet;
using test::packets_of;
using test::ReservedUdpPort;
using test::SESSION;
using test::UdpInbox;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

using Ranges = std::vector<std::pair<uint64_t, uint64_t>>;

void put(Bytes& bytes, uint64_t number, size_t width) {
  for (size_t i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
}

/// What a well-behaved subscriber sends; each test changes one thing.
struct Request {
  uint8_t version = 1;
  uint8_t kind = 1;
  uint16_t protocol = 0x8004;
  uint32_t channel = 1;
  uint32_t session = SESSION;
  Ranges ranges = {};
  std::optional<uint32_t> count = std::nullopt;  // if it is not the number of ranges

  Bytes datagram() const {
    Bytes bytes = {version, kind};
    put(bytes, protocol, 2);
    put(bytes, channel, 4);
    put(bytes, session, 4);
    put(bytes, count ? *count : ranges.size(), 4);
    for (const auto& [first, last] : ranges) {
      put(bytes, first, 8);
      put(bytes, last, 8);
    }
    return bytes;
  }
};

bool parses(const Bytes& datagram) {
  GapRequest request;
  return parse_gap_request(datagram.data(), datagram.size(), request);
}

bool parses(const Ranges& ranges) { return parses(Request{.ranges = ranges}.datagram()); }

// --- parse_gap_request ---

TEST(GapRequest, every_field_is_read_at_its_offset) {
  const Bytes datagram =
      hex("01 02 34 12 78 56 34 12 EF CD AB 89 02 00 00 00"
          "05 00 00 00 00 00 00 00 09 00 00 00 00 00 00 00"
          "0A 00 00 00 00 00 00 00 08 07 06 05 04 03 02 01");
  GapRequest request;
  ASSERT_TRUE(parse_gap_request(datagram.data(), datagram.size(), request));
  EXPECT_EQ(request.kind, 2);
  EXPECT_EQ(request.protocol_id, 0x1234);
  EXPECT_EQ(request.channel_id, 0x12345678u);
  EXPECT_EQ(request.session_id, 0x89ABCDEFu);
  EXPECT_THAT(request.ranges, ElementsAre(Pair(5, 9), Pair(10, 0x0102030405060708)));
}

TEST(GapRequest, a_record_used_before_keeps_no_ranges_of_the_last_request) {
  GapRequest request;
  const Bytes first = Request{.ranges = {{1, 2}, {4, 5}}}.datagram();
  ASSERT_TRUE(parse_gap_request(first.data(), first.size(), request));
  const Bytes second = Request{.ranges = {{1, 1}}}.datagram();
  ASSERT_TRUE(parse_gap_request(second.data(), second.size(), request));
  EXPECT_THAT(request.ranges, ElementsAre(Pair(1, 1)));
}

TEST(GapRequest, sixteen_bytes_are_the_shortest_request) {
  Bytes datagram = Request{}.datagram();
  ASSERT_THAT(datagram, SizeIs(16));
  EXPECT_TRUE(parses(datagram));
  datagram.pop_back();
  EXPECT_FALSE(parses(datagram));
  EXPECT_FALSE(parses(Bytes{}));
  EXPECT_FALSE(parses(Bytes{1}));
}

TEST(GapRequest, only_version_1_is_read) {
  EXPECT_FALSE(parses(Request{.version = 0}.datagram()));
  EXPECT_FALSE(parses(Request{.version = 2}.datagram()));
}

TEST(GapRequest, kinds_1_and_2_are_well_formed_and_no_others) {
  EXPECT_FALSE(parses(Request{.kind = 0}.datagram()));
  EXPECT_TRUE(parses(Request{.kind = 1}.datagram()));
  EXPECT_TRUE(parses(Request{.kind = 2}.datagram()));
  EXPECT_FALSE(parses(Request{.kind = 3}.datagram()));
}

TEST(GapRequest, protocol_channel_and_session_are_left_to_the_service) {
  EXPECT_TRUE(parses(Request{.protocol = 1, .channel = 2, .session = 3}.datagram()));
}

TEST(GapRequest, the_datagram_must_hold_all_its_ranges) {
  EXPECT_TRUE(parses(Request{.ranges = {{1, 1}, {3, 3}}, .count = 2}.datagram()));
  EXPECT_FALSE(parses(Request{.ranges = {{1, 1}, {3, 3}}, .count = 3}.datagram()));
  Bytes one_short = Request{.ranges = {{1, 1}}}.datagram();
  one_short.pop_back();
  EXPECT_FALSE(parses(one_short));
}

TEST(GapRequest, a_count_that_would_wrap_in_32_bits_is_refused) {
  EXPECT_FALSE(parses(Request{.ranges = {{1, 1}}, .count = 0xFFFFFFFF}.datagram()));
  EXPECT_FALSE(parses(Request{.ranges = {{1, 1}}, .count = 0x10000000}.datagram()));
}

TEST(GapRequest, one_that_counts_too_many_ranges_is_refused_before_any_range_is_read) {
  const Bytes datagram =
      Request{.ranges = {{1, 1}, {3, 3}, {5, 5}}, .count = 0xFFFFFFFF}.datagram();
  GapRequest request;
  EXPECT_FALSE(parse_gap_request(datagram.data(), 32, request));
  EXPECT_THAT(request.ranges, IsEmpty());
}

TEST(GapRequest, bytes_behind_the_last_range_are_ignored) {
  EXPECT_TRUE(parses(joined({Request{.ranges = {{1, 1}}}.datagram(), hex("FF FF FF FF FF")})));
  EXPECT_TRUE(parses(Request{.ranges = {{9, 1}}, .count = 0}.datagram()));
}

TEST(GapRequest, a_range_may_hold_one_number_and_must_not_run_backwards) {
  EXPECT_TRUE(parses(Ranges{{7, 7}}));
  EXPECT_FALSE(parses(Ranges{{8, 7}}));
  EXPECT_FALSE(parses(Ranges{{1, 2}, {8, 7}}));
}

TEST(GapRequest, ranges_ascend_and_neither_touch_nor_overlap) {
  EXPECT_TRUE(parses(Ranges{{5, 9}, {10, 12}}));
  EXPECT_FALSE(parses(Ranges{{5, 9}, {9, 12}}));
  EXPECT_FALSE(parses(Ranges{{5, 9}, {1, 3}}));
  EXPECT_FALSE(parses(Ranges{{5, 9}, {20, 30}, {30, 31}}));
  EXPECT_FALSE(parses(Ranges{{0, UINT64_MAX}, {0, UINT64_MAX}}));
}

// --- The port ---

bool is_open(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

TEST(GapFillPort, that_is_0_means_none_and_opens_nothing) {
  const int fd = next_fd();
  EXPECT_EQ(open_gap_fill_port(0), -1);
  EXPECT_FALSE(is_open(fd));
}

TEST(GapFillPort, is_bound_to_every_address_and_does_not_block) {
  const ReservedUdpPort port;
  const int fd = open_gap_fill_port(port.number());
  ASSERT_GE(fd, 0);
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  EXPECT_EQ(0, ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size));
  EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_ANY));
  EXPECT_EQ(address.sin_port, htons(port.number()));
  ::close(fd);
}

TEST(GapFillPort, that_is_taken_is_reported_and_there_is_none) {
  ReservedUdpPort port;
  port.refuse_sharing();
  const int fd = next_fd();
  CaptureStderr();
  EXPECT_EQ(open_gap_fill_port(port.number()), -1);
  EXPECT_EQ(GetCapturedStderr(), "quorl: gap-fill port: Address already in use\n");
  EXPECT_FALSE(is_open(fd));
}

TEST(GapFillPort, that_another_holder_shares_is_ours_too) {
  const ReservedUdpPort port;
  CaptureStderr();
  const int fd = open_gap_fill_port(port.number());
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_GE(fd, 0);
  ::close(fd);
}

// --- The service ---

/// A publisher with a gap-fill port, whose feed and whose replies come to the same inbox.
struct Feed {
  Feed() {
    test::reset_clocks();
    gap_port = reserved->number();
    reserved.reset();
  }

  void append(const Bytes& message) { publisher.append(message.data(), message.size()); }

  /// `count` messages of `size` bytes, flushed, that count as seen.
  void publish(int count, size_t size = 30) {
    for (int i = 0; i < count; ++i) append(Bytes(size, 'm'));
    publisher.flush_if_pending();
    inbox.take();
  }

  /// Empty messages, until no more than these first ones are no longer kept.
  void publish_until_evicted(uint64_t messages) {
    while (publisher.last_seq() + 1000 <= MAX_RETAINED_MESSAGES) publish(1000, 0);
    while (publisher.oldest_retained_seq() <= messages) publish(1, 0);
  }

  /// The replies to one request, served within one turn.
  std::vector<Bytes> replies_to(const Request& request) {
    inbox.send(request.datagram(), gap_port);
    gap_fill.serve();
    return inbox.take();
  }
  std::vector<Packet> packets_for(const Ranges& ranges) {
    return packets_of(replies_to({.ranges = ranges}));
  }

  test::PublisherState state() const { return test::state_of(publisher); }

  UdpInbox inbox;
  std::optional<ReservedUdpPort> reserved{std::in_place};
  uint16_t gap_port = 0;
  TpPublisher publisher{"127.0.0.1", inbox.port(), "127.0.0.1", SESSION};
  OwnedSocket socket;
  GapFill gap_fill{publisher, socket.fd = open_gap_fill_port(reserved->number())};
};

std::vector<uint64_t> counts_of(const std::vector<Packet>& packets) {
  std::vector<uint64_t> counts;
  for (const Packet& packet : packets) counts.push_back(packet.message_count);
  return counts;
}

uint64_t messages_in(const std::vector<Packet>& packets) {
  uint64_t sum = 0;
  for (const Packet& packet : packets) sum += packet.message_count;
  return sum;
}

TEST(GapFill, a_reply_byte_by_byte) {
  Feed feed;
  feed.append(hex("0A"));
  feed.append(hex("0B 0C"));
  feed.append(hex("0D"));
  feed.publisher.flush();
  feed.inbox.take();
  test::set_system_ns(0x0807060504030201);
  EXPECT_THAT(feed.replies_to({.ranges = {{2, 3}}}),
              ElementsAre(hex("01 00 04 80 01 00 00 00 44 33 22 11 07 00 02 00"
                              "03 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00"
                              "01 02 03 04 05 06 07 08"
                              "02 00 0B 0C 01 00 0D")));
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
  EXPECT_EQ(feed.gap_fill.counts().messages, 2u);
  EXPECT_EQ(feed.gap_fill.counts().rejects, 0u);
}

TEST(GapFill, a_request_without_ranges_is_answered_with_the_state_of_the_feed) {
  Feed feed;
  feed.append(hex("0A"));
  feed.append(hex("0B"));
  feed.publisher.flush();
  feed.append(hex("0C"));  // waits in the packet: its number is given out, its bytes are not
  feed.inbox.take();
  test::set_system_ns(0x0807060504030201);
  EXPECT_THAT(feed.replies_to({}), ElementsAre(hex("01 00 04 80 01 00 00 00 44 33 22 11 00 00 00 00"
                                                   "06 00 00 00 00 00 00 00 04 00 00 00 00 00 00 00"
                                                   "01 02 03 04 05 06 07 08")));
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
  EXPECT_EQ(feed.gap_fill.counts().messages, 0u);
}

TEST(GapFill, kind_2_is_refused_though_it_is_well_formed) {
  Feed feed;
  feed.publish(3);
  EXPECT_THAT(feed.replies_to({.kind = 2, .ranges = {{1, 3}}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 1u);
  EXPECT_EQ(feed.gap_fill.counts().requests, 0u);
}

TEST(GapFill, a_foreign_protocol_channel_or_session_is_refused_in_silence) {
  Feed feed;
  feed.publish(3);
  EXPECT_THAT(feed.replies_to({.protocol = 0x8003, .ranges = {{1, 3}}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 1u);
  EXPECT_THAT(feed.replies_to({.channel = 2, .ranges = {{1, 3}}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 2u);
  EXPECT_THAT(feed.replies_to({.session = SESSION + 1, .ranges = {{1, 3}}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 3u);
  EXPECT_THAT(feed.replies_to({.session = SESSION + 1}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 4u);
  EXPECT_EQ(feed.gap_fill.counts().requests, 0u);
}

TEST(GapFill, a_malformed_datagram_is_refused_and_the_next_is_served_in_the_same_turn) {
  Feed feed;
  feed.publish(3);
  feed.inbox.send(Bytes(15, 1), feed.gap_port);
  feed.inbox.send(Request{.ranges = {{1, 1}}, .count = 2}.datagram(), feed.gap_port);
  EXPECT_THAT(feed.replies_to({.ranges = {{1, 3}}}), SizeIs(1));
  EXPECT_EQ(feed.gap_fill.counts().rejects, 2u);
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
}

TEST(GapFill, a_single_byte_is_a_refused_request_and_the_service_of_the_turn_goes_on) {
  Feed feed;
  feed.publish(3);
  for (const char* byte : {"00", "01", "FF"}) feed.inbox.send(hex(byte), feed.gap_port);
  EXPECT_THAT(feed.replies_to({.ranges = {{1, 3}}}), SizeIs(1));
  EXPECT_EQ(feed.gap_fill.counts().rejects, 3u);
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
}

TEST(GapFill, one_bad_range_refuses_the_whole_request) {
  Feed feed;
  feed.publish(12);
  EXPECT_THAT(feed.packets_for({{5, 9}, {9, 12}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 1u);
  EXPECT_EQ(feed.gap_fill.counts().messages, 0u);
}

TEST(GapFill, neighbouring_ranges_are_accepted_and_each_begins_a_packet_of_its_own) {
  Feed feed;
  feed.publish(12);
  const auto packets = feed.packets_for({{5, 9}, {10, 12}});
  ASSERT_THAT(packets, SizeIs(2));
  EXPECT_EQ(packets[0].first_seq, 5u);
  EXPECT_EQ(packets[0].message_count, 5u);
  EXPECT_EQ(packets[1].first_seq, 10u);
  EXPECT_EQ(packets[1].message_count, 3u);
}

TEST(GapFill, bytes_behind_the_ranges_do_not_spoil_a_request) {
  Feed feed;
  feed.publish(3);
  feed.inbox.send(joined({Request{.ranges = {{1, 3}}}.datagram(), hex("01 02 03 04 05")}),
                  feed.gap_port);
  feed.gap_fill.serve();
  EXPECT_EQ(messages_in(packets_of(feed.inbox.take())), 3u);
}

TEST(GapFill, updates_of_30_bytes_go_45_to_a_packet) {
  Feed feed;
  feed.publish(100);
  const auto packets = feed.packets_for({{1, 100}});
  EXPECT_THAT(counts_of(packets), ElementsAre(45, 45, 10));
  EXPECT_EQ(packets[0].size, 1480u);
  EXPECT_EQ(packets[1].first_seq, 46u);
  EXPECT_EQ(packets[1].stream_offset, 45u * 32);
  EXPECT_EQ(packets[2].first_seq, 91u);
  EXPECT_EQ(packets[2].stream_offset, 90u * 32);
  EXPECT_EQ(packets[2].payload_length, 320u);
}

TEST(GapFill, a_reply_is_filled_to_byte_1500_and_no_further) {
  Feed feed;
  feed.publish(1, 100);
  feed.publish(1, 1356);  // 40 + 102 + 1358 = 1500
  feed.publish(1, 100);
  feed.publish(1, 1357);  // one more
  auto packets = feed.packets_for({{1, 2}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].size, 1500u);
  EXPECT_THAT(counts_of(feed.packets_for({{3, 4}})), ElementsAre(1, 1));
}

TEST(GapFill, a_request_is_cut_at_1000_messages) {
  Feed feed;
  feed.publish(1000);
  feed.publish(1000);
  feed.publish(1000);
  const auto packets = feed.packets_for({{1, 5000}});
  EXPECT_EQ(messages_in(packets), 1000u);
  EXPECT_EQ(packets.front().first_seq, 1u);
  EXPECT_EQ(packets.back().first_seq + packets.back().message_count, 1001u);
  EXPECT_EQ(feed.gap_fill.counts().messages, 1000u);

  // The budget is the request's: the next one begins anew.
  EXPECT_EQ(messages_in(feed.packets_for({{1001, 5000}})), 1000u);
}

TEST(GapFill, the_budget_holds_across_all_ranges_of_a_request) {
  Feed feed;
  feed.publish(1000);
  feed.publish(1000);
  const auto packets = feed.packets_for({{1, 800}, {801, 1600}, {1700, 1701}});
  ASSERT_THAT(packets, SizeIs(18 + 5));
  EXPECT_EQ(packets[17].first_seq + packets[17].message_count, 801u);
  EXPECT_EQ(packets[18].first_seq, 801u);
  EXPECT_EQ(packets[22].first_seq + packets[22].message_count, 1001u);
  EXPECT_EQ(messages_in(packets), 1000u);
}

TEST(GapFill, exactly_1000_messages_are_no_cut) {
  Feed feed;
  feed.publish(1000);
  feed.publish(10);
  EXPECT_EQ(messages_in(feed.packets_for({{3, 1002}})), 1000u);
}

TEST(GapFill, a_range_is_clipped_to_what_has_been_given_out) {
  Feed feed;
  feed.publish(10);
  const auto packets = feed.packets_for({{0, UINT64_MAX}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].first_seq, 1u);
  EXPECT_EQ(packets[0].message_count, 10u);
}

TEST(GapFill, a_range_wholly_in_the_future_is_left_out_without_a_word) {
  Feed feed;
  feed.publish(10);
  const auto packets = feed.packets_for({{9, 10}, {11, 20}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].first_seq, 9u);
  EXPECT_THAT(feed.packets_for({{11, 20}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().requests, 2u);
  EXPECT_EQ(feed.gap_fill.counts().rejects, 0u);
}

TEST(GapFill, after_an_eviction_a_spanning_request_begins_at_the_oldest_kept) {
  Feed feed;
  feed.publish(10);
  feed.publish_until_evicted(4);
  const auto packets = feed.packets_for({{1, 7}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].first_seq, 5u);
  EXPECT_EQ(packets[0].message_count, 3u);
  EXPECT_EQ(packets[0].stream_offset, 4u * 32);
}

TEST(GapFill, a_request_for_evicted_messages_alone_gets_no_reply_at_all) {
  Feed feed;
  feed.publish(10);
  feed.publish_until_evicted(4);
  EXPECT_THAT(feed.packets_for({{1, 4}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
}

TEST(GapFill, before_the_first_message_there_is_nothing_to_replay) {
  Feed feed;
  EXPECT_THAT(feed.packets_for({{0, UINT64_MAX}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
}

TEST(GapFill, a_message_that_still_waits_can_be_replayed_before_its_multicast) {
  Feed feed;
  feed.publish(2);
  feed.append(hex("AA BB"));
  const auto packets = feed.packets_for({{3, 3}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_THAT(packets[0].messages, ElementsAre(hex("AA BB")));
  EXPECT_EQ(packets[0].stream_offset, 64u);
}

TEST(GapFill, the_packet_under_assembly_and_the_counts_of_the_feed_stay_untouched) {
  Feed feed;
  feed.publish(2);
  feed.append(hex("AA BB"));
  feed.packets_for({{1, 3}});
  EXPECT_EQ(feed.state().packet_size, 44u);
  EXPECT_EQ(feed.state().waiting, 1u);
  EXPECT_EQ(feed.state().next_seq, 4u);
  EXPECT_EQ(feed.state().packets, 1u);
  EXPECT_EQ(feed.state().messages, 3u);
  EXPECT_EQ(feed.state().last_flush_ms, test::START_STEADY_MS);
  feed.publisher.flush();
  const auto packets = packets_of(feed.inbox.take());
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].first_seq, 3u);
  EXPECT_THAT(packets[0].messages, ElementsAre(hex("AA BB")));
}

TEST(GapFill, faults_do_not_touch_replies) {
  Feed feed;
  feed.publish(2);
  feed.publisher.faults = {.drop_every = 1, .drop_next = 1, .dup_next = 1, .reorder_next = 1};
  CaptureStderr();
  EXPECT_THAT(feed.packets_for({{1, 2}}), SizeIs(1));
  EXPECT_EQ(GetCapturedStderr(), "");
  EXPECT_EQ(feed.publisher.faults.drop_next, 1u);
}

TEST(GapFill, what_a_fault_took_can_be_fetched) {
  Feed feed;
  feed.publisher.faults.drop_next = 1;
  CaptureStderr();
  feed.append(hex("01"));
  feed.append(hex("02"));
  feed.publisher.flush();
  GetCapturedStderr();
  EXPECT_THAT(feed.inbox.take(), IsEmpty());
  const auto packets = feed.packets_for({{1, 2}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_THAT(packets[0].messages, ElementsAre(hex("01"), hex("02")));
}

TEST(GapFill, shows_the_true_number_and_offset_of_a_message_whose_packet_was_announced_too_high) {
  Feed feed;
  feed.append(Bytes(1400, 'a'));
  feed.append(Bytes(1000, 'b'));
  feed.append(Bytes(100, 'c'));
  feed.publisher.flush();
  const auto multicast = packets_of(feed.inbox.take());
  ASSERT_THAT(multicast, SizeIs(2));
  EXPECT_EQ(multicast[1].first_seq, 3u);

  const auto packets = feed.packets_for({{2, 3}});
  ASSERT_THAT(packets, SizeIs(1));
  EXPECT_EQ(packets[0].first_seq, 2u);
  EXPECT_EQ(packets[0].stream_offset, multicast[1].stream_offset);
  EXPECT_EQ(packets[0].messages, multicast[1].messages);
}

TEST(GapFill, a_message_too_large_for_any_packet_does_not_stop_those_around_it) {
  Feed feed;
  feed.append(hex("01"));
  feed.append(Bytes(1459, 'x'));
  feed.append(hex("03"));
  feed.publisher.flush();
  feed.inbox.take();
  std::vector<Bytes> messages;
  for (const Packet& packet : feed.packets_for({{1, 3}})) {
    messages.insert(messages.end(), packet.messages.begin(), packet.messages.end());
  }
  EXPECT_THAT(messages, ElementsAre(hex("01"), hex("03")));
}

TEST(GapFill, replies_go_to_the_address_each_request_came_from) {
  Feed feed;
  UdpInbox other;
  feed.publish(5);
  other.send(Request{.ranges = {{4, 4}}}.datagram(), feed.gap_port);
  feed.inbox.send(Request{.ranges = {{2, 2}}}.datagram(), feed.gap_port);
  feed.gap_fill.serve();
  const auto ours = packets_of(feed.inbox.take());
  const auto theirs = packets_of(other.take());
  ASSERT_THAT(ours, SizeIs(1));
  ASSERT_THAT(theirs, SizeIs(1));
  EXPECT_EQ(ours[0].first_seq, 2u);
  EXPECT_EQ(theirs[0].first_seq, 4u);
}

TEST(GapFill, all_that_waits_is_served_in_one_turn) {
  Feed feed;
  feed.publish(5);
  for (int i = 0; i < 20; ++i) feed.inbox.send(Request{}.datagram(), feed.gap_port);
  feed.gap_fill.serve();
  EXPECT_EQ(feed.gap_fill.counts().requests, 20u);
}

TEST(GapFill, an_empty_datagram_ends_the_service_of_the_turn_and_counts_as_nothing) {
  Feed feed;
  feed.publish(5);
  feed.inbox.send({}, feed.gap_port);
  EXPECT_THAT(feed.packets_for({{1, 1}}), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 0u);
  EXPECT_EQ(feed.gap_fill.counts().requests, 0u);
  feed.gap_fill.serve();
  EXPECT_THAT(feed.inbox.take(), SizeIs(1));
  EXPECT_EQ(feed.gap_fill.counts().requests, 1u);
}

TEST(GapFill, a_datagram_is_cut_at_2048_bytes_which_hold_127_ranges) {
  Feed feed;
  feed.publish(300);
  Request request;
  for (uint64_t i = 0; i < 127; ++i) request.ranges.emplace_back(2 * i + 1, 2 * i + 1);
  ASSERT_THAT(request.datagram(), SizeIs(2048));
  EXPECT_EQ(messages_in(packets_of(feed.replies_to(request))), 127u);

  request.ranges.emplace_back(299, 300);
  EXPECT_THAT(feed.replies_to(request), IsEmpty());
  EXPECT_EQ(feed.gap_fill.counts().rejects, 1u);

  request.count = 127;  // the range behind them is junk now
  EXPECT_EQ(messages_in(packets_of(feed.replies_to(request))), 127u);
}

TEST(GapFill, without_a_socket_nothing_happens) {
  UdpInbox inbox;
  const TpPublisher publisher("127.0.0.1", inbox.port(), "127.0.0.1", SESSION);
  GapFill gap_fill(publisher, -1);
  gap_fill.serve();
  EXPECT_EQ(gap_fill.counts().requests + gap_fill.counts().rejects, 0u);
  EXPECT_THAT(inbox.take(), IsEmpty());
}

TEST(GapFill, with_no_request_the_service_returns_at_once) {
  Feed feed;
  feed.publish(5);
  feed.gap_fill.serve();
  EXPECT_EQ(feed.gap_fill.counts().requests + feed.gap_fill.counts().rejects, 0u);
}

}  // namespace
}  // namespace quorl
