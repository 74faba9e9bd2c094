// New orders as the wires and files hear of them one by another, and what the market's own flow
// does to them. What is said of an order is in tests/stories/orders.story.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/tcp.h"
#include "quorl/client/temp_directory.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/stamped_receive.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixMessage;
using client::FixSession;
using client::SimulatorOptions;
using testing::ElementsAre;

/// Nothing but the counters named has moved.
void expect_counters(Exchange& exchange, const client::BenchStats& expected) {
  const client::ControlStats stats = exchange.turn();
  for (const auto& [name, value] : stats.counters) {
    const auto wanted = expected.find(name);
    EXPECT_EQ(value, wanted == expected.end() ? 0 : wanted->second) << name;
  }
}

TEST(Order, orders_are_handled_while_the_market_is_paused) {
  Exchange exchange(living());
  exchange.control().ok("pause");
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .price = "190"});
  alpha.expect_report('0');
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 190 last"));
}

TEST(Order, buy_that_crosses_part_of_the_book_takes_its_road_in_order_on_both_wires) {
  SimulatorOptions options = still();
  options.order_truth = true;
  options.market_truth = true;
  Exchange exchange(options);
  const client::SymbolBook before = exchange.book("AAPL");
  (void)exchange.news();
  ASSERT_GE(before.asks.size(), 3U);
  const auto first = before.asks.begin();
  const auto second = std::next(first);
  const uint32_t crossed = first->second + second->second;
  FixSession alpha = exchange.logs_on("ALPHA");
  const size_t message_from = exchange.feed().messages().size();
  const size_t packet_from = exchange.feed().packets().size();
  alpha.new_order({.cl_ord_id = "a1",
                   .quantity = std::to_string(crossed + 100),
                   .price = client::price_text(second->first)});

  // FIX: the acknowledgement, then one fill for each resting order, best price first.
  alpha.hears("35=8|34=2|150=0|11=a1|37=1120|17=E1|14=0");
  std::vector<FixMessage> fills;
  uint32_t filled = 0;
  while (filled < crossed) {
    fills.push_back(alpha.hears("35=8|150=1|11=a1|851=2|37=1120"));
    filled += static_cast<uint32_t>(fills.back().number(32));
    EXPECT_EQ(fills.back().number(14), filled);
    EXPECT_EQ(fills.back().number(151), crossed + 100 - filled);
  }
  alpha.hears_nothing();
  EXPECT_EQ(filled, crossed);

  // The feed: one event, a Trade Report for each fill, then the changed levels.
  const std::vector<std::string> news = exchange.news();
  ASSERT_EQ(news.size(), fills.size() + 3);
  const auto& messages = exchange.feed().messages();
  std::set<uint64_t> times;
  for (size_t i = 0; i < news.size(); ++i) {
    const auto& message = messages[message_from + i].message;
    if (i < fills.size()) {
      const auto& trade = std::get<client::TradeReport>(message);
      EXPECT_EQ(trade.trade_id, i + 1);
      EXPECT_EQ(std::to_string(trade.trade_id), fills[i].get(880));
      EXPECT_EQ(std::to_string(trade.size), fills[i].get(32));
      EXPECT_EQ(client::price_text(trade.price), fills[i].get(31));
      times.insert(trade.timestamp_ns);
    } else {
      times.insert(std::get<client::LevelUpdate>(message).timestamp_ns);
    }
  }
  EXPECT_EQ(times.size(), 1U);
  const std::vector<std::string> levels(news.end() - 3, news.end());
  EXPECT_THAT(levels, ElementsAre("5 AAPL 0 @ " + client::price_text(first->first),
                                  "5 AAPL 0 @ " + client::price_text(second->first),
                                  "8 AAPL 100 @ " + client::price_text(second->first) + " last"));
  const client::FeedPacket& packet = exchange.feed().packets()[packet_from];
  EXPECT_EQ(packet.packet.messages.size(), news.size()) << "one packet";

  // The files: each report at its composing, each level after its update.
  const auto events =
      client::parse_order_events(client::read_file(exchange.simulator().order_truth_path()));
  ASSERT_EQ(events.size(), fills.size() + 1);
  EXPECT_EQ(events[0].ev, "new");
  for (size_t i = 0; i < fills.size(); ++i) {
    EXPECT_EQ(events[i + 1].ev, "fill");
    EXPECT_EQ(std::to_string(events[i + 1].last_qty), fills[i].get(32));
    EXPECT_LE(events[i + 1].t_ns, packet.packet.header.send_time_ns) << "composed, then flushed";
  }
  EXPECT_LE(events[0].t_ns, *times.begin()) << "acknowledged before the event began";
  EXPECT_LE(*times.begin(), events[1].t_ns);
  expect_counters(
      exchange,
      {{"orders", 1}, {"accepts", 1}, {"fills", fills.size()}, {"logins", 1}, {"logons", 1}});
}

TEST(Order, feed_is_sent_before_the_reports_of_a_new_order) {
  Exchange exchange(still());
  client::UdpSocket feed =
      client::UdpSocket::in_group(exchange.ports().group, exchange.ports().feed);
  client::TcpStream fix = client::TcpStream::connect(exchange.ports().fix);
  stamp_arrivals(feed.fd());
  stamp_arrivals(fix.fd());
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  uint32_t seq = 1;
  const auto send = [&](const std::string& type, const client::FixFields& body) {
    ASSERT_TRUE(fix.send_all(client::to_bytes(client::compose_fix(
        {.type = type, .seq = std::to_string(seq++), .sender = "ALPHA", .target = "IEXG"}, body))));
  };
  send("A", {{98, "0"}, {108, "30"}});
  // The kernel begins to stamp a moment after it is asked to.
  while (receive_stamped(fix.fd(), deadline).stamp_ns == 0) send("1", {{112, "stamp?"}});
  for (int i = 1; i <= 200; ++i) {
    const std::string price = client::price_text(i * 100 + 10000);
    send("D", {{11, "a" + std::to_string(i)},
               {55, "AAPL"},
               {54, "1"},
               {38, "100"},
               {40, "2"},
               {44, price},
               {18, "i"}});
    const Stamped report = receive_stamped(fix.fd(), deadline);
    EXPECT_EQ(client::parse_fix(client::to_text(report.bytes)).get(44), price);
    Stamped packet = receive_stamped(feed.fd(), deadline);
    while (client::decode_tp_packet(packet.bytes).is_heartbeat()) {
      packet = receive_stamped(feed.fd(), deadline);
    }
    const client::TpPacket decoded = client::decode_tp_packet(packet.bytes);
    ASSERT_EQ(decoded.messages.size(), 1U);
    EXPECT_EQ(client::describe(client::decode_deep(decoded.messages[0].bytes)),
              "8 AAPL 100 @ " + price + " last");
    ASSERT_GT(packet.stamp_ns, 0);
    ASSERT_LT(packet.stamp_ns, report.stamp_ns) << "order " << i;
  }
}

TEST(Order, resting_order_hit_by_the_market_itself_is_reported_behind_the_trade) {
  Exchange exchange(living());
  exchange.control().ok("pause");
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  // Above any price at which the walk will sell: its first sell order trades against it.
  alpha.new_order({.cl_ord_id = "a1", .quantity = "100", .price = "200"});
  const std::string id = alpha.expect_report('0').get(37);
  const uint64_t fills = exchange.counter("fills");
  (void)exchange.news();
  const size_t from = exchange.feed().messages().size();
  exchange.control().ok("resume");
  const FixMessage fill = alpha.hears("35=8|150=2|39=2|11=a1|32=100|31=200|151=0|14=100|6=200");
  EXPECT_EQ(fill.get(37), id);
  EXPECT_EQ(fill.get(851) + fill.get(9730), "1ML");
  const size_t trade_at = exchange.feed().await_message(
      [](const client::DeepMessage& m) { return client::describe(m) == "T AAPL 100 @ 200"; },
      "the trade", from);
  const auto& trade = std::get<client::TradeReport>(exchange.feed().messages()[trade_at].message);
  EXPECT_EQ(fill.get(880), std::to_string(trade.trade_id));
  EXPECT_EQ(exchange.counter("fills"), fills + 1);
  EXPECT_EQ(exchange.counter("partials"), 0U);
}

TEST(Order, scripted_partial_fill_halves_each_complete_fill_by_the_market) {
  SimulatorOptions options = living();
  options.scenario = "partial_fill_every=1";
  Exchange exchange(options);
  exchange.control().ok("pause");
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  alpha.new_order({.cl_ord_id = "a1", .quantity = "200", .price = "200"});
  alpha.expect_report('0');
  bravo.new_order({.cl_ord_id = "b1", .side = "2", .quantity = "100", .price = "200"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  alpha.hears("150=1|32=100|151=100");  // another client's order is never cut
  exchange.control().ok("resume");
  uint32_t leaves = 100;
  for (const uint32_t cut : {50U, 25U, 12U, 6U, 3U, 2U, 1U}) {
    alpha.hears("35=8|150=1|39=1|11=a1|31=200|32=" + std::to_string(cut) +
                "|151=" + std::to_string(leaves - cut));
    exchange.simulator().wait_for_line("bench: partial fill of a1: " + std::to_string(cut) +
                                       " of " + std::to_string(leaves));
    leaves -= cut;
  }
  EXPECT_EQ(leaves, 1U);
  alpha.hears("35=8|150=2|39=2|11=a1|32=1|151=0|14=200|6=200");
  EXPECT_EQ(exchange.counter("partials"), 7U);
  EXPECT_EQ(exchange.count_lines("bench: partial fill of"), 7U);
}

TEST(Order, stats_of_a_run_add_up_to_its_end) {
  SimulatorOptions options = still();
  Exchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .side = "2", .quantity = "100", .price = "189.00"});
  alpha.expect_report('0');
  uint64_t fills = 0;
  for (uint64_t cum = 0; cum < 100; ++fills) cum = alpha.hears("35=8").number(14);
  alpha.new_order({.cl_ord_id = "a2", .price = "1", .tif = "3"});
  alpha.expect_report('0');
  alpha.expect_report('4');
  alpha.new_order({.cl_ord_id = "a3", .price = "1"});
  alpha.expect_report('0');
  exchange.control().ok("reject");
  alpha.new_order({.cl_ord_id = "a4", .price = "1"});
  alpha.expect_report('8');
  expect_counters(exchange, {{"orders", 4},
                             {"accepts", 3},
                             {"fills", fills},
                             {"cancels", 1},
                             {"rejects", 1},
                             {"logins", 1},
                             {"logons", 1}});
  const client::ControlStats stats = exchange.control().stats();
  EXPECT_TRUE(stats.session_up);
  exchange.simulator().terminate();
  const std::vector<std::string> lines = exchange.simulator().lines();
  EXPECT_EQ(lines[lines.size() - 2],
            "bench: stats orders=4 accepts=3 fills=" + std::to_string(fills) +
                " partials=0 cancels=1 replaces=0 rejects=1 replace_rejects=0 cancel_rejects=0 "
                "unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=1 "
                "logons=1 resend_requests=0 replays=0 replayed=0 next_seq=" +
                std::to_string(stats.next_seq));
  EXPECT_EQ(lines[lines.size() - 3], "quorl faults: sent " + std::to_string(stats.faults.sent) +
                                         " dropped 0 duplicated 0 reordered 0");
}

}  // namespace
}  // namespace e2e
