#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quorl/client/udp.h"
#include "tests/certify/tap/tap_rig.h"

using namespace tap_test;

namespace {

/// A client's socket, or the exchange's, that never blocks.
class Talker {
 public:
  explicit Talker(Descriptor socket = bound_datagram_socket(0)) : socket_(std::move(socket)) {}
  void say(std::string_view datagram, uint16_t to) {
    EXPECT_EQ(send_to(socket_, datagram, loopback(to)), static_cast<ssize_t>(datagram.size()));
  }
  size_t hear() {
    std::vector<char> buffer(65536);
    for (;;) {
      const Received got = receive(socket_, buffer.data(), buffer.size());
      if (got.size < 0) return heard.size();
      heard.emplace_back(buffer.data(), static_cast<size_t>(got.size));
      from.push_back(ntohs(got.from.sin_port));
    }
  }
  uint16_t port() const { return port_of(socket_); }

  std::vector<std::string> heard;
  std::vector<uint16_t> from;

 private:
  Descriptor socket_;
};

struct GapFillRig : TapRig {
  explicit GapFillRig(uint64_t seed = 1) : TapRig(seed), exchange(std::move(gap_fill)) {}
  uint16_t tap() const { return taps.ports().gap_fill; }
  Talker exchange;
};

TEST(GapFill, replies_find_the_socket_that_asked) {
  GapFillRig rig;
  Talker one;
  Talker two;
  one.say("one asks", rig.tap());
  two.say("two asks", rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 2; }));
  EXPECT_NE(rig.exchange.from[0], rig.exchange.from[1]);
  rig.exchange.say("for two", rig.exchange.from[1]);
  rig.exchange.say("for one", rig.exchange.from[0]);
  rig.exchange.say("", rig.exchange.from[0]);  // an empty datagram is a datagram
  ASSERT_TRUE(rig.until([&] { return one.hear() == 2 && two.hear() == 1; }));
  EXPECT_EQ(rig.exchange.heard, (std::vector<std::string>{"one asks", "two asks"}));
  EXPECT_EQ(one.heard, (std::vector<std::string>{"for one", ""}));
  EXPECT_EQ(two.heard[0], "for two");
  EXPECT_EQ(one.from[0], rig.tap());
  EXPECT_EQ(rig.told.gap_fill(1).from_client, "one asks");
  EXPECT_EQ(rig.told.gap_fill(2).from_exchange, "for two");
  one.say("again", rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 3; }));
  EXPECT_EQ(rig.exchange.from[2], rig.exchange.from[0]);
  EXPECT_EQ(rig.told.lines.size(), 2U);
}

TEST(GapFill, passes_the_largest_datagram_whole) {
  GapFillRig rig;
  Talker client;
  const std::string large(65507, 'x');
  client.say(large, rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 1; }));
  EXPECT_EQ(rig.exchange.heard[0], large);
}

TEST(GapFill, passes_a_burst_of_replies_without_loss) {
  GapFillRig rig;
  Talker client;
  client.say("ask", rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 1; }));
  const std::string packet(1500, 'x');
  for (int i = 0; i < 1000; ++i) {
    rig.exchange.say(std::to_string(i) + packet, rig.exchange.from[0]);
    if (i % 100 == 99) rig.settle();
  }
  ASSERT_TRUE(rig.until([&] { return client.hear() == 1000; }));
  for (size_t i = 0; i < 1000; ++i) EXPECT_EQ(client.heard[i], std::to_string(i) + packet);
}

TEST(GapFill, bounds_its_sockets_and_gives_up_the_one_silent_for_longest) {
  GapFillRig rig;
  std::vector<Talker> clients(65);
  const size_t before = descriptors_open();
  for (size_t i = 0; i < 64; ++i) {
    clients[i].say("ask", rig.tap());
    rig.settle();
  }
  clients[0].say("ask", rig.tap());  // so the second was silent for longest
  rig.settle();
  clients[64].say("ask", rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 66; }));
  EXPECT_EQ(descriptors_open(), before + 64);
  EXPECT_EQ(rig.told.lines.size(), 65U);
  rig.exchange.say("late", rig.exchange.from[1]);  // to a socket that is gone
  rig.exchange.say("reply", rig.exchange.from[0]);
  ASSERT_TRUE(rig.until([&] { return clients[0].hear() == 1; }));
  clients[1].say("ask again", rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 67; }));
  EXPECT_EQ(rig.told.gap_fill(66).from_client, "ask again");
  rig.exchange.say("reply", rig.exchange.from[66]);
  ASSERT_TRUE(rig.until([&] { return clients[1].hear() == 1; }));
}

TEST(GapFill, goes_on_when_nobody_was_there) {
  GapFillRig rig;
  const uint16_t port = rig.exchange.port();
  Talker client;
  rig.exchange = Talker(Descriptor());
  for (int i = 0; i < 3; ++i) {
    client.say("ask", rig.tap());
    rig.settle();
  }
  rig.exchange = Talker(bound_datagram_socket(port));
  client.say("hello", rig.tap());
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() == 1; }));
  EXPECT_EQ(rig.exchange.heard[0], "hello");
}

TEST(GapFill, delays_stalls_and_trickles_whole_datagrams) {
  GapFillRig rig;
  Talker client;
  rig.order("delay 80ms fix");  // is nothing to it
  client.say("plain", rig.tap());
  rig.settle();
  ASSERT_EQ(rig.exchange.hear(), 1U);
  rig.order("delay 80ms gapfill to exchange");
  client.say("late", rig.tap());
  rig.pass(80 * MILLISECOND - 1);
  EXPECT_EQ(rig.exchange.hear(), 1U);
  EXPECT_EQ(rig.taps.due(), rig.now + 1);
  rig.pass(1);
  EXPECT_EQ(rig.exchange.hear(), 2U);
  rig.order("clear");
  rig.order("trickle 1 gapfill");
  rig.exchange.say("one", rig.exchange.from[0]);
  rig.exchange.say("two", rig.exchange.from[0]);
  rig.settle();
  EXPECT_EQ(client.hear(), 1U);
  rig.pass(MILLISECOND);
  EXPECT_EQ(client.hear(), 2U);
  EXPECT_EQ(client.heard[1], "two");
  rig.order("stall 1s");
  rig.exchange.say("three", rig.exchange.from[0]);
  rig.pass(SECOND - 1);
  EXPECT_EQ(client.hear(), 2U);
  rig.pass(1);
  EXPECT_EQ(client.hear(), 3U);
  EXPECT_EQ(rig.told.gap_fill(1).from_exchange, "onetwothree");
}

TEST(GapFill, loses_datagrams_when_the_link_is_cut) {
  GapFillRig rig;
  Talker client;
  rig.order("delay 80ms");
  client.say("lost", rig.tap());
  rig.settle();
  rig.order("cut");
  rig.pass(SECOND);
  EXPECT_EQ(rig.exchange.hear(), 0U);
  EXPECT_TRUE(rig.told.said("gap fill 1: 1 request lost"));
  rig.order("clear");
  client.say("new", rig.tap());
  rig.settle();
  ASSERT_EQ(rig.exchange.hear(), 1U);
  rig.order("cut gapfill to client");
  rig.exchange.say("lost", rig.exchange.from[0]);
  client.say("ask", rig.tap());
  rig.pass(SECOND);
  EXPECT_EQ(rig.exchange.hear(), 2U);
  EXPECT_TRUE(rig.told.said("gap fill 1: 1 reply datagram lost"));
  EXPECT_EQ(rig.told.gap_fill(1).from_exchange, "");
  rig.order("clear");
  rig.settle();
  EXPECT_EQ(client.hear(), 0U);
  rig.exchange.say("comes", rig.exchange.from[0]);
  rig.settle();
  EXPECT_EQ(client.hear(), 1U);
}

TEST(GapFill, holds_little_during_a_stall) {
  GapFillRig rig;
  Talker client;
  rig.order("stall 10s");
  const std::string datagram(1000, 'x');
  for (int i = 0; i < 2000; ++i) {
    client.say(datagram, rig.tap());
    rig.turn(0);
  }
  const auto& taken = rig.told.gap_fill(1).from_client;
  EXPECT_LE(taken.size(), 256U * 1024);
  rig.pass(10 * SECOND);
  ASSERT_TRUE(rig.until([&] { return rig.exchange.hear() * 1000 == taken.size(); }));
  EXPECT_GT(taken.size(), 256U * 1024 - 64 * 1024);
}

}  // namespace
