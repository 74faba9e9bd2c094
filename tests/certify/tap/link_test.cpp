#include "certify/tap/link.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/certify/tap/tap_rig.h"

using namespace tap_test;

TEST(Link, delays_each_piece_and_no_less) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("delay 80ms");
  client.say("one");
  rig.settle();
  EXPECT_EQ(rig.told.fix(1).from_client, "one");  // taken
  EXPECT_EQ(rig.taps.due(), rig.now + 80 * MILLISECOND);
  rig.pass(30 * MILLISECOND);
  client.say("two");
  rig.pass(50 * MILLISECOND - 1);
  EXPECT_EQ(exchange.hear(), "");
  rig.pass(1);
  EXPECT_EQ(exchange.hear(), "one");
  rig.pass(30 * MILLISECOND - 1);
  EXPECT_EQ(exchange.hear(), "one");
  rig.pass(1);
  EXPECT_EQ(exchange.hear(), "onetwo");
  EXPECT_TRUE(rig.told.said("FIX: delayed by 80 ms"));
  EXPECT_TRUE(rig.told.said("images: delayed by 80 ms"));
  EXPECT_EQ(rig.told.link.size(), 3U);
}

TEST(Link, tells_what_the_exchange_said_when_the_client_has_it) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("delay 80ms fix to client");
  const TimeNs said = rig.now;
  exchange.say("report");
  rig.settle();
  EXPECT_EQ(rig.told.fix(1).from_exchange, "");
  rig.pass(90 * MILLISECOND);
  EXPECT_EQ(client.hear(), "report");
  ASSERT_EQ(rig.told.fix(1).pieces.size(), 1U);
  EXPECT_EQ(rig.told.fix(1).pieces[0].taken, said);
  EXPECT_EQ(rig.told.fix(1).pieces[0].told, said + 90 * MILLISECOND);
  client.say("order");  // the other way is plain
  rig.settle();
  EXPECT_EQ(exchange.hear(), "order");
}

TEST(Link, jitters_within_its_range_in_order_and_the_same_again_by_the_same_seed) {
  const auto delays = [](uint64_t seed) {
    TapRig rig(seed);
    auto both = rig.connect();
    Peer& client = both.client;
    Peer& exchange = both.exchange;
    rig.order("delay 80ms jitter 20ms fix to client");
    std::vector<TimeNs> drawn;
    for (int i = 0; i < 50; ++i) {
      exchange.say("x");
      rig.settle();
      drawn.push_back(rig.taps.due().value_or(0) - rig.now);
      rig.pass(drawn.back() - 1);
      EXPECT_EQ(client.hear().size(), static_cast<size_t>(i));
      rig.pass(1);
      EXPECT_EQ(client.hear().size(), static_cast<size_t>(i) + 1);
    }
    return drawn;
  };
  const std::vector<TimeNs> drawn = delays(7);
  for (const TimeNs delay : drawn) {
    EXPECT_GE(delay, 60 * MILLISECOND);
    EXPECT_LE(delay, 100 * MILLISECOND);
  }
  EXPECT_GT(std::set<TimeNs>(drawn.begin(), drawn.end()).size(), 40U);
  EXPECT_EQ(drawn, delays(7));
  EXPECT_NE(drawn, delays(8));
}

TEST(Link, keeps_the_order_of_a_stream_under_jitter) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("delay 50ms jitter 50ms");
  std::string all;
  for (int i = 0; i < 200; ++i) {
    const std::string piece = std::to_string(i) + ",";
    client.say(piece);
    all += piece;
    rig.pass(MILLISECOND);
  }
  rig.pass(100 * MILLISECOND);
  EXPECT_EQ(exchange.hear(), all);
}

TEST(Link, stalls_and_goes_on) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("stall 5s");
  client.say("order");
  exchange.say("report");
  exchange.closes();
  rig.pass(5 * SECOND - 1);
  EXPECT_EQ(exchange.open(), false);
  EXPECT_EQ(client.hear(), "");
  EXPECT_FALSE(client.ended);
  EXPECT_EQ(rig.taps.due(), rig.now + 1);
  EXPECT_FALSE(rig.told.said("the stall is over"));
  rig.pass(1);
  EXPECT_EQ(client.hear(), "report");
  EXPECT_TRUE(client.ended);
  EXPECT_TRUE(rig.told.said("FIX: stalled for 5 s"));
  EXPECT_TRUE(rig.told.said("FIX: the stall is over"));
}

TEST(Link, tells_the_end_of_a_stall_without_a_connection) {
  TapRig rig;
  rig.order("stall 2s images");
  rig.settle();
  EXPECT_EQ(rig.taps.due(), rig.now + 2 * SECOND);
  rig.pass(2 * SECOND);
  EXPECT_TRUE(rig.told.said("images: the stall is over"));
  EXPECT_EQ(rig.taps.due(), std::nullopt);
}

TEST(Link, delays_resets_and_ends_with_the_bytes_ahead_of_them) {
  TapRig rig;
  auto one = rig.connect();
  auto two = rig.connect();
  rig.order("delay 80ms");
  one.exchange.say("fill");
  one.exchange.resets();
  two.client.say("order");
  two.client.says_no_more();
  rig.pass(80 * MILLISECOND - 1);
  EXPECT_FALSE(one.client.hears_end());
  EXPECT_FALSE(two.exchange.hears_end());
  rig.pass(1);
  EXPECT_TRUE(one.client.hears_reset());
  EXPECT_EQ(one.client.heard, "fill");
  EXPECT_TRUE(two.exchange.hears_end());
  EXPECT_EQ(two.exchange.heard, "order");
  EXPECT_FALSE(two.exchange.reset);
}

TEST(Link, loses_what_is_on_its_way_to_a_client_that_resets) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("stall 5s");
  exchange.say("0123456789");
  rig.settle();
  client.resets();
  rig.settle();
  ASSERT_EQ(rig.told.fix(1).ends.size(), 1U);
  EXPECT_EQ(rig.told.fix(1).ends[0].by, Party::CLIENT);
  EXPECT_TRUE(rig.told.fix(1).ends[0].reset);
  EXPECT_EQ(rig.told.fix(1).ends[0].lost, 10U);
  EXPECT_FALSE(exchange.hears_end());  // it hears of it as late as of anything
  rig.pass(5 * SECOND);
  EXPECT_TRUE(exchange.hears_reset());
}

TEST(Link, bears_resets_from_both_sides_during_a_stall) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("stall 5s");
  exchange.resets();
  rig.settle();
  client.say("into the void");
  client.resets();
  rig.settle();
  EXPECT_EQ(rig.told.fix(1).from_client, "into the void");
  rig.pass(5 * SECOND);
  EXPECT_EQ(rig.told.fix(1).ends.size(), 1U);
  EXPECT_EQ(rig.taps.due(), std::nullopt);
}

TEST(Link, trickles_some_bytes_each_millisecond) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("trickle 2 to exchange");
  client.say("abcde");
  rig.settle();
  EXPECT_EQ(exchange.hear(), "ab");
  EXPECT_EQ(rig.taps.due(), rig.now + MILLISECOND);
  rig.pass(MILLISECOND - 1);
  EXPECT_EQ(exchange.hear(), "ab");
  rig.pass(1);
  EXPECT_EQ(exchange.hear(), "abcd");
  rig.pass(10 * MILLISECOND);  // a late turn makes up for nothing
  EXPECT_EQ(exchange.hear(), "abcde");
  EXPECT_EQ(rig.told.link.size(), 3U);  // not one for each byte
}

TEST(Link, passes_a_reset_behind_what_trickles) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("trickle 1 to client");
  exchange.say("abc");
  exchange.resets();
  rig.settle();
  rig.pass(MILLISECOND);
  EXPECT_EQ(client.hear(), "ab");
  EXPECT_FALSE(client.ended);
  EXPECT_EQ(rig.taps.due(), rig.now + MILLISECOND);
  rig.pass(MILLISECOND);
  EXPECT_TRUE(client.hears_reset());
  EXPECT_EQ(client.heard, "abc");
}

TEST(Link, is_cut_by_resets_and_takes_new_connections) {
  TapRig rig;
  auto cut = rig.connect();
  auto image = rig.connect(rig.images, rig.taps.ports().images);
  rig.order("delay 1s to client");
  cut.exchange.say("12345");
  rig.settle();
  rig.order("cut fix");
  rig.settle();
  EXPECT_TRUE(cut.client.hears_reset());
  EXPECT_TRUE(cut.exchange.hears_reset());
  ASSERT_EQ(rig.told.fix(1).ends.size(), 1U);
  EXPECT_TRUE(rig.told.fix(1).ends[0].by_link);
  EXPECT_TRUE(rig.told.fix(1).ends[0].reset);
  EXPECT_EQ(rig.told.fix(1).ends[0].lost, 5U);
  EXPECT_TRUE(rig.told.said("FIX: cut"));
  EXPECT_FALSE(rig.told.said("images: cut"));
  rig.order("clear");
  image.client.say("still there");
  EXPECT_TRUE(rig.comes(image.exchange, "still there"));
  auto next = rig.connect();
  next.client.say("again");
  EXPECT_TRUE(rig.comes(next.exchange, "again"));
}

TEST(Link, keeps_one_way_back_until_it_is_cleared) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("cut fix to client");
  exchange.say("report");
  client.say("order");
  rig.pass(3600 * SECOND);
  EXPECT_EQ(exchange.hear(), "order");
  EXPECT_EQ(client.hear(), "");
  EXPECT_EQ(rig.taps.due(), std::nullopt);
  client.says_no_more();
  exchange.closes();
  rig.settle();
  EXPECT_FALSE(client.hears_end());
  rig.order("clear");
  EXPECT_LE(rig.taps.due().value_or(rig.now + 1), rig.now);
  rig.settle();
  EXPECT_TRUE(client.hears_end());
  EXPECT_EQ(client.heard, "report");
}

TEST(Link, lets_go_of_everything_when_it_is_cleared) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("delay 10s");
  rig.order("trickle 1");
  client.say("order");
  client.says_no_more();
  rig.settle();
  rig.order("clear to client");
  rig.settle();
  EXPECT_EQ(exchange.hear(), "");
  rig.order("clear");
  rig.settle();
  EXPECT_TRUE(exchange.hears_end());
  EXPECT_EQ(exchange.heard, "order");
}

TEST(Link, puts_nothing_ahead_when_a_delay_gets_shorter) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("delay 100ms");
  client.say("first ");
  rig.settle();
  rig.order("delay 0ms");
  client.say("second");
  rig.pass(100 * MILLISECOND - 1);
  EXPECT_EQ(exchange.hear(), "");
  rig.pass(1);
  EXPECT_EQ(exchange.hear(), "first second");
}
