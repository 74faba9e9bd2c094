#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "day/day_clock.h"
#include "lives/whole_exchange.h"

// What the exchange does as a whole, and in which order: to its sockets, its files and standard
// error.

namespace lives {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Acts = std::vector<std::string>;

constexpr uint16_t FIX = WholeExchange::PORTS.fix;
constexpr uint16_t SNAP = WholeExchange::PORTS.snap;

/// What is done several times running stands once.
Acts without_repeats(Acts acts) {
  acts.erase(std::unique(acts.begin(), acts.end()), acts.end());
  return acts;
}

/// The position of the first act that begins so; that of the end if there is none.
size_t place_of(const Acts& acts, std::string_view beginning) {
  size_t place = 0;
  while (place < acts.size() && !acts[place].starts_with(beginning)) ++place;
  return place;
}

// --- The beginning and the end ---

TEST(WholeExchange, opens_everything_in_its_fixed_order) {
  WholeExchange exchange({"--control-port", "7003", "--truth-out", "truth.jsonl"});
  Acts acts = without_repeats(exchange.take_acts());
  for (std::string& act : acts) act = act.substr(0, act.find(" ("));  // of a line, its beginning
  const size_t market = place_of(acts, "write truth.jsonl");
  ASSERT_LT(market, acts.size());
  EXPECT_THAT(Acts(acts.begin(), acts.begin() + static_cast<std::ptrdiff_t>(market)),
              ElementsAre("udp socket", "multicast from 127.0.0.1:0",  // the feed
                          "udp socket", "bind 7004", "nonblocking",    // gap fill
                          "open truth.jsonl", "udp socket", "bind loopback 7003", "nonblocking",
                          "log bench: control on 127.0.0.1:7003"));
  const size_t ports = place_of(acts, "tcp socket");
  EXPECT_THAT(Acts(acts.begin() + static_cast<std::ptrdiff_t>(ports) - 1, acts.end()),
              ElementsAre("datagram",  // the opening has left by then
                          "tcp socket", "bind 7001", "listen 8", "nonblocking",  // FIX
                          "tcp socket", "bind 7002", "listen 8", "nonblocking",  // DEEP SNAP
                          "log [quorl] DEEP/IEX-TP 233.54.26.111:25477"));
}

TEST(WholeExchange, sends_its_feed_by_the_interface_it_was_told) {
  WholeExchange exchange({"--iface", "10.1.2.3"});
  EXPECT_THAT(exchange.take_acts(), Contains("multicast from 10.1.2.3:0"));
}

TEST(WholeExchange, writes_book_files_in_the_turns_alone) {
  WholeExchange exchange;
  exchange.begin();
  EXPECT_THAT(exchange.take_acts(), Each(Not(StartsWith("open "))));
  exchange.turn();
  EXPECT_THAT(exchange.take_acts(),
              AllOf(Contains("open book.json.tmp"), Contains("open bbo.txt.tmp")));
  day::pass_ns(1000 * day::NS_PER_MS);  // a turn would write them again
  exchange.end();
  const Acts at_the_end = exchange.take_acts();
  EXPECT_THAT(at_the_end, Contains(StartsWith("log quorl faults: ")));
  EXPECT_THAT(at_the_end, Each(Not(StartsWith("open "))));
  EXPECT_THAT(at_the_end, Each(Not(StartsWith("write "))));
  EXPECT_THAT(at_the_end, Each(Not(StartsWith("send"))));  // nothing says goodbye
}

// --- What a turn waits for ---

TEST(WholeExchange, waits_5_ms_for_its_listeners_and_all_that_stand_connected) {
  WholeExchange exchange;
  exchange.turn();
  EXPECT_THAT(exchange.waited_for, ElementsAre("FIX listener", "SNAP listener"));
  EXPECT_EQ(exchange.waited_at_most_ms, 5);
  const size_t image = exchange.network.connect(SNAP);
  exchange.network.connect(FIX);
  exchange.network.connect(SNAP);
  const size_t last = exchange.network.connect(FIX);
  exchange.turn();
  EXPECT_THAT(exchange.waited_for,
              ElementsAre("FIX listener", "SNAP listener", "FIX 0", "FIX 1", "SNAP 2", "SNAP 3"));
  EXPECT_EQ(exchange.waited_at_most_ms, 5);
  exchange.sends(image, WholeExchange::image_request());
  exchange.network.end(last, /*reset=*/false, exchange.outputs.turn());
  exchange.turn();
  EXPECT_THAT(exchange.waited_for, ElementsAre("FIX listener", "SNAP listener", "FIX 0", "SNAP 3"));
}

TEST(WholeExchange, forgets_image_connections_that_are_served_refused_or_too_old) {
  WholeExchange exchange;
  exchange.sends(exchange.network.connect(SNAP), WholeExchange::image_request());
  exchange.sends(exchange.network.connect(SNAP), {"\x01\x00q", 3});
  exchange.network.connect(SNAP);
  exchange.turn();
  EXPECT_THAT(exchange.waited_for, ElementsAre("FIX listener", "SNAP listener", "SNAP 2"));
  exchange.turn(10001);
  EXPECT_THAT(exchange.waited_for, ElementsAre("FIX listener", "SNAP listener"));
}

TEST(WholeExchange, waits_for_room_where_an_image_does_not_fit) {
  WholeExchange exchange;
  const size_t image = exchange.network.connect(SNAP);
  exchange.network.limit_sends(image, {100, 0, 50, 0});
  size_t sends = 0;
  exchange.network.on_send = [&sends](size_t, std::string_view) {
    if (++sends > 100) throw std::runtime_error("it spins");
  };
  exchange.sends(image, WholeExchange::image_request());
  EXPECT_NO_THROW(exchange.turn());
  EXPECT_THAT(exchange.waits_for_room, ElementsAre("SNAP 0 for 1000 ms", "SNAP 0 for 1000 ms"));
  EXPECT_EQ(sends, 5u);  // 100 bytes, none, 50, none, the rest
  EXPECT_TRUE(exchange.network.closed_by_exchange(image));
}

// --- Connections that it cannot take ---

TEST(WholeExchange, leaves_waiting_whom_it_cannot_accept_and_takes_them_a_turn_later) {
  for (const int error : {EMFILE, ENFILE, ECONNABORTED}) {
    for (const uint16_t port : {FIX, SNAP}) {
      SCOPED_TRACE(std::to_string(error) + " at port " + std::to_string(port));
      const std::string service = port == FIX ? "FIX" : "SNAP";
      WholeExchange exchange;
      exchange.network.connect(port);
      exchange.turn();
      exchange.take_acts();
      exchange.machine.take_log();
      exchange.network.connect(port);
      exchange.network.connect(port);
      exchange.network.fail_next_accept(port, error);
      exchange.turn();
      EXPECT_THAT(exchange.take_acts(), Not(Contains("accept " + service)));
      EXPECT_THAT(exchange.waited_for,
                  ElementsAre("FIX listener", "SNAP listener", service + " 0"));
      exchange.turn();
      EXPECT_THAT(exchange.take_acts(), Contains("accept " + service));
      EXPECT_THAT(exchange.waited_for, ElementsAre("FIX listener", "SNAP listener", service + " 0",
                                                   service + " 1", service + " 2"));
      EXPECT_EQ(exchange.machine.log, "");
    }
  }
}

TEST(WholeExchange, serves_on_while_it_can_accept_nobody) {
  WholeExchange exchange;
  const size_t alpha = exchange.logs_on("ALPHA", 30);
  exchange.network.take_received(alpha);
  exchange.network.connect(FIX);
  for (int i = 0; i < 5; ++i) {
    exchange.network.fail_next_accept(FIX);
    exchange.says(alpha, "35=1|34=" + std::to_string(2 + i) + "|49=ALPHA|56=IEXG|112=x");
    exchange.turn();
    EXPECT_EQ(exchange.network.take_received(alpha).size(), 1u);
  }
}

// --- Times ---

TEST(WholeExchange, writes_the_files_ahead_of_the_feed_s_counters_at_their_common_time) {
  WholeExchange exchange;
  exchange.turn();
  exchange.take_acts();
  exchange.turn(10000);
  const Acts acts = exchange.take_acts();
  const size_t counters = place_of(acts, "log [quorl] deep msgs ");
  ASSERT_LT(counters, acts.size());
  EXPECT_LT(place_of(acts, "open book.json.tmp"), counters);
  EXPECT_LT(place_of(acts, "open bbo.txt.tmp"), counters);
}

TEST(WholeExchange, counts_the_feed_s_silence_from_behind_its_heartbeat) {
  WholeExchange exchange;
  exchange.turn();
  exchange.network.take_feed();  // the opening
  exchange.network.on_datagram = [](day::Kind, std::string_view) { day::pass_ns(500'000'000); };
  exchange.turn(1000);
  EXPECT_EQ(exchange.network.take_feed().size(), 1u);
  exchange.turn(700);  // it left 1.2 s ago, and has been on its way for half a second
  EXPECT_THAT(exchange.network.take_feed(), IsEmpty());
  exchange.turn(400);
  EXPECT_EQ(exchange.network.take_feed().size(), 1u);
}

/// Everything that has a timer, over 600 turns of 55 ms. Ahead of each the system clock is stepped.
std::vector<Acts> half_a_minute(int64_t step_ns) {
  constexpr uint16_t CONTROL = WholeExchange::PORTS.control;
  WholeExchange exchange({"--interval-ms", "40", "--control-port", "7003"});
  const size_t alpha = exchange.logs_on("ALPHA", 1);
  exchange.logs_on("BETA", 2);     // times out
  exchange.network.connect(SNAP);  // grows too old
  uint32_t seq = 1;
  const auto send = [&](const std::string& body) {
    exchange.says(alpha, body + "|34=" + std::to_string(++seq) + "|49=ALPHA|56=IEXG");
  };
  const std::map<int, const char*> commands = {
      {0, "unsolicited_cancel 1"}, {300, "lapse 1500"}, {400, "pause"}};  // then the feed beats
  std::vector<Acts> turns;
  for (int turn = 0; turn < 600; ++turn) {
    const auto command = commands.find(turn);
    if (command != commands.end()) {
      exchange.network.send_datagram(CONTROL, command->second + std::string("\n"), 9000);
    }
    if (turn == 0) send("35=D|55=AAPL|54=1|38=100|40=2|44=180.00|59=0|18=i|11=a0");
    // The exchange has cancelled it by then: some 700 ms ago, and over 2 s ago.
    if (turn == 20 || turn == 55) send("35=F|11=c" + std::to_string(turn) + "|41=a0");
    if (turn % 10 == 5) send("35=0");
    day::step_system_clock(step_ns);
    exchange.turn(50);
    turns.push_back(exchange.take_acts());
  }
  return turns;
}

size_t count_of(const std::vector<Acts>& turns, std::string_view beginning) {
  size_t count = 0;
  for (const Acts& acts : turns) {
    count += static_cast<size_t>(
        std::count_if(acts.begin(), acts.end(),
                      [beginning](const std::string& act) { return act.starts_with(beginning); }));
  }
  return count;
}

TEST(WholeExchange, moves_no_timer_with_the_system_clock) {
  const std::vector<Acts> still = half_a_minute(0);
  constexpr int64_t NS_PER_HOUR = 3'600'000'000'000;
  for (const int64_t step_ns : {NS_PER_HOUR, -NS_PER_HOUR, int64_t{1}, int64_t{-1}}) {
    const std::vector<Acts> stepped = half_a_minute(step_ns);
    for (size_t turn = 0; turn < still.size(); ++turn) {
      ASSERT_EQ(stepped[turn], still[turn]) << "in turn " << turn << ", by " << step_ns << " ns";
    }
  }
  EXPECT_EQ(count_of(still, "log bench: unsolicited cancel of a0"), 1u);
  EXPECT_EQ(count_of(still, "log bench: stale cancel for a0 (closed more than 2 s ago)"), 1u);
  EXPECT_EQ(count_of(still, "log bench: going silent"), 1u);
  EXPECT_EQ(count_of(still, "log [quorl] client BETA timed out"), 1u);
  EXPECT_EQ(count_of(still, "close"), 2u);  // BETA, and who asked for no image
  EXPECT_EQ(count_of(still, "log bench: stats "), 16u);
  EXPECT_EQ(count_of(still, "log [quorl] deep msgs "), 3u);
  EXPECT_GT(count_of(still, "open book.json.tmp"), 100u);
}

}  // namespace
}  // namespace lives
