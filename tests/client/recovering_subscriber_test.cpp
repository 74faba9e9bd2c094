#include "quorl/client/recovering_subscriber.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/fake_feed.h"

namespace quorl::client {
namespace {

class RecoveringSubscriberTest : public testing::Test {
 protected:
  /// A packet of `count` level updates, each at a price of its own.
  Bytes packet_of(int count, bool announced_high = false) {
    for (int i = 0; i < count; ++i) feed.bid(next_price += 100, 300);
    return feed.packet(announced_high);
  }

  void expect_complete() {
    subscriber.await_seq(feed.next_seq() - 1);
    EXPECT_EQ(subscriber.messages().size(), feed.next_seq() - 1);
    EXPECT_EQ(subscriber.book().book("AAPL").bids.size(), feed.next_seq() - 1);
  }

  FakeFeed feed;
  RecoveringSubscriber subscriber{feed.ports()};
  int64_t next_price = 1000000;
};

TEST_F(RecoveringSubscriberTest, a_feed_without_holes_asks_for_nothing) {
  subscriber.follow_from_start();
  for (int i = 0; i < 10; ++i) feed.sends(packet_of(3));
  expect_complete();
  EXPECT_EQ(subscriber.counters().fills, 0u);
  EXPECT_EQ(subscriber.counters().holes, 0u);
}

TEST_F(RecoveringSubscriberTest, a_lost_packet_is_fetched_by_gap_fill) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  packet_of(5);
  feed.sends(packet_of(2));
  expect_complete();
  EXPECT_EQ(subscriber.counters().holes, 1u);
  EXPECT_EQ(subscriber.counters().fills, 1u);
  EXPECT_EQ(subscriber.counters().filled, 5u);
}

TEST_F(RecoveringSubscriberTest, the_first_packet_can_be_the_lost_one) {
  subscriber.follow_from_start();
  packet_of(5);
  feed.sends(packet_of(2));
  expect_complete();
}

TEST_F(RecoveringSubscriberTest, a_loss_at_the_end_shows_by_the_heartbeat) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  packet_of(5);
  feed.sends(feed.heartbeat());
  expect_complete();
}

TEST_F(RecoveringSubscriberTest, a_number_announced_too_high_misleads_nobody) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  feed.sends(packet_of(4, true));
  feed.sends(packet_of(2));
  expect_complete();
  EXPECT_EQ(subscriber.counters().announced_high, 1u);
  EXPECT_EQ(subscriber.counters().holes, 0u);
}

TEST_F(RecoveringSubscriberTest, a_hole_in_front_of_a_number_announced_too_high_is_filled) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  packet_of(4);
  feed.sends(packet_of(2, true));
  expect_complete();
  EXPECT_EQ(subscriber.counters().announced_high, 1u);
}

TEST_F(RecoveringSubscriberTest, a_lost_packet_announced_too_high_is_filled) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  packet_of(4, true);
  feed.sends(packet_of(2));
  expect_complete();
}

TEST_F(RecoveringSubscriberTest, packets_out_of_order_are_put_back_in_their_place) {
  subscriber.follow_from_start();
  const Bytes first = packet_of(3);
  const Bytes held = packet_of(4);
  const Bytes next = packet_of(2);
  feed.sends(first);
  feed.sends(next);
  feed.sends(held);
  expect_complete();
  // On a machine so busy that the one held back came too late, it came as a duplicate.
  EXPECT_EQ(subscriber.counters().out_of_order + subscriber.counters().duplicates, 1u);
}

TEST_F(RecoveringSubscriberTest, duplicates_are_discarded) {
  subscriber.follow_from_start();
  const Bytes packet = packet_of(3);
  feed.sends(packet);
  feed.sends(packet);
  feed.sends(packet_of(1));
  expect_complete();
  EXPECT_EQ(subscriber.counters().duplicates, 1u);
}

TEST_F(RecoveringSubscriberTest, a_duplicate_that_differs_is_refused) {
  subscriber.follow_from_start();
  Bytes packet = packet_of(3);
  feed.sends(packet);
  subscriber.await_seq(3);
  packet.back() ^= 1;
  feed.sends(packet);
  EXPECT_THROW(subscriber.run_until([] { return false; }), WireError);
}

TEST_F(RecoveringSubscriberTest, a_number_that_is_neither_true_nor_one_too_high_is_refused) {
  subscriber.follow_from_start();
  Bytes packet = packet_of(3);
  packet[24] = 3;
  feed.sends(packet);
  EXPECT_THROW(subscriber.run_until([] { return false; }), WireError);
}

TEST_F(RecoveringSubscriberTest, a_hole_of_thousands_takes_requests_of_a_thousand_each) {
  subscriber.follow_from_start();
  for (int i = 0; i < 100; ++i) packet_of(25);
  feed.sends(packet_of(1));
  expect_complete();
  EXPECT_EQ(subscriber.counters().fills, 3u);
  EXPECT_EQ(subscriber.counters().filled, 2500u);
}

TEST_F(RecoveringSubscriberTest, a_history_that_no_longer_reaches_is_replaced_by_an_image) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  subscriber.await_seq(3);
  packet_of(5);
  feed.forgets_below(7);
  feed.sends(packet_of(2));
  subscriber.await_seq(10);
  EXPECT_EQ(subscriber.counters().images, 1u);
  ASSERT_EQ(subscriber.skipped().size(), 1u);
  EXPECT_EQ(subscriber.skipped()[0].first, 4u);
  EXPECT_EQ(subscriber.skipped()[0].last, 10u);
  EXPECT_EQ(subscriber.book().book("AAPL").bids.size(), 10u);
  feed.sends(packet_of(2));
  subscriber.await_seq(12);
  EXPECT_EQ(subscriber.book().book("AAPL").bids.size(), 12u);
}

TEST_F(RecoveringSubscriberTest, whoever_joins_late_begins_with_an_image) {
  packet_of(5);
  feed.sends(packet_of(2));
  subscriber.join_late();
  EXPECT_EQ(subscriber.next_seq(), 8u);
  EXPECT_EQ(subscriber.book().book("AAPL").bids.size(), 7u);
  feed.sends(packet_of(2));
  subscriber.await_seq(9);
  EXPECT_EQ(subscriber.messages().size(), 2u);
}

TEST_F(RecoveringSubscriberTest, an_image_may_stand_inside_a_packet_still_under_assembly) {
  feed.sends(feed.heartbeat());
  feed.bid(1000, 300);
  feed.bid(1100, 300);
  subscriber.join_late();
  EXPECT_EQ(subscriber.next_seq(), 3u);
  feed.bid(1200, 300);
  feed.sends(feed.packet());
  subscriber.await_seq(3);
  EXPECT_EQ(subscriber.messages().size(), 1u);
  EXPECT_EQ(subscriber.book().book("AAPL").bids.size(), 3u);
}

TEST_F(RecoveringSubscriberTest, its_book_is_compared_with_an_image_at_the_images_place) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  packet_of(2);  // lost
  subscriber.await_seq(3);
  EXPECT_EQ(subscriber.compare_with_image(), "");
  EXPECT_EQ(subscriber.next_seq(), 6u);
}

TEST_F(RecoveringSubscriberTest, it_catches_up_with_what_the_gap_fill_service_knows) {
  subscriber.follow_from_start();
  feed.sends(packet_of(3));
  subscriber.await_seq(3);
  packet_of(2);  // lost, and no heartbeat tells
  subscriber.catch_up();
  EXPECT_EQ(subscriber.next_seq(), 6u);
}

/// A subscriber for a run without end.
class EndlessSubscriberTest : public RecoveringSubscriberTest {
 protected:
  RecoveryOptions endless() {
    return {.endless = true,
            .fill_patience = std::chrono::milliseconds(50),
            .on_message = [this](uint64_t seq, const DeepMessage&) { told.push_back(seq); },
            .on_image = [this](const SnapImage& image) { images.push_back(image.seq); }};
  }
  /// The packet as another run would have sent it, or this one at another time.
  static Bytes with_session(Bytes packet, uint32_t session) {
    for (size_t i = 0; i < 4; ++i) packet[8 + i] = static_cast<uint8_t>(session >> (8 * i));
    return packet;
  }
  static Bytes sent_later(Bytes packet) {
    packet[33] = static_cast<uint8_t>(packet[33] + 1);  // 256 ns
    return packet;
  }
  bool hears(uint64_t packets) {
    return follower.run_until([this, packets] {
      return follower.counters().packets + follower.counters().foreign >= packets;
    });
  }

  std::vector<uint64_t> told;
  std::vector<uint64_t> images;
  RecoveringSubscriber follower{feed.ports(), std::nullopt, endless()};
};

TEST_F(EndlessSubscriberTest, tells_of_every_message_in_order_and_keeps_none) {
  follower.follow_from_start();
  feed.sends(packet_of(3));
  packet_of(2);  // lost
  feed.sends(packet_of(1));
  follower.await_seq(6);
  EXPECT_EQ(told, (std::vector<uint64_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(follower.counters().filled, 2u);
  EXPECT_TRUE(follower.messages().empty());
  EXPECT_TRUE(follower.in_step());
}

TEST_F(EndlessSubscriberTest, begins_with_the_runs_first_packet_if_that_comes_first) {
  feed.sends(packet_of(3));
  ASSERT_TRUE(follower.await_feed(PATIENCE));
  EXPECT_FALSE(follower.in_step());
  follower.join();
  EXPECT_TRUE(follower.in_step());
  EXPECT_EQ(follower.next_seq(), 4u);
  EXPECT_TRUE(images.empty());
}

TEST_F(EndlessSubscriberTest, joins_a_run_that_is_on_by_an_image) {
  packet_of(3);
  feed.sends(packet_of(1));
  ASSERT_TRUE(follower.await_feed(PATIENCE));
  follower.join();
  EXPECT_EQ(images, std::vector<uint64_t>{4});
  EXPECT_TRUE(follower.in_step());
}

TEST_F(EndlessSubscriberTest, counts_packets_of_another_session_and_names_it) {
  follower.follow_from_start();
  feed.sends(packet_of(3));
  follower.await_seq(3);
  feed.sends(with_session(packet_of(2), 4242));
  ASSERT_TRUE(hears(2));
  EXPECT_EQ(follower.other_session(), 4242u);
  EXPECT_EQ(follower.counters().foreign, 1u);
  EXPECT_EQ(follower.next_seq(), 4u);
  follower.forget_other_session();
  EXPECT_EQ(follower.other_session(), std::nullopt);
}

TEST_F(EndlessSubscriberTest, notices_a_run_that_begins_anew_under_the_same_session) {
  follower.follow_from_start();
  const Bytes first = packet_of(3);
  feed.sends(first);
  feed.sends(sent_later(packet_of(3)));
  feed.sends(first);  // a late duplicate is none
  ASSERT_TRUE(hears(3));
  EXPECT_FALSE(follower.rewound());
  feed.sends(sent_later(sent_later(first)));
  ASSERT_TRUE(hears(4));
  EXPECT_TRUE(follower.rewound());
}

TEST_F(EndlessSubscriberTest, takes_an_image_where_gap_fill_does_not_answer) {
  const PortSlot nobody;
  Ports ports = feed.ports();
  ports.gap_fill = nobody.ports().gap_fill;
  RecoveringSubscriber alone(ports, std::nullopt, endless());
  alone.follow_from_start();
  feed.sends(packet_of(3));
  alone.await_seq(3);
  packet_of(2);  // lost
  feed.sends(packet_of(1));
  alone.await_seq(6);
  EXPECT_EQ(images, std::vector<uint64_t>{6});
  EXPECT_EQ(alone.counters().jumped, 3u);
  EXPECT_TRUE(alone.skipped().empty());
  EXPECT_EQ(alone.book().book("AAPL").bids.size(), 6u);
}

}  // namespace
}  // namespace quorl::client
