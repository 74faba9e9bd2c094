// quorl-watch beside a real exchange, and where there is none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "quorl/client/port_slot.h"
#include "tests/client/fake_feed.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/group_members.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

Words where(const client::Ports& ports, Words more = {}) {
  Words words{ports.group, std::to_string(ports.feed)};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

/// Waits for another line like this one: it may have printed older ones.
void hears_another_heartbeat(const Tool& watch) {
  watch.prints("heartbeat, next is", watch.lines_printed());
}

TEST(Watch, shows_packets_messages_and_heartbeats_and_ends_well_by_ctrl_c) {
  e2e::Exchange exchange(e2e::still());
  Tool watch("watch", where(exchange.ports()));
  EXPECT_EQ(watch.prints("session"), "session " + std::to_string(exchange.simulator().session()));
  client::FixSession alpha = exchange.logs_on("ALPHA");
  hears_another_heartbeat(watch);
  alpha.new_order({.cl_ord_id = "a1", .quantity = "300", .price = "1"});
  EXPECT_EQ(watch.prints("8 AAPL 300 @ 1"), "  8 AAPL 300 @ 1 last");
  const uint64_t seq = exchange.turn().next_seq - 1;
  EXPECT_THAT(watch.printed(), Contains(StartsWith("packet from " + std::to_string(seq) +
                                                   ", 1 message(s), stream offset ")));
  watch.signal(SIGINT);
  const Said said = watch.end();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.err, testing::MatchesRegex("quorl-watch: [0-9]+ packets? \\([0-9]+ "
                                              "heartbeats?\\), 1 message in [0-9.]+ s; 0 gaps, 0 "
                                              "messages still missing; 0 duplicates; 0 out of "
                                              "order\n"));
}

TEST(Watch, hears_the_whole_feed_without_a_gap_if_it_is_there_first) {
  client::Simulator simulator(e2e::living());
  Tool watch("watch", where(simulator.ports(), {"--count", "40"}));
  await_joined(simulator.ports().group);
  simulator.start();
  const Said said = watch.end();
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.out, HasSubstr("packet from 1, "));
  EXPECT_THAT(said.out, HasSubstr("  S O\n"));
  EXPECT_THAT(said.out, Not(HasSubstr("gap: ")));
  EXPECT_THAT(said.out, Not(HasSubstr("wrong number: ")));
  EXPECT_THAT(said.err, HasSubstr("40 packets"));
}

/// An exchange at rest, whose feed carries one message per order, and a watch that has heard it.
class Faulty : public testing::Test {
 protected:
  Faulty() : watch("watch", where(exchange.ports())) { hears_another_heartbeat(watch); }

  /// Places an order of so many shares and returns the number of its message.
  uint64_t publishes(int shares) {
    alpha.new_order({.cl_ord_id = "p" + std::to_string(++orders_),
                     .quantity = std::to_string(shares),
                     .price = "1"});
    alpha.hears("35=8|150=0");
    return exchange.turn().next_seq - 1;
  }

  e2e::Exchange exchange{e2e::still()};
  client::FixSession alpha = exchange.logs_on("ALPHA");
  Tool watch;

 private:
  int orders_ = 0;
};

TEST_F(Faulty, tells_a_gap_with_the_numbers_that_are_missing) {
  exchange.control().ok("drop 2");
  const uint64_t first = publishes(101);
  (void)publishes(102);
  (void)publishes(103);
  EXPECT_EQ(watch.prints("gap: "), "gap: expected " + std::to_string(first) +
                                       ", packet starts at " + std::to_string(first + 2) +
                                       ": 2 messages missing");
  watch.prints("  8 AAPL 306 @ 1 last");  // all three rest
  watch.signal(SIGTERM);
  EXPECT_THAT(watch.end().err, HasSubstr("; 1 gap, 2 messages still missing; "));
}

TEST_F(Faulty, tells_a_gap_behind_which_only_a_heartbeat_comes) {
  exchange.control().ok("drop 1");
  const uint64_t first = publishes(101);
  EXPECT_EQ(watch.prints("gap: "), "gap: expected " + std::to_string(first) +
                                       ", packet starts at " + std::to_string(first + 1) +
                                       ": 1 message missing");
}

TEST_F(Faulty, tells_a_duplicate) {
  exchange.control().ok("dup 1");
  const uint64_t seq = publishes(101);
  EXPECT_EQ(watch.prints("duplicate: "),
            "duplicate: the packet from " + std::to_string(seq) + " has come before");
  watch.signal(SIGINT);
  const Said said = watch.end();
  EXPECT_THAT(said.out, Not(HasSubstr("gap: ")));
  EXPECT_THAT(said.err, HasSubstr("; 1 duplicate; 0 out of order"));
}

TEST_F(Faulty, tells_a_packet_out_of_order_and_that_nothing_is_missing_then) {
  exchange.control().ok("reorder 1");
  const uint64_t held = publishes(101);
  (void)publishes(102);
  EXPECT_EQ(watch.prints("gap: "), "gap: expected " + std::to_string(held) + ", packet starts at " +
                                       std::to_string(held + 1) + ": 1 message missing");
  EXPECT_EQ(watch.prints("out of order: "), "out of order: the packet from " +
                                                std::to_string(held) +
                                                " comes late: 1 message no longer missing");
  watch.signal(SIGINT);
  EXPECT_THAT(watch.end().err, HasSubstr("; 1 gap, 0 messages still missing; 0 duplicates; 1 out"));
}

TEST_F(Faulty, takes_a_packet_with_a_number_one_too_high_for_no_gap) {
  // The trades of a sweep of so many orders do not fit into one packet.
  for (int i = 0; i < 60; ++i) (void)publishes(100);
  exchange.empty_book("AAPL");
  const uint64_t next = exchange.turn().next_seq;
  watch.prints("heartbeat, next is " + std::to_string(next));
  const Words printed = watch.printed();
  EXPECT_THAT(printed, Contains(HasSubstr(" (its true first number is ")));
  EXPECT_THAT(printed, Not(Contains(StartsWith("gap: "))));
  EXPECT_THAT(printed, Not(Contains(StartsWith("wrong number: "))));
}

TEST(Watch, shows_only_the_symbols_asked_for) {
  e2e::Exchange exchange(e2e::living({"--symbols", "AAPL:190,MSFT:410,SPY:520,QQQ:300"}));
  for (const Words& filter :
       {Words{"--symbol", "MSFT", "--symbol", "SPY"}, Words{"--symbol", "MSFT,SPY"}}) {
    Words arguments = where(exchange.ports(), {"--count", "30"});
    arguments.insert(arguments.end(), filter.begin(), filter.end());
    const Said said = [&] {
      Tool watch("watch", arguments);
      return watch.end();
    }();
    EXPECT_EQ(said.status, 0) << said.err;
    EXPECT_THAT(said.out, HasSubstr(" MSFT "));
    EXPECT_THAT(said.out, HasSubstr(" SPY "));
    EXPECT_THAT(said.out, Not(HasSubstr("AAPL")));
    EXPECT_THAT(said.out, Not(HasSubstr("QQQ")));
    EXPECT_THAT(said.out, Not(HasSubstr("gap: ")));
  }
}

TEST(Watch, keeps_the_positional_arguments_optional_and_takes_them_as_options_too) {
  e2e::Exchange exchange(e2e::still());
  Tool watch("watch",
             {"--mcast", exchange.ports().group, "--port", std::to_string(exchange.ports().feed),
              "--iface", "127.0.0.1", "--count", "1", "--time"});
  const Said said = watch.end();
  EXPECT_EQ(said.status, 0);
  EXPECT_TRUE(std::regex_search(
      said.out, std::regex("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} session [0-9]+\n")))
      << said.out;
  EXPECT_TRUE(std::regex_search(
      said.out, std::regex("\n[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} heartbeat, next is [0-9]+\n$")))
      << said.out;
}

TEST(Watch, prints_no_more_lines_a_second_than_asked_and_says_what_it_left_out) {
  e2e::Exchange exchange(e2e::living());
  exchange.control().ok("rate 0");
  Tool watch("watch", where(exchange.ports(), {"--limit", "5", "--for", "2.5"}));
  const Said said = watch.end();
  EXPECT_EQ(said.status, 0);
  size_t lines = 0;
  size_t notices = 0;
  uint64_t left_out = 0;
  std::istringstream out(said.out);
  const std::regex notice("-- ([0-9]+) lines? left out.*");
  for (std::string line; std::getline(out, line);) {
    std::smatch match;
    if (std::regex_match(line, match, notice)) {
      left_out += std::stoull(match[1]);
      ++notices;
    } else {
      ++lines;
    }
  }
  // Three seconds begin in two and a half; and the last words.
  EXPECT_LE(lines + notices, 16U);
  EXPECT_GE(lines, 5U);
  std::smatch counted;
  ASSERT_TRUE(std::regex_search(said.err, counted,
                                std::regex("([0-9]+) packets? \\([^)]*\\), ([0-9]+) messages")));
  // One line for each, and one for the session.
  EXPECT_EQ(lines + left_out, std::stoull(counted[1]) + std::stoull(counted[2]) + 1);
}

TEST(Watch, says_a_silence_and_its_end) {
  e2e::Exchange exchange(e2e::still());
  Tool watch("watch", where(exchange.ports()));
  hears_another_heartbeat(watch);
  exchange.simulator().stop_process();
  EXPECT_EQ(watch.prints("silence: no packet"),
            "silence: no packet on " + exchange.ports().group + ":" +
                std::to_string(exchange.ports().feed) +
                " for 3 s: is the exchange there, on this interface (127.0.0.1)?");
  exchange.simulator().cont_process();
  EXPECT_THAT(watch.prints("silence: over"), HasSubstr("packets come again after "));
}

TEST(Watch, tells_that_another_run_has_begun) {
  client::Simulator first(e2e::still());
  client::SimulatorOptions options = e2e::still();
  options.arguments.insert(options.arguments.end(),
                           {"--mcast", first.ports().group, "--port",
                            std::to_string(first.ports().feed), "--session", "7"});
  client::Simulator second(options);
  first.start();
  Tool watch("watch", where(first.ports()));
  watch.prints("heartbeat");
  (void)first.terminate();
  second.start();
  EXPECT_EQ(watch.prints("new session"),
            "new session 7 (before: " + std::to_string(first.session()) + ")");
  watch.prints("packet from 1, ");
  watch.signal(SIGINT);
  const Said said = watch.end();
  EXPECT_THAT(said.out, Not(HasSubstr("gap: ")));
  EXPECT_THAT(said.err, HasSubstr("; 2 sessions"));
}

TEST(Watch, says_a_datagram_that_is_no_packet_and_goes_on) {
  FakeFeed feed;
  Tool watch("watch", where(feed.ports()));
  // Until it listens nothing arrives.
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (watch.lines_printed() == 0 && !deadline.expired()) {
    feed.sends(client::to_bytes("hello"));
    std::this_thread::sleep_for(milliseconds(10));
  }
  EXPECT_THAT(watch.prints("not an IEX-TP packet"),
              StartsWith("not an IEX-TP packet: 5 bytes from 127.0.0.1:"));
  feed.bid(1000000, 300);
  feed.sends(feed.packet());
  watch.prints("8 AAPL 300 @ 100 last");
}

TEST(Watch, that_hears_nobody_ends_with_its_own_status) {
  const client::PortSlot slot;
  Tool watch("watch", where(slot.ports(), {"--for", "0.3"}));
  const Said said = watch.end();
  EXPECT_EQ(said.status, 3);
  EXPECT_EQ(said.out, "");
  EXPECT_THAT(said.err, StartsWith("quorl-watch: no packet on " + slot.ports().group + ":"));
}

TEST(Watch, refuses_what_it_cannot_do_in_one_line) {
  for (const auto& [words, complaint] : std::vector<std::pair<Words, std::string>>{
           {{"10.1.2.3"}, "10.1.2.3 is no multicast group"},
           {{"239.1.2.3", "0"}, "port"},
           {{"239.1.2.3", "70000"}, "port"},
           {{"--symbol", "TOOLONGNAME"}, "'TOOLONGNAME' is no symbol of 1 to 8 characters"},
           {{"--symbol", "A B"}, "'A B' is no symbol"},
           {{"--symbol"}, "--symbol"},
           {{"--limit", "0"}, "--limit"},
           {{"--limit", "-5"}, "--limit"},
           {{"--count", "0"}, "--count"},
           {{"--count", "many"}, "--count"},
           {{"--for", "0"}, "0 is no time in seconds above 0"},
           {{"--for", "nan"}, "nan is no time"},
           {{"--for", "-1"}, "-1 is no time"},
           {{"--for", "1e9"}, "1e9 is no time"},
           {{"--iface", "lo"}, "lo is no IPv4 address"},
           {{"--iface", "192.0.2.77"}, "no interface of this machine has the address 192.0.2.77"},
           {{"239.1.2.3", "25477", "more"}, "more"}}) {
    const Said said = run_tool("watch", words);
    EXPECT_EQ(said.status, 2) << complaint;
    EXPECT_EQ(said.out, "");
    EXPECT_THAT(said.err, StartsWith("quorl-watch: "));
    EXPECT_THAT(said.err, HasSubstr(complaint));
  }
}

}  // namespace
}  // namespace tools_test
