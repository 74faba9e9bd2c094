// The control port: how a datagram is read, the market's pace, marks, and the abrupt end. What
// commands make clients see is told by the stories.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "quorl/client/json_lines.h"
#include "quorl/client/temp_directory.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/one_turn.h"
#include "tests/e2e/support/watched_exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixSession;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// --- What is said to a datagram ---

TEST(ControlPort, stats_reply_is_one_line_with_the_session_at_its_end) {
  WatchedExchange exchange(still());
  const std::string zeros =
      "ok orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 replace_rejects=0 "
      "cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=0 "
      "logons=0 resend_requests=0 replays=0 replayed=0 next_seq=";
  const std::string before = exchange.control().command("stats");
  EXPECT_TRUE(before.starts_with(zeros)) << before;
  EXPECT_THAT(before.substr(zeros.size()),
              MatchesRegex("[0-9]+ quorl faults: sent [0-9]+ dropped 0 duplicated 0 reordered 0 "
                           "session=down\n"));

  FixSession alpha = exchange.logs_on("ALPHA");
  const std::string up = exchange.control().command("stats and the rest is not looked at");
  EXPECT_THAT(up, AllOf(HasSubstr(" logins=1 logons=1 "), testing::EndsWith(" session=up\n")));
  alpha.logout();
  EXPECT_FALSE(exchange.control().stats().session_up);  // a closed client is still in the list
}

TEST(ControlPort, line_loses_blanks_and_line_ends_at_its_end_but_nothing_else) {
  WatchedExchange exchange(still());
  client::ControlClient& control = exchange.control();
  EXPECT_EQ(control.command("pause\r\n"), "ok pause\n");
  EXPECT_EQ(control.command("pause \n \r "), "ok pause\n");
  EXPECT_EQ(control.command("  drop  x y\t"), "ok   drop  x y\t\n");
  EXPECT_EQ(control.command("drop\t0\n"), "ok drop\t0\n");
  EXPECT_EQ(control.command("pause resume"), "ok pause resume\n");
  EXPECT_EQ(control.command("resume\npause"), "ok resume\npause\n");
  EXPECT_EQ(control.command(std::string_view("mark a\0b c", 10)), "ok mark a\n");
  EXPECT_EQ(control.command(std::string_view("\0stats", 6)), "err unknown command ''\n");
  const uint64_t last = control.stats().next_seq - 1;
  const std::string at = " at seq " + std::to_string(last);
  EXPECT_THAT(exchange.lines(),
              ElementsAre("bench: paused" + at, "bench: paused" + at, "bench: paused" + at,
                          "bench: resumed" + at, "bench: mark a" + at + " orders 0"));
}

/// Another program bound to the wildcard address and the control port itself, as SO_REUSEADDR
/// allows, so that the exchange's answers to it come back to the exchange.
TEST(ControlPort, does_not_talk_to_itself) {
  WatchedExchange exchange(still());
  const uint16_t port = exchange.ports().control;
  client::UdpSocket twin = client::UdpSocket::on_wildcard(port);
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.ignore_so_far();
  for (const std::string text : {"HELP", "stats", "pause", "err unknown command 'err'"}) {
    twin.send_to(port, client::Bytes(text.begin(), text.end()));
  }
  EXPECT_TRUE(exchange.control().stats().session_up);  // it serves on
  alpha.test_request("still there");
  alpha.hears("35=0|112=still there");
  EXPECT_THAT(exchange.lines(), IsEmpty());  // nor has it paused
  EXPECT_EQ(exchange.simulator().terminate(), STATUS_0);
}

TEST(ControlPort, datagram_is_cut_to_511_bytes) {
  WatchedExchange exchange(still());
  const std::string label(600, 'x');
  EXPECT_EQ(exchange.control().command("mark " + label), "ok mark " + label.substr(0, 506) + "\n");
  EXPECT_EQ(exchange.control().command("mark " + label.substr(0, 506)),
            "ok mark " + label.substr(0, 506) + "\n");
  exchange.simulator().wait_for_match("bench: mark x{506} at seq [0-9]+ orders 0");
}

TEST(ControlPort, commands_that_wait_are_served_in_one_turn_ahead_of_the_orders) {
  WatchedExchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  (void)exchange.lines();
  const uint64_t last = exchange.control().stats().next_seq - 1;
  in_one_turn(exchange, {[&] { exchange.control().send("mark one"); },
                         [&] { exchange.control().send("mark two"); },
                         [&] { alpha.new_order({.cl_ord_id = "a1", .price = "100"}); }});
  alpha.hears("35=8|150=0");
  EXPECT_EQ(exchange.control().receive(client::PATIENCE), "ok mark one\n");
  EXPECT_EQ(exchange.control().receive(client::PATIENCE), "ok mark two\n");
  const std::string at = " at seq " + std::to_string(last) + " orders 0";
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: mark one" + at, "bench: mark two" + at));
}

TEST(ControlPort, empty_datagram_gets_no_answer_and_leaves_what_is_behind_it_to_the_next_turn) {
  WatchedExchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  (void)exchange.lines();
  const uint64_t last = exchange.control().stats().next_seq - 1;
  in_one_turn(exchange,
              {[&] { exchange.control().send("mark one"); }, [&] { exchange.control().send(""); },
               [&] { exchange.control().send("mark two"); },
               [&] { alpha.new_order({.cl_ord_id = "a1", .price = "100"}); }});
  alpha.hears("35=8|150=0");
  EXPECT_EQ(exchange.control().receive(client::PATIENCE), "ok mark one\n");
  EXPECT_EQ(exchange.control().receive(client::PATIENCE), "ok mark two\n");
  EXPECT_THAT(exchange.lines(),
              ElementsAre("bench: mark one at seq " + std::to_string(last) + " orders 0",
                          "bench: mark two at seq " + std::to_string(last + 1) + " orders 1"));
}

TEST(ControlPort, reply_goes_to_the_sender_of_each_datagram) {
  WatchedExchange exchange(still());
  client::ControlClient other(exchange.ports().control);
  in_one_turn(exchange,
              {[&] { exchange.control().send("mark ours"); }, [&] { other.send("mark theirs"); }});
  EXPECT_EQ(other.receive(client::PATIENCE), "ok mark theirs\n");
  EXPECT_EQ(exchange.control().receive(client::PATIENCE), "ok mark ours\n");
}

// --- The market's pace ---

/// A second without a packet, which a market that ticks cannot let pass.
void expect_standstill(Exchange& exchange) {
  client::FeedSubscriber& feed = exchange.feed();
  const client::TpHeader heartbeat = feed.packets()[feed.await_heartbeat()].packet.header;
  EXPECT_EQ(heartbeat.first_seq, exchange.control().stats().next_seq);
}

void expect_ticks(Exchange& exchange) {
  exchange.feed().await_seq(exchange.control().stats().next_seq + 20);
}

TEST(ControlPort, pause_stops_the_walk_but_not_the_orders_and_resume_lets_it_go_on) {
  WatchedExchange exchange(living({"--interval-ms", "5"}));
  FixSession alpha = exchange.logs_on("ALPHA");
  expect_ticks(exchange);
  (void)exchange.lines();
  exchange.control().ok("pause");
  const uint64_t last = exchange.control().stats().next_seq - 1;
  expect_standstill(exchange);
  EXPECT_EQ(exchange.control().stats().next_seq - 1, last);

  alpha.new_order({.cl_ord_id = "a1", .price = "100"});
  alpha.hears("35=8|150=0");
  exchange.feed().await_seq(last + 1);
  EXPECT_EQ(exchange.feed().described().back(), "8 AAPL 100 @ 100 last");
  exchange.control().ok("resume");
  expect_ticks(exchange);
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: paused at seq " + std::to_string(last),
                                            "bench: resumed at seq " + std::to_string(last + 1)));
}

/// The median time between the packets of six ticks, by the stamps of the exchange. A tick of one
/// symbol is one packet.
milliseconds pace(Exchange& exchange) {
  client::FeedSubscriber& feed = exchange.feed();
  feed.await_seq(exchange.control().stats().next_seq - 1);  // none of the former pace
  const size_t from = feed.packets().size();
  feed.await([&] { return feed.packets().size() >= from + 6; }, "five ticks");
  std::vector<uint64_t> gaps;
  for (size_t i = from + 1; i < from + 6; ++i) {
    gaps.push_back(feed.packets()[i].packet.header.send_time_ns -
                   feed.packets()[i - 1].packet.header.send_time_ns);
  }
  std::nth_element(gaps.begin(), gaps.begin() + 2, gaps.end());
  return milliseconds(gaps[2] / 1'000'000);
}

TEST(ControlPort, rate_sets_the_period_of_the_walk_and_anything_else_is_40_ms) {
  Exchange exchange(living({"--interval-ms", "-1", "--symbols", "AAPL:190"}));
  exchange.control().ok("rate 10");
  // A busy machine makes some ticks late, and none early.
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (pace(exchange) > milliseconds(25)) ASSERT_FALSE(deadline.expired());
  for (const std::string command : {"rate 0", "rate", "rate abc", "rate 4294967296"}) {
    exchange.control().ok("rate 10");
    exchange.control().ok(command);
    EXPECT_GE(pace(exchange), milliseconds(35)) << command;
  }
  exchange.control().ok("rate -1");
  expect_standstill(exchange);
  exchange.control().ok("rate 10");
  expect_ticks(exchange);
}

// --- Marks ---

TEST(ControlPort, mark_stands_in_the_market_truth_file_behind_all_that_came_before_it) {
  client::SimulatorOptions options = living({"--interval-ms", "5"});
  options.market_truth = true;
  WatchedExchange exchange(options);
  const auto truths = [&] {
    return client::parse_market_truths(client::read_file(exchange.simulator().market_truth_path()));
  };
  for (const auto& [command, label] : std::vector<std::pair<std::string, std::string>>{
           {"mark first and more", "first"}, {"mark\tsecond", "second"}, {"mark", ""}}) {
    expect_ticks(exchange);
    exchange.control().ok("pause");
    const uint64_t last = exchange.control().stats().next_seq - 1;
    const size_t line = exchange.simulator().line_count();
    exchange.control().ok(command);
    const auto lines = truths();
    const auto* mark = std::get_if<client::MarkLine>(&lines.back());
    ASSERT_NE(mark, nullptr) << command;
    EXPECT_EQ(mark->label, label);
    EXPECT_EQ(mark->seq, last);
    const auto* book = std::get_if<client::BookLine>(&lines.at(lines.size() - 2));
    ASSERT_NE(book, nullptr) << command;
    EXPECT_LE(book->seq, last);
    exchange.feed().await_seq(last);
    const auto& updates = exchange.feed().messages();
    const auto newest = std::find_if(updates.rbegin(), updates.rend(), [](const auto& m) {
      return std::holds_alternative<client::LevelUpdate>(m.message);
    });
    EXPECT_EQ(book->seq, newest->seq) << command;
    exchange.simulator().wait_for_line(
        "bench: mark " + label + " at seq " + std::to_string(last) + " orders 0", line);
    exchange.control().ok("resume");
  }
}

TEST(ControlPort, mark_counts_the_orders_of_the_run) {
  WatchedExchange exchange(still());  // no truth file: the line is printed all the same
  FixSession alpha = exchange.logs_on("ALPHA");
  for (const std::string id : {"a1", "a2"}) {
    alpha.new_order({.cl_ord_id = id, .price = "100"});
    alpha.hears("35=8|150=0");
  }
  alpha.new_order({.cl_ord_id = "a3", .symbol = "NONSUCH", .price = "100"});
  alpha.hears("35=8|150=8");
  const uint64_t last = exchange.control().stats().next_seq - 1;
  exchange.control().ok("mark x");
  exchange.simulator().wait_for_line("bench: mark x at seq " + std::to_string(last) + " orders 2");
}

// --- Lapse ---

/// The milliseconds of the line that announces a lapse.
uint64_t announced_ms(Exchange& exchange, size_t from) {
  const std::string head = "bench: going silent for ";
  return std::stoull(exchange.simulator().wait_for_line(head, from).substr(head.size()));
}

TEST(ControlPort, lapse_of_no_length_is_one_of_20_seconds_and_another_replaces_it) {
  WatchedExchange exchange(still());
  size_t from = exchange.simulator().line_count();
  exchange.control().ok("lapse");
  const uint64_t announced = announced_ms(exchange, from);
  EXPECT_LE(announced, 20000U);
  EXPECT_GT(announced, 15000U);
  from = exchange.simulator().line_count();
  exchange.control().ok("lapse 30000");
  EXPECT_GT(announced_ms(exchange, from), 20000U);
}

TEST(ControlPort, lapse_ends_by_itself_when_its_time_is_over) {
  WatchedExchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.continuity = client::Continuity::TRACK;
  const auto before = std::chrono::steady_clock::now();
  exchange.control().send("lapse 300");
  EXPECT_EQ(exchange.control().receive(client::PATIENCE), "ok lapse 300\n");
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  for (;;) {
    ASSERT_FALSE(deadline.expired());
    alpha.test_request("are you there");
    if (alpha.receive(milliseconds(20))) break;
  }
  EXPECT_GE(std::chrono::steady_clock::now() - before, milliseconds(299));
}

// --- The end ---

TEST(ControlPort, stop_answers_without_a_line_end_and_leaves_at_once_with_status_0) {
  client::SimulatorOptions options = still();
  options.market_truth = true;
  WatchedExchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .price = "100"});
  alpha.hears("35=8|150=0");
  exchange.control().ok("mark end");
  exchange.control().ok("drop 1");
  alpha.new_order({.cl_ord_id = "a2", .price = "100.01"});
  alpha.hears("35=8|150=0");
  exchange.simulator().wait_for_line("quorl fault: dropped seq ");
  const client::FaultStats faults = exchange.control().stats().faults;
  const size_t from = exchange.simulator().line_count();

  EXPECT_EQ(exchange.control().command("stop now"), "ok stopping");
  EXPECT_EQ(exchange.simulator().wait_exit(), STATUS_0);
  alpha.expect_closed();
  std::vector<std::string> rest = exchange.simulator().lines();
  rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(from));
  std::erase_if(rest, [](const std::string& line) { return line.starts_with("bench: stats "); });
  EXPECT_THAT(rest, ElementsAre("quorl faults: sent " + std::to_string(faults.sent) +
                                " dropped 1 duplicated 0 reordered 0"));

  // What a client has been told is on disk; what the market did behind the last mark is not.
  EXPECT_THAT(described(exchange.events()),
              ElementsAre("new a1 AAPL B 100 @ 100 cum 0 leaves 100 last 0",
                          "new a2 AAPL B 100 @ 100.01 cum 0 leaves 100 last 0"));
  const auto truths =
      client::parse_market_truths(client::read_file(exchange.simulator().market_truth_path()));
  const auto* mark = std::get_if<client::MarkLine>(&truths.back());
  ASSERT_NE(mark, nullptr);
  EXPECT_EQ(mark->label, "end");
  EXPECT_EQ(std::get<client::BookLine>(truths.at(truths.size() - 2)).seq, mark->seq);
}

}  // namespace
}  // namespace e2e
