#include "certify/tap/taps.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "certify/tap/delay_figures.h"
#include "quorl/client/errors.h"
#include "tests/certify/tap/tap_rig.h"

using namespace tap_test;

TEST(Taps, pass_bytes_both_ways_and_tell_them) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  EXPECT_TRUE(rig.told.fix(1).reached);
  client.say("8=FIX.4.2|9=");  // half a frame
  EXPECT_TRUE(rig.comes(exchange, "8=FIX.4.2|9="));
  exchange.say("8=F");
  EXPECT_TRUE(rig.comes(client, "8=F"));
  exchange.say("IX");
  EXPECT_TRUE(rig.comes(client, "8=FIX"));
  EXPECT_EQ(rig.told.fix(1).from_client, "8=FIX.4.2|9=");
  EXPECT_EQ(rig.told.fix(1).from_exchange, "8=FIX");
  EXPECT_TRUE(rig.told.fix(1).ends.empty());
  EXPECT_TRUE(rig.told.link.empty());
}

TEST(Taps, number_lines_within_each_service) {
  TapRig rig;
  auto first = rig.connect();
  auto image = rig.connect(rig.images, rig.taps.ports().images);
  auto second = rig.connect();
  second.client.say("two");
  image.client.say("image");
  EXPECT_TRUE(rig.comes(second.exchange, "two"));
  EXPECT_TRUE(rig.comes(image.exchange, "image"));
  EXPECT_EQ(rig.told.fix(2).from_client, "two");
  EXPECT_EQ(rig.told.of(Service::IMAGES, 1).from_client, "image");
}

TEST(Taps, pass_a_half_close_of_the_client_while_the_exchange_talks_on) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  client.say("last");
  client.says_no_more();
  ASSERT_TRUE(rig.until([&] { return exchange.hears_end(); }));
  EXPECT_EQ(exchange.heard, "last");
  EXPECT_FALSE(exchange.reset);
  exchange.say("answer");
  EXPECT_TRUE(rig.comes(client, "answer"));
  EXPECT_FALSE(client.ended);
  exchange.closes();
  ASSERT_TRUE(rig.until([&] { return client.hears_end(); }));
  EXPECT_FALSE(client.reset);
  const auto& ends = rig.told.fix(1).ends;
  ASSERT_EQ(ends.size(), 2U);
  EXPECT_EQ(ends[0].by, Party::CLIENT);
  EXPECT_EQ(ends[1].by, Party::EXCHANGE);
  EXPECT_FALSE(ends[0].reset || ends[1].reset || ends[0].by_link || ends[1].by_link);
}

TEST(Taps, pass_a_half_close_of_the_exchange_while_the_client_talks_on) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  exchange.say("goodbye");
  exchange.says_no_more();
  ASSERT_TRUE(rig.until([&] { return client.hears_end(); }));
  EXPECT_EQ(client.heard, "goodbye");
  EXPECT_FALSE(client.reset);
  client.say("one more");
  EXPECT_TRUE(rig.comes(exchange, "one more"));
  client.closes();
  ASSERT_TRUE(rig.until([&] { return exchange.hears_end(); }));
  EXPECT_FALSE(exchange.reset);
  ASSERT_EQ(rig.told.fix(1).ends.size(), 2U);
  EXPECT_EQ(rig.told.fix(1).ends[0].by, Party::EXCHANGE);
}

TEST(Taps, pass_resets_as_resets_behind_what_came_before) {
  TapRig rig;
  auto one = rig.connect();
  one.exchange.say("fill");
  one.exchange.resets();
  ASSERT_TRUE(rig.until([&] { return one.client.hears_end(); }));
  EXPECT_TRUE(one.client.reset);
  EXPECT_EQ(one.client.heard, "fill");
  ASSERT_EQ(rig.told.fix(1).ends.size(), 1U);
  EXPECT_EQ(rig.told.fix(1).ends[0].by, Party::EXCHANGE);
  EXPECT_TRUE(rig.told.fix(1).ends[0].reset);
  EXPECT_EQ(rig.told.fix(1).ends[0].lost, 0U);

  auto two = rig.connect();
  two.client.say("order");
  two.client.resets();
  ASSERT_TRUE(rig.until([&] { return two.exchange.hears_end(); }));
  EXPECT_TRUE(two.exchange.reset);
  EXPECT_EQ(two.exchange.heard, "order");
  ASSERT_EQ(rig.told.fix(2).ends.size(), 1U);
  EXPECT_EQ(rig.told.fix(2).ends[0].by, Party::CLIENT);
  EXPECT_TRUE(rig.told.fix(2).ends[0].reset);
}

TEST(Taps, pass_a_reset_that_follows_an_orderly_end) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  exchange.closes();  // by the first byte that comes now, its kernel answers with a reset
  ASSERT_TRUE(rig.until([&] { return client.hears_end(); }));
  EXPECT_FALSE(client.reset);
  client.say("into the void");
  ASSERT_TRUE(rig.until([&] { return rig.told.fix(1).ends.size() == 2; }));
  EXPECT_EQ(rig.told.fix(1).ends[1].by, Party::EXCHANGE);
  EXPECT_TRUE(rig.told.fix(1).ends[1].reset);
  const std::string_view more = "more";
  ASSERT_TRUE(rig.until([&] { return send(Descriptor(::dup(client.fd())), more) < 0; }));
}

TEST(Taps, reset_a_client_whom_nobody_takes) {
  TapRig rig;
  rig.fix.close();
  Peer client = Peer::connect_to(rig.taps.ports().fix);
  ASSERT_TRUE(rig.until([&] { return client.hears_end(); }));
  EXPECT_TRUE(client.reset);
  EXPECT_TRUE(rig.told.fix(1).opened);
  EXPECT_FALSE(rig.told.fix(1).reached);
  EXPECT_TRUE(rig.told.fix(1).ends.empty());
}

TEST(Taps, call_an_exchange_that_resets_at_once_reached) {
  TapRig rig;
  Peer client = Peer::connect_to(rig.taps.ports().fix);
  rig.taps.serve(rig.now);  // begins to connect
  Peer exchange;
  const auto deadline = client::Deadline::after(client::PATIENCE);
  while (!exchange.open() && !deadline.expired()) exchange = rig.fix.take();
  ASSERT_TRUE(exchange.open());
  exchange.resets();
  ASSERT_TRUE(rig.until([&] { return client.hears_end(); }));
  EXPECT_TRUE(client.reset);
  EXPECT_TRUE(rig.told.fix(1).reached);
  ASSERT_EQ(rig.told.fix(1).ends.size(), 1U);
  EXPECT_EQ(rig.told.fix(1).ends[0].by, Party::EXCHANGE);
}

TEST(Taps, take_the_ports_that_are_wanted_or_say_which_cannot_be_had) {
  TapRig rig;
  Told told;
  const ServicePorts taken = rig.taps.ports();
  try {
    const Taps second(taken, {.fix = taken.fix}, told, 1);
    FAIL() << "two taps on one port";
  } catch (const client::SystemError& error) {
    EXPECT_NE(std::string(error.what()).find(std::to_string(taken.fix)), std::string::npos);
  }
  rig.taps.close();
  const Taps second(taken, taken, told, 1);
  EXPECT_EQ(second.ports().fix, taken.fix);
  EXPECT_EQ(second.ports().images, taken.images);
  EXPECT_EQ(second.ports().gap_fill, taken.gap_fill);
}

TEST(Taps, end_all_when_they_are_closed) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("stall 5s");
  exchange.say("0123456789");
  rig.settle();
  rig.taps.close();
  EXPECT_TRUE(client.hears_reset());
  EXPECT_TRUE(exchange.hears_reset());
  ASSERT_EQ(rig.told.fix(1).ends.size(), 1U);
  EXPECT_TRUE(rig.told.fix(1).ends[0].by_link);
  EXPECT_EQ(rig.told.fix(1).ends[0].lost, 10U);
  EXPECT_EQ(rig.taps.due(), std::nullopt);
  rig.taps.serve(rig.now);
  rig.taps.close();
}

TEST(Taps, leave_nothing_open_and_nothing_to_programs_that_are_started) {
  const size_t before = descriptors_open();
  {
    TapRig rig;
    auto both = rig.connect();
    Peer& client = both.client;
    Peer& exchange = both.exchange;
    client.say("x");
    EXPECT_TRUE(rig.comes(exchange, "x"));
    std::vector<pollfd> set;
    rig.taps.collect(set);
    for (const pollfd& entry : set) EXPECT_TRUE(::fcntl(entry.fd, F_GETFD) & FD_CLOEXEC);
  }
  EXPECT_EQ(descriptors_open(), before);
}

TEST(Taps, state_the_delay_they_add) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.settle();
  // The kernel begins to stamp arrivals a moment after it is asked to, so not the first try counts.
  bool stamped = false;
  TimeNs longest = 0;
  for (int i = 0; i < 1000; ++i) {
    const TimeNs begin = DelayFigures::clock_ns();
    client.say("x");
    const TimeNs sent = DelayFigures::clock_ns();
    while (DelayFigures::clock_ns() < sent + MILLISECOND) {  // the loop is elsewhere
    }
    const TimeNs served = DelayFigures::clock_ns();
    ASSERT_TRUE(rig.comes(exchange, std::string(static_cast<size_t>(i) + 1, 'x')));
    rig.settle();
    longest = std::max(longest, DelayFigures::clock_ns() - begin);
    ASSERT_LE(rig.taps.delay().most, longest);
    stamped = rig.taps.delay().most >= served - sent;
    if (stamped) break;
  }
  EXPECT_TRUE(stamped);
  EXPECT_GT(rig.taps.delay().median, 0);
  EXPECT_LE(rig.taps.delay().median, rig.taps.delay().most);
}

TEST(Taps, do_not_count_what_the_link_was_told_to_add) {
  TapRig rig;
  auto both = rig.connect();
  Peer& client = both.client;
  Peer& exchange = both.exchange;
  rig.order("delay 10ms");
  rig.settle();
  client.say("late");
  rig.settle();
  const TimeNs begin = DelayFigures::clock_ns();
  while (DelayFigures::clock_ns() < begin + 2 * MILLISECOND) {
  }
  rig.pass(10 * MILLISECOND);
  EXPECT_EQ(exchange.hear(), "late");
  EXPECT_EQ(rig.taps.delay().most, 0);
}
