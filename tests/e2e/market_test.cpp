// The market without any client: its opening byte for byte, its walk, the book its feed shows, its
// heartbeats and its periodic lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/snap_client.h"
#include "quorl/client/stats_text.h"
#include "quorl/client/tcp.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::Bytes;
using client::DeepMessage;
using client::FeedMessage;
using client::FeedPacket;
using client::FeedSubscriber;
using client::LevelUpdate;
using client::Price4;
using client::Simulator;
using client::SimulatorOptions;
using client::TradeReport;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

// The layouts, field by field.

Bytes begin_message(char type, uint8_t second, uint64_t timestamp_ns) {
  Bytes bytes;
  client::put_u8(bytes, static_cast<uint8_t>(type));
  client::put_u8(bytes, second);
  client::put_u64(bytes, timestamp_ns);
  return bytes;
}

Bytes system_event(char event, uint64_t timestamp_ns) {
  return begin_message('S', static_cast<uint8_t>(event), timestamp_ns);
}

Bytes about(char type, uint8_t second, uint64_t timestamp_ns, std::string_view symbol) {
  Bytes bytes = begin_message(type, second, timestamp_ns);
  client::put_padded(bytes, symbol, 8, ' ');
  return bytes;
}

Bytes security_directory(uint64_t timestamp_ns, std::string_view symbol, uint64_t close) {
  Bytes bytes = about('D', 0, timestamp_ns, symbol);
  client::put_u32(bytes, 100);
  client::put_u64(bytes, close);
  client::put_u8(bytes, 1);
  return bytes;
}

Bytes trading_status(uint64_t timestamp_ns, std::string_view symbol) {
  Bytes bytes = about('H', 'T', timestamp_ns, symbol);
  client::put_text(bytes, "    ");
  return bytes;
}

Bytes halt_status(uint64_t timestamp_ns, std::string_view symbol) {
  return about('O', 'N', timestamp_ns, symbol);
}

Bytes short_sale_status(uint64_t timestamp_ns, std::string_view symbol) {
  Bytes bytes = about('P', 0, timestamp_ns, symbol);
  client::put_text(bytes, " ");
  return bytes;
}

Bytes retail_liquidity(uint64_t timestamp_ns, std::string_view symbol) {
  return about('I', ' ', timestamp_ns, symbol);
}

Bytes security_event(uint64_t timestamp_ns, std::string_view symbol) {
  return about('E', 'O', timestamp_ns, symbol);
}

Bytes level_update(const LevelUpdate& update) {
  Bytes bytes = about(update.buy ? '8' : '5', update.last_of_event ? 1 : 0, update.timestamp_ns,
                      update.symbol);
  client::put_u32(bytes, update.size);
  client::put_u64(bytes, static_cast<uint64_t>(update.price));
  return bytes;
}

Bytes trade_report(const TradeReport& trade) {
  Bytes bytes = about('T', trade.size <= 99 ? 0x20 : 0, trade.timestamp_ns, trade.symbol);
  client::put_u32(bytes, trade.size);
  client::put_u64(bytes, static_cast<uint64_t>(trade.price));
  client::put_u64(bytes, trade.trade_id);
  return bytes;
}

uint64_t timestamp_of(const Bytes& message) {
  client::ByteReader reader(message, "message");
  (void)reader.take(2, "type and flags");
  return reader.u64("timestamp");
}

/// The opening of a market of these symbols and closes, as its first messages show it.
void expect_opening(const std::vector<FeedMessage>& messages,
                    const std::vector<std::pair<std::string, Price4>>& listed) {
  ASSERT_FALSE(messages.empty());
  const uint64_t t = timestamp_of(messages.front().bytes);
  size_t at = 0;
  const auto expect_next = [&](const Bytes& expected) {
    ASSERT_LT(at, messages.size());
    EXPECT_EQ(client::hex(messages[at].bytes), client::hex(expected)) << "message " << at;
    EXPECT_EQ(messages[at].seq, at + 1);
    ++at;
  };
  const auto expect_for_each = [&](const std::function<Bytes(const std::string&, Price4)>& build) {
    for (const auto& [symbol, close] : listed) expect_next(build(symbol, close));
  };
  expect_next(system_event('O', t));
  expect_for_each([t](const std::string& symbol, Price4 close) {
    return security_directory(t, symbol, static_cast<uint64_t>(close));
  });
  expect_for_each([t](const std::string& symbol, Price4) { return trading_status(t, symbol); });
  expect_for_each([t](const std::string& symbol, Price4) { return halt_status(t, symbol); });
  expect_for_each([t](const std::string& symbol, Price4) { return short_sale_status(t, symbol); });
  expect_for_each([t](const std::string& symbol, Price4) { return retail_liquidity(t, symbol); });
  expect_next(system_event('S', t));
  expect_next(system_event('R', t));

  client::BookBuilder book;
  uint64_t latest = t;
  for (const auto& [symbol, close] : listed) {
    size_t events = 0;
    for (; at < messages.size() && client::symbol_of(messages[at].message) == symbol; ++at) {
      const FeedMessage& message = messages[at];
      EXPECT_EQ(message.seq, at + 1);
      EXPECT_GE(timestamp_of(message.bytes), latest);
      latest = timestamp_of(message.bytes);
      if (const auto* update = std::get_if<LevelUpdate>(&message.message)) {
        EXPECT_EQ(client::hex(message.bytes), client::hex(level_update(*update)));
        EXPECT_EQ(update->size % 100, 0U);
        EXPECT_EQ((update->price - close) % 100, 0);
        if (update->buy) {
          EXPECT_LE(update->price, close - 100);
          EXPECT_GE(update->price, close - 1000);
        } else {
          EXPECT_GE(update->price, close);
          EXPECT_LE(update->price, close + 900);
        }
        if (update->last_of_event) ++events;
      } else {
        // An opening order never reaches the other side: both begin around one point.
        EXPECT_EQ(client::describe(message.message), "E " + symbol);
        break;
      }
      book.apply(message.message);
    }
    EXPECT_EQ(events, 40U) << symbol;
    EXPECT_FALSE(book.book(symbol).bids.empty()) << symbol;
    EXPECT_FALSE(book.book(symbol).asks.empty()) << symbol;
  }
  for (const auto& [symbol, close] : listed) {
    ASSERT_LT(at, messages.size());
    EXPECT_GE(timestamp_of(messages[at].bytes), latest);
    latest = timestamp_of(messages[at].bytes);
    expect_next(security_event(latest, symbol));
  }
  EXPECT_EQ(at, messages.size());
}

/// True header values follow from what came before; in an opening, a packet begun by a batch of
/// level updates announces its true first number, and any other but the first one too many.
void expect_opening_packets(const std::vector<FeedPacket>& packets, uint32_t session) {
  uint64_t seq = 1;
  uint64_t offset = 0;
  for (const FeedPacket& packet : packets) {
    const client::TpHeader& header = packet.packet.header;
    if (packet.packet.is_heartbeat()) continue;
    const char first = static_cast<char>(packet.packet.messages.front().bytes.front());
    const bool one_too_high = seq > 1 && first != '8' && first != '5';
    EXPECT_EQ(header.first_seq, one_too_high ? seq + 1 : seq) << "begun by " << first;
    EXPECT_EQ(header.stream_offset, offset);
    EXPECT_EQ(header.session_id, session);
    EXPECT_LE(packet.raw.bytes.size(), 1500U);
    client::ByteReader reader(packet.raw.bytes, "packet");
    EXPECT_EQ(client::hex(reader.take(8, "head")), "01 00 04 80 01 00 00 00");
    seq += header.message_count;
    offset += header.payload_length;
  }
}

TEST(Market, opening_of_the_default_symbols_stands_byte_for_byte) {
  Exchange exchange(still());
  (void)exchange.book();
  expect_opening(exchange.feed().messages(),
                 {{"AAPL", 1900000}, {"MSFT", 4100000}, {"SPY", 5200000}});
  expect_opening_packets(exchange.feed().packets(), exchange.simulator().session());
  const client::TpHeader& first = exchange.feed().packets().front().packet.header;
  EXPECT_EQ(first.first_seq, 1U);
  EXPECT_EQ(first.stream_offset, 0U);
}

TEST(Market, opening_statuses_of_twenty_symbols_overflow_into_a_packet_numbered_one_too_high) {
  std::string symbols;
  std::vector<std::pair<std::string, Price4>> listed;
  for (int i = 0; i < 20; ++i) {
    const std::string symbol = "S" + std::to_string(i);
    symbols += (i == 0 ? "" : ",") + symbol + ":" + std::to_string(100 + i) + ".25";
    listed.emplace_back(symbol, (100 + i) * 10000 + 2500);
  }
  Exchange exchange(still({"--symbols", symbols}));
  (void)exchange.book();
  expect_opening(exchange.feed().messages(), listed);
  const auto& packets = exchange.feed().packets();
  expect_opening_packets(packets, exchange.simulator().session());
  EXPECT_EQ(packets[1].packet.header.first_seq,
            packets[0].packet.header.message_count + uint64_t{2});
  EXPECT_EQ(packets[1].packet.messages.front().bytes.front(), 'O');
}

TEST(Market, long_symbol_is_cut_on_the_wire_and_whole_to_clients_and_in_the_truth) {
  SimulatorOptions options = still({"--symbols", "LONGSYMBOL1:10,EXACTLY8"});
  options.market_truth = true;
  Exchange exchange(options);
  (void)exchange.book();
  expect_opening(exchange.feed().messages(), {{"LONGSYMB", 100000}, {"EXACTLY8", 1000000}});
  client::FixSession session = exchange.logs_on("ALPHA");
  session.new_order({.cl_ord_id = "a1", .symbol = "LONGSYMB", .price = "1"});
  session.hears("35=8|150=8|55=LONGSYMB|58=UnknownSymbol");
  session.new_order({.cl_ord_id = "a2", .symbol = "LONGSYMBOL1", .price = "1"});
  session.hears("35=8|150=0|55=LONGSYMBOL1");
  exchange.simulator().terminate();
  EXPECT_THAT(client::read_file(exchange.simulator().market_truth_path()),
              testing::StartsWith("{\"seq\":14,\"secid\":1,\"symbol\":\"LONGSYMBOL1\",\"bid\":["));
}

// A market's messages with the timestamps blanked.
std::vector<std::string> timeless(const std::vector<FeedMessage>& messages) {
  std::vector<std::string> texts;
  for (const FeedMessage& message : messages) {
    Bytes bytes = message.bytes;
    std::fill(bytes.begin() + 2, bytes.begin() + 10, uint8_t{0});
    texts.push_back(std::to_string(message.seq) + ": " + client::hex(bytes));
  }
  return texts;
}

/// Ticks seen so far. The loop rests for up to 5 ms between two ticks, so packets closer together
/// belong to one.
size_t ticks(const FeedSubscriber& feed) {
  constexpr uint64_t WITHIN_ONE_TICK_NS = 2000000;
  size_t count = 0;
  uint64_t previous_ns = 0;
  for (const FeedPacket& packet : feed.packets()) {
    const uint64_t sent_ns = packet.packet.header.send_time_ns;
    if (sent_ns - previous_ns > WITHIN_ONE_TICK_NS) ++count;
    previous_ns = sent_ns;
  }
  return count;
}

TEST(Market, same_seed_walks_the_same_market_for_a_thousand_ticks) {
  SimulatorOptions options = living({"--interval-ms", "0", "--seed", "7"});
  options.control_port = false;
  Simulator left(options);
  options.arguments[1] = "1";  // the pace of the ticks does not matter
  Simulator right(options);
  FeedSubscriber left_feed(left.ports().group, left.ports().feed);
  FeedSubscriber right_feed(right.ports().group, right.ports().feed);
  left.start();
  right.start();
  left_feed.expect_session(left.session());
  right_feed.expect_session(right.session());
  const auto both_far_enough = [&] {
    right_feed.pump();
    return ticks(left_feed) > 1100 && ticks(right_feed) > 1100;
  };
  left_feed.await(both_far_enough, "1100 ticks", seconds(90));
  std::vector<std::string> of_left = timeless(left_feed.messages());
  std::vector<std::string> of_right = timeless(right_feed.messages());
  const size_t common = std::min(of_left.size(), of_right.size());
  ASSERT_GT(common, 10000U);
  for (size_t i = 0; i < common; ++i) ASSERT_EQ(of_left[i], of_right[i]) << "message " << i;
}

TEST(Market, seeds_part_ways_at_the_opening_and_42_is_the_default) {
  std::vector<std::vector<std::string>> openings;
  for (const std::vector<std::string>& seed :
       {std::vector<std::string>{}, {"--seed", "42"}, {"--seed", "43"}, {"--seed", "-1"}}) {
    Exchange exchange(still(seed));
    (void)exchange.book();
    openings.push_back(timeless(exchange.feed().messages()));
  }
  EXPECT_EQ(openings[0], openings[1]);
  EXPECT_NE(openings[1], openings[2]);
  EXPECT_NE(openings[1], openings[3]);
  EXPECT_NE(openings[2], openings[3]);
}

TEST(Market, negative_interval_stops_the_walk_and_a_rate_brings_it_back) {
  Exchange exchange(still());
  (void)exchange.book();
  exchange.feed().await_heartbeat();
  const size_t before = exchange.feed().messages().size();
  exchange.feed().await_heartbeat();
  EXPECT_EQ(exchange.feed().messages().size(), before);
  exchange.control().ok("rate 10");
  exchange.feed().await([&] { return exchange.feed().messages().size() > before + 200; },
                        "a living market");
  (void)exchange.book();
}

/// Header values of a heartbeat, and that a second has passed since the packet before it.
void expect_heartbeat(const FeedPacket& packet, const FeedPacket& previous, uint64_t next_seq,
                      uint64_t offset) {
  const client::TpHeader& header = packet.packet.header;
  EXPECT_EQ(packet.raw.bytes.size(), 40U);
  EXPECT_EQ(header.message_count, 0U);
  EXPECT_EQ(header.payload_length, 0U);
  EXPECT_EQ(header.first_seq, next_seq);
  EXPECT_EQ(header.stream_offset, offset);
  const uint64_t silence_ns = header.send_time_ns - previous.packet.header.send_time_ns;
  EXPECT_GE(silence_ns, 995000000U);  // whole milliseconds of another clock
}

TEST(Market, heartbeat_follows_each_silent_second_and_counts_nowhere) {
  Exchange exchange(living());
  exchange.control().ok("pause");
  const client::ControlStats paused = exchange.control().stats();
  exchange.feed().await_seq(paused.next_seq - 1);
  const size_t first = exchange.feed().await_heartbeat();
  exchange.feed().await_heartbeat();
  const size_t third = exchange.feed().await_heartbeat();
  const auto& packets = exchange.feed().packets();
  ASSERT_EQ(third, first + 2) << "nothing but heartbeats while the market is paused";
  for (size_t i = first; i <= third; ++i) {
    expect_heartbeat(packets[i], packets[i - 1], paused.next_seq,
                     packets[first - 1].packet.end_offset());
  }
  EXPECT_EQ(exchange.control().stats().faults, paused.faults);

  const size_t before = exchange.feed().messages().size();
  exchange.control().ok("resume");
  exchange.feed().await([&] { return exchange.feed().messages().size() > before; }, "the walk");
  exchange.simulator().wait_for_line("bench: paused at seq " + std::to_string(paused.next_seq - 1));
  exchange.simulator().wait_for_line("bench: resumed at seq " +
                                     std::to_string(paused.next_seq - 1));
}

/// However lively the market, a heartbeat follows a second in which no packet went out.
void expect_heartbeats_only_in_silence(const FeedSubscriber& feed) {
  const auto& packets = feed.packets();
  for (size_t i = 1; i < packets.size(); ++i) {
    if (!packets[i].packet.is_heartbeat()) continue;
    const client::TpPacket& previous = packets[i - 1].packet;
    expect_heartbeat(packets[i], packets[i - 1], *feed.true_first_seq(packets[i]),
                     previous.end_offset());
  }
}

template <typename Levels>
std::string truth_levels(const Levels& levels) {
  std::string text;
  size_t count = 0;
  for (const auto& [price, size] : levels) {
    if (++count > 10) break;
    char entry[64];
    std::snprintf(entry, sizeof entry, "%s[%.4f,%u]", count > 1 ? "," : "",
                  static_cast<double>(price) / 10000.0, size);
    text += entry;
  }
  return text;
}

/// The line of the market truth that belongs to a level update.
std::string truth_line(uint64_t seq, size_t secid, const std::string& symbol,
                       const client::SymbolBook& book) {
  return "{\"seq\":" + std::to_string(seq) + ",\"secid\":" + std::to_string(secid) +
         ",\"symbol\":\"" + symbol + "\",\"bid\":[" + truth_levels(book.bids) + "],\"ask\":[" +
         truth_levels(book.asks) + "]}";
}

/// Lets the market live for `span`, ends it, and holds the book rebuilt from the feed to what the
/// exchange wrote down as shown, after every single update; at the end the whole books are
/// compared.
void expect_rebuilt_book_to_equal_the_shown_one(std::vector<std::string> arguments,
                                                milliseconds span, size_t least_updates) {
  SimulatorOptions options = living(std::move(arguments));
  options.market_truth = true;
  Exchange exchange(options);
  FeedSubscriber& feed = exchange.feed();
  feed.wait_until([] { return false; }, span);
  exchange.control().ok("pause");
  const client::SnapImage image =
      client::SnapClient(exchange.ports().snap, exchange.simulator().session()).image();
  const client::BookBuilder& at_end = exchange.book();
  EXPECT_EQ(feed.last_seq(), image.seq);
  EXPECT_EQ(client::compare_levels(image.book().books(), at_end.books()), "");
  ASSERT_EQ(exchange.simulator().terminate().code, 0);
  expect_heartbeats_only_in_silence(feed);

  const std::map<std::string, size_t> secids = {{"AAPL", 1}, {"MSFT", 2}, {"SPY", 3}};
  std::istringstream truth(client::read_file(exchange.simulator().market_truth_path()));
  client::BookBuilder book;
  std::string line;
  size_t updates = 0;
  size_t events = 0;
  for (const FeedMessage& message : feed.messages()) {
    book.apply(message.message);
    if (const auto* trade = std::get_if<TradeReport>(&message.message)) {
      ASSERT_EQ(message.bytes, trade_report(*trade));
    }
    const auto* update = std::get_if<LevelUpdate>(&message.message);
    if (update == nullptr) continue;
    ASSERT_EQ(message.bytes, level_update(*update));
    ++updates;
    if (update->last_of_event) ++events;
    ASSERT_TRUE(std::getline(truth, line)) << "no truth line for number " << message.seq;
    ASSERT_EQ(line, truth_line(message.seq, secids.at(update->symbol), update->symbol,
                               book.book(update->symbol)));
  }
  EXPECT_FALSE(std::getline(truth, line)) << "behind the last update: " << line;
  EXPECT_GT(updates, least_updates);
  EXPECT_GT(events, least_updates / 4);
  EXPECT_GT(book.last_trade_id(), 0U);
  for (const auto& [symbol, shown] : book.books()) EXPECT_GT(shown.volume, 0U) << symbol;
}

TEST(Market, rebuilt_book_equals_the_shown_one_at_every_update_for_a_minute) {
  expect_rebuilt_book_to_equal_the_shown_one({}, seconds(60), 10000);
}

TEST(Market, rebuilt_book_equals_the_shown_one_at_every_update_of_the_fastest_walk) {
  expect_rebuilt_book_to_equal_the_shown_one({"--interval-ms", "0"}, seconds(5), 3000);
}

TEST(Market, stats_line_comes_each_two_seconds_with_a_control_port) {
  const auto before = steady_clock::now();
  Exchange exchange(still());
  size_t from = 0;
  for (int i = 1; i <= 3; ++i) {
    const std::string line = exchange.simulator().wait_for_line("bench: stats ", from);
    EXPECT_GE(steady_clock::now() - before, milliseconds(2000 * i - 10));
    const std::vector<std::string> lines = exchange.simulator().lines();
    from = static_cast<size_t>(
               std::find(lines.begin() + static_cast<ptrdiff_t>(from), lines.end(), line) -
               lines.begin()) +
           1;
    const client::ControlStats stats = client::parse_control_stats(line.substr(13));
    EXPECT_EQ(stats["orders"], 0U);
    EXPECT_FALSE(stats.session_up);
  }
  EXPECT_EQ(exchange.control().command("stats"),
            "ok " + exchange.simulator().wait_for_line("bench: stats ", from - 1).substr(13) + "\n")
      << "the market stands still, so nothing has changed since the line";
}

TEST(Market, any_rule_of_the_scenario_arms_the_stats_line_even_one_that_never_fires) {
  SimulatorOptions options = still();
  options.control_port = false;
  options.scenario = "lapse_ms=-5";
  Simulator simulator(options);
  simulator.start();
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon();
  const std::string line = simulator.wait_for_line("bench: stats ");
  const client::ControlStats stats = client::parse_control_stats(line.substr(13));
  EXPECT_EQ(stats["logons"], 1U);
  EXPECT_TRUE(stats.session_up);
  EXPECT_EQ(simulator.count_lines("going silent"), 0U);
}

TEST(Market, feed_line_comes_after_ten_seconds_always_and_alone) {
  SimulatorOptions options = still({"--quiet"});
  options.control_port = false;
  options.scenario = "name=calm";  // arms no rule
  Simulator simulator(options);
  FeedSubscriber feed(simulator.ports().group, simulator.ports().feed);
  const auto before = steady_clock::now();
  simulator.start();
  feed.expect_session(simulator.session());
  client::TcpStream::connect(simulator.ports().fix).close();
  const std::string disconnected = simulator.wait_for_line("bench: client  disconnected (");
  const std::string feed_line = simulator.wait_for_line("[quorl] deep msgs ", 0, seconds(30));
  EXPECT_GE(steady_clock::now() - before, milliseconds(9990));
  feed.pump();

  const client::DeepStats stats = client::parse_deep_stats_line(feed_line);
  const auto sent = static_cast<uint64_t>(
      std::count_if(feed.packets().begin(), feed.packets().end(),
                    [](const FeedPacket& packet) { return !packet.packet.is_heartbeat(); }));
  EXPECT_EQ(stats.messages, feed.messages().size());
  EXPECT_EQ(stats.packets, sent);
  EXPECT_EQ(stats.dropped, 0U);
  EXPECT_EQ(stats.gap_fills, 0U);
  EXPECT_EQ(stats.snapshots, 0U);
  EXPECT_EQ(stats.clients, 1U) << "a closed connection counts too";
  EXPECT_EQ(disconnected, "bench: client  disconnected (" + std::to_string(stats.resting) +
                              " resting order(s) kept)");

  simulator.wait_for_line("quorl faults: ");
  const std::vector<std::string> lines = simulator.lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_THAT(lines[0], HasSubstr("bench: scenario 'calm' armed ("));
  EXPECT_EQ(lines[1], simulator.banner());
  EXPECT_EQ(lines[4],
            "quorl faults: sent " + std::to_string(sent) + " dropped 0 duplicated 0 reordered 0");
}

}  // namespace
}  // namespace e2e
