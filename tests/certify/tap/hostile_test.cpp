#include <gtest/gtest.h>
#include <sys/resource.h>

#include <random>
#include <string>
#include <vector>

#include "tests/certify/tap/tap_rig.h"

using namespace tap_test;

namespace {

std::string random_bytes(size_t size, std::mt19937_64& random) {
  std::string bytes;
  for (bytes.reserve(size); bytes.size() < size;) {
    const uint64_t eight = random();
    bytes.append(reinterpret_cast<const char*>(&eight), sizeof eight);
  }
  return bytes;
}

/// Says all it can until neither its kernel nor the tap takes more.
size_t say_until_full(TapRig& rig, Peer& peer, const std::string& bytes) {
  size_t said = 0;
  for (int quiet = 0; quiet < 20 && said < bytes.size();) {
    const size_t more = peer.say(std::string_view(bytes).substr(said));
    said += more;
    quiet = more == 0 ? quiet + 1 : 0;
    rig.turn(0);
  }
  return said;
}

TEST(Hostile, client_that_never_reads_is_felt_by_the_exchange_and_loses_nothing) {
  TapRig rig;
  rig.told.keep_pieces = false;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  std::mt19937_64 random(1);
  const std::string all = random_bytes(32 << 20, random);
  const size_t said = say_until_full(rig, exchange, all);
  EXPECT_LT(said, all.size());
  EXPECT_EQ(rig.taps.due(), std::nullopt);  // no spinning
  auto other = rig.connect();               // and no one else is held up
  other.client.say("order");
  EXPECT_TRUE(rig.comes(other.exchange, "order"));
  client.say("other way");
  EXPECT_TRUE(rig.comes(exchange, "other way"));
  exchange.closes();
  rig.settle();
  EXPECT_TRUE(rig.told.fix(1).ends.empty());  // it is not all handed over
  ASSERT_TRUE(rig.until([&] { return client.hears_end(); }));
  EXPECT_FALSE(client.reset);
  EXPECT_TRUE(client.heard == all.substr(0, said));
  EXPECT_TRUE(rig.told.fix(1).from_exchange == client.heard);
}

TEST(Hostile, client_that_never_reads_hears_of_a_reset_and_what_it_lost_is_counted) {
  TapRig rig;
  rig.told.keep_pieces = false;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  const std::string all(32 << 20, 'x');
  const size_t said = say_until_full(rig, exchange, all);
  exchange.resets();
  ASSERT_TRUE(rig.until([&] { return !rig.told.fix(1).ends.empty(); }));
  const Ended& ended = rig.told.fix(1).ends[0];
  EXPECT_TRUE(ended.reset);
  EXPECT_EQ(ended.by, Party::EXCHANGE);
  EXPECT_GT(ended.lost, 0U);
  EXPECT_LE(ended.lost + rig.told.fix(1).from_exchange.size(), said);
  EXPECT_TRUE(client.hears_reset());
  // What was told as handed over and did not come is at most what its kernel was not sent.
  EXPECT_LE(client.heard.size(), rig.told.fix(1).from_exchange.size());
  EXPECT_EQ(rig.taps.due(), std::nullopt);
}

TEST(Hostile, exchange_that_never_reads_is_felt_by_the_client) {
  TapRig rig;
  rig.told.keep_pieces = false;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  const std::string all(32 << 20, 'x');
  const size_t said = say_until_full(rig, client, all);
  EXPECT_LT(said, all.size());
  client.resets();
  ASSERT_TRUE(rig.until([&] { return !rig.told.fix(1).ends.empty(); }));
  EXPECT_TRUE(rig.told.fix(1).ends[0].reset);
  EXPECT_TRUE(rig.until([&] { return exchange.hears_reset(); }));
}

TEST(Hostile, clients_that_close_at_once_a_thousand_times) {
  TapRig rig;
  const size_t before = descriptors_open();
  for (int i = 0; i < 1000; ++i) {
    Peer client = Peer::connect_to(rig.taps.ports().fix);
    i % 2 == 0 ? client.closes() : client.resets();
    if (i % 7 == 0) rig.settle();
  }
  ASSERT_TRUE(rig.until([&] {
    while (rig.fix.take().open()) {
    }
    return rig.told.opened == 1000 && descriptors_open() <= before + 1;  // one is kept in hand
  }));
  for (uint32_t i = 1; i <= 1000; ++i) {
    EXPECT_TRUE(rig.told.fix(i).reached);
    EXPECT_FALSE(rig.told.fix(i).ends.empty());
  }
  rig.settle();
  EXPECT_EQ(rig.taps.due(), std::nullopt);
}

TEST(Hostile, shortage_of_descriptors_makes_connections_wait_without_spinning) {
  TapRig rig;
  // The sanitizers look at a listener's type when it first hears something, with a descriptor.
  rig.taps.order_link("clear", rig.now);
  rig.told.link.clear();
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  std::vector<Peer> clients;
  for (int i = 0; i < 4; ++i) clients.push_back(Peer::connect_to(rig.taps.ports().fix));
  rlimit none = before;
  none.rlim_cur = 3;  // for new ones; those that are open stay
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  rig.taps.serve(rig.now);
  rig.taps.serve(rig.now);
  const auto due = rig.taps.due();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(due, rig.now + 50 * MILLISECOND);
  EXPECT_EQ(rig.told.opened, 0U);
  EXPECT_EQ(rig.told.link, (std::vector<std::string>{"FIX: no descriptor left, connections wait"}));
  rig.now += 50 * MILLISECOND;
  EXPECT_TRUE(rig.until([&] { return rig.told.opened == 4; }));
  for (uint32_t i = 1; i <= 4; ++i) EXPECT_TRUE(rig.told.fix(i).reached);
}

TEST(Hostile, many_small_pieces_pass_at_a_speed) {
  TapRig rig;
  rig.told.keep_pieces = false;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  std::string all;
  for (int i = 0; i < 50'000; ++i) {
    const std::string piece(1, static_cast<char>('a' + i % 26));
    ASSERT_EQ(client.say(piece), 1U);
    all += piece;
    rig.taps.serve(rig.now);
  }
  EXPECT_TRUE(rig.comes(exchange, all));
}

/// A megabyte each way, chopped anyhow, over a link that changes its mind: nothing is lost, doubled
/// or out of order.
void chop(uint64_t seed) {
  constexpr std::string_view ORDERS[] = {
      "delay 3ms jitter 3ms",
      "delay 20ms jitter 1ms to client",
      "stall 15ms",
      "stall 2ms to exchange",
      "trickle 5000",
      "trickle 30000 fix to client",
      "clear",
      "clear to exchange",
      "cut to client",
      "delay 0ms",
  };
  SCOPED_TRACE("seed " + std::to_string(seed));
  TapRig rig(seed);
  rig.told.keep_pieces = false;
  std::mt19937_64 random(seed);
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  const std::string up = random_bytes(1 << 20, random);
  const std::string down = random_bytes(1 << 20, random);
  size_t said_up = 0;
  size_t said_down = 0;
  const auto say_some = [&random](Peer& peer, const std::string& all, size_t& said) {
    const size_t largest = random() % 4 == 0 ? 60'000 : 300;
    said += peer.say(std::string_view(all).substr(said, 1 + random() % largest));
  };
  for (int step = 0; said_up < up.size() || said_down < down.size(); ++step) {
    ASSERT_LT(step, 200'000);
    if (said_up < up.size()) say_some(client, up, said_up);
    if (said_down < down.size()) say_some(exchange, down, said_down);
    if (random() % 50 == 0) rig.order(ORDERS[random() % std::size(ORDERS)]);
    if (step % 1000 == 999) rig.order("clear");
    rig.now += static_cast<TimeNs>(random() % static_cast<uint64_t>(MILLISECOND));
    rig.taps.serve(rig.now);
    if (random() % 3 == 0) (void)client.hear(random() % 20'000);
    if (random() % 3 == 0) (void)exchange.hear(random() % 20'000);
  }
  rig.order("clear");
  client.says_no_more();
  exchange.says_no_more();
  ASSERT_TRUE(rig.until([&] { return client.hears_end() && exchange.hears_end(); }));
  EXPECT_FALSE(client.reset || exchange.reset);
  EXPECT_TRUE(exchange.heard == up);
  EXPECT_TRUE(client.heard == down);
  EXPECT_TRUE(rig.told.fix(1).from_client == up);
  EXPECT_TRUE(rig.told.fix(1).from_exchange == down);
  EXPECT_EQ(rig.taps.due(), std::nullopt);
}

TEST(Hostile, chopping_under_a_changing_link_changes_no_byte) {
  for (uint64_t seed = 1; seed <= 5; ++seed) chop(seed);
}

}  // namespace
