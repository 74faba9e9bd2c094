#include "quorl/client/gap_fill_client.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "quorl/client/errors.h"
#include "tests/client/fake_feed.h"

namespace quorl::client {
namespace {

using hand_made::SESSION;

TEST(GapFillRequest, its_bytes_are_as_told) {
  const Bytes wanted = {1,  1, 0x04, 0x80, 1, 0, 0, 0, 77, 0, 0, 0, 2, 0, 0, 0,
                        5,  0, 0,    0,    0, 0, 0, 0, 9,  0, 0, 0, 0, 0, 0, 0,
                        10, 0, 0,    0,    0, 0, 0, 0, 1,  1, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(encode(GapFillRequest{.session_id = 77, .ranges = {{5, 9}, {10, 257}}}), wanted);
}

TEST(GapFillRequest, every_field_can_be_set_wrong) {
  const Bytes bytes = encode(GapFillRequest{.version = 2,
                                            .kind = 3,
                                            .protocol_id = 0x0201,
                                            .channel_id = 9,
                                            .range_count = 0xffffffff,
                                            .trailing = {7}});
  EXPECT_EQ(bytes, (Bytes{2, 3, 1, 2, 9, 0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255, 7}));
}

class GapFillClientTest : public testing::Test {
 protected:
  void publish(int count) {
    for (int i = 0; i < count; ++i) {
      feed.bid(1000 + i, 300);
      feed.packet();
    }
  }

  FakeFeed feed;
  GapFillClient client{feed.ports().gap_fill, SESSION};
};

TEST_F(GapFillClientTest, an_answer_is_numbered_message_by_message) {
  publish(100);
  const GapFillAnswer answer = client.fetch({{5, 60}});
  EXPECT_EQ(answer.packets.size(), 2u);
  EXPECT_EQ(answer.messages.size(), 56u);
  EXPECT_EQ(answer.messages.begin()->first, 5u);
  EXPECT_EQ(answer.messages.at(60).stream_offset, 59u * 32);
  EXPECT_EQ(answer.next_seq, 101u);
}

TEST_F(GapFillClientTest, fetching_all_takes_as_many_requests_as_needed) {
  publish(2500);
  EXPECT_EQ(client.fetch({{1, 2500}}).messages.size(), 1000u);
  EXPECT_EQ(client.fetch_all(1, 2500).size(), 2500u);
  feed.forgets_below(2001);
  EXPECT_EQ(client.fetch_all(1, 9999).size(), 500u);
}

TEST_F(GapFillClientTest, the_status_tells_the_exchanges_place) {
  publish(3);
  EXPECT_EQ(client.status().next_seq, 4u);
  EXPECT_EQ(client.status().stream_offset, 96u);
  EXPECT_TRUE(client.fetch({}).packets.empty());
}

/// Answers one request by given packets and the status query by an empty one.
GapFillAnswer answered_by(const std::vector<Bytes>& packets, const std::vector<SeqRange>& ranges) {
  UdpSocket service = UdpSocket::on_loopback();
  std::thread server([&] {
    for (int request = 0; request < 2; ++request) {
      const auto datagram = service.receive(Deadline::after(PATIENCE));
      if (!datagram) return;
      if (request == 1)
        service.send_to(datagram->from_port, encode_tp_packet(hand_made::header(0, 100), {}));
      if (request == 0) {
        for (const Bytes& packet : packets) service.send_to(datagram->from_port, packet);
      }
    }
  });
  GapFillClient client(service.port(), SESSION);
  try {
    GapFillAnswer answer = client.fetch(ranges);
    server.join();
    return answer;
  } catch (...) {
    server.join();
    throw;
  }
}

Bytes updates(uint64_t offset, uint64_t first, size_t count) {
  return encode_tp_packet(hand_made::header(offset, first),
                          std::vector<Bytes>(count, hand_made::level({})));
}

TEST(GapFillAnswer, two_ranges_are_told_apart) {
  const GapFillAnswer answer =
      answered_by({updates(0, 5, 2), updates(640, 20, 1)}, {{5, 6}, {20, 20}});
  EXPECT_EQ(answer.messages.size(), 3u);
}

TEST(GapFillAnswer, ranges_that_follow_on_from_each_other_keep_their_own_packets) {
  EXPECT_EQ(answered_by({updates(0, 5, 2), updates(64, 7, 1)}, {{5, 6}, {7, 9}}).messages.size(),
            3u);
}

TEST(GapFillAnswer, a_range_may_begin_later_than_asked_where_the_history_begins) {
  EXPECT_EQ(answered_by({updates(640, 8, 2)}, {{1, 9}}).messages.size(), 2u);
}

TEST(GapFillAnswer, messages_that_were_not_asked_for_are_refused) {
  EXPECT_THROW(answered_by({updates(0, 4, 1)}, {{5, 9}}), WireError);
  EXPECT_THROW(answered_by({updates(0, 9, 2)}, {{5, 9}}), WireError);
  EXPECT_THROW(answered_by({updates(0, 7, 1)}, {{5, 6}, {8, 9}}), WireError);
}

TEST(GapFillAnswer, a_range_that_jumps_or_comes_twice_is_refused) {
  EXPECT_THROW(answered_by({updates(0, 5, 2), updates(96, 8, 1)}, {{5, 9}}), WireError);
  EXPECT_THROW(answered_by({updates(0, 5, 2), updates(0, 5, 2)}, {{5, 9}}), WireError);
}

TEST(GapFillAnswer, a_packet_that_had_room_for_more_is_refused) {
  EXPECT_NO_THROW(answered_by({updates(0, 1, 45), updates(45 * 32, 46, 5)}, {{1, 50}}));
  EXPECT_THROW(answered_by({updates(0, 1, 44), updates(44 * 32, 45, 6)}, {{1, 50}}), WireError);
}

TEST(GapFillAnswer, an_offset_that_does_not_follow_on_is_refused) {
  EXPECT_THROW(answered_by({updates(0, 1, 45), updates(45 * 32 + 1, 46, 5)}, {{1, 50}}), WireError);
}

TEST(GapFillAnswer, a_service_that_is_silent_is_a_time_out) {
  const UdpSocket silent = UdpSocket::on_loopback();
  GapFillClient client(silent.port(), SESSION);
  EXPECT_THROW(client.status(std::chrono::milliseconds(0)), Timeout);
}

}  // namespace
}  // namespace quorl::client
