#include "quorl/client/feed_subscriber.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/fake_feed.h"

namespace quorl::client {
namespace {

class FeedSubscriberTest : public testing::Test {
 protected:
  FakeFeed feed;
  FeedSubscriber subscriber{feed.ports().group, feed.ports().feed};
};

TEST_F(FeedSubscriberTest, messages_come_with_their_true_numbers_and_bytes) {
  feed.bid(1899900, 300);
  feed.bid(1899800, 100);
  feed.sends(feed.packet());
  feed.bid(1899700, 200);
  feed.sends(feed.packet(true));
  subscriber.await_seq(3);
  ASSERT_EQ(subscriber.messages().size(), 3u);
  EXPECT_EQ(subscriber.messages()[0].seq, 1u);
  EXPECT_EQ(subscriber.messages()[1].stream_offset, 32u);
  EXPECT_EQ(subscriber.messages()[2].seq, 3u);
  EXPECT_EQ(subscriber.packets()[1].packet.header.first_seq, 4u) << "as announced";
  EXPECT_EQ(subscriber.true_first_seq(subscriber.packets()[1]), 3u);
  EXPECT_EQ(subscriber.described(2), (std::vector<std::string>{"8 AAPL 200 @ 189.97 last"}));
  EXPECT_EQ(subscriber.messages()[2].bytes, hand_made::level({.size = 200, .price = 1899700}));
}

TEST_F(FeedSubscriberTest, numbers_in_doubt_behind_a_hole_are_settled_by_a_heartbeat) {
  feed.bid(1899900, 300);
  feed.sends(feed.packet());
  feed.bid(1899800, 300);
  feed.packet();  // lost
  feed.bid(1899700, 300);
  feed.sends(feed.packet());
  subscriber.await([this] { return subscriber.messages().size() == 2; }, "the second packet");
  EXPECT_EQ(subscriber.messages()[1].seq, 0u);
  feed.sends(feed.heartbeat());
  subscriber.await([this] { return subscriber.packets().size() == 3; }, "the heartbeat");
  EXPECT_TRUE(subscriber.packets()[2].packet.is_heartbeat());
  EXPECT_EQ(subscriber.messages()[1].seq, 3u);
}

TEST_F(FeedSubscriberTest, duplicates_are_recorded_as_they_come) {
  feed.bid(1899900, 300);
  const Bytes packet = feed.packet();
  feed.sends(packet);
  feed.sends(packet);
  subscriber.await([this] { return subscriber.packets().size() == 2; }, "both");
  EXPECT_EQ(subscriber.messages().size(), 2u);
  EXPECT_EQ(subscriber.messages()[1].seq, 1u);
}

TEST_F(FeedSubscriberTest, a_bad_packet_or_message_is_refused) {
  feed.bid(1899900, 300);
  Bytes packet = feed.packet();
  packet[43] = 7;  // the update's flags
  feed.sends(packet);
  EXPECT_THROW(subscriber.await_seq(1), WireError);
}

TEST_F(FeedSubscriberTest, packets_of_another_session_are_passed_over_only_ahead_of_the_run) {
  Bytes old_packet = feed.heartbeat();
  old_packet[8] = 1;
  feed.sends(old_packet);
  feed.bid(1899900, 300);
  feed.sends(feed.packet());
  subscriber.expect_session(hand_made::SESSION);
  subscriber.await_seq(1);
  EXPECT_EQ(subscriber.packets().size(), 1u);
  feed.sends(old_packet);
  EXPECT_THROW(subscriber.await_seq(2), WireError);
}

TEST_F(FeedSubscriberTest, what_does_not_come_is_a_time_out) {
  EXPECT_THROW(subscriber.await_seq(1, std::chrono::milliseconds(0)), Timeout);
}

TEST_F(FeedSubscriberTest, another_group_on_the_same_port_is_not_heard) {
  FeedSubscriber elsewhere("239.255.99.99", feed.ports().feed);
  feed.bid(1899900, 300);
  feed.sends(feed.packet());
  subscriber.await_seq(1);
  elsewhere.pump();
  EXPECT_TRUE(elsewhere.packets().empty());
}

}  // namespace
}  // namespace quorl::client
