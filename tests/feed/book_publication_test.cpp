#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "feed/tp_publisher.h"
#include "market/engine.h"
#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"
#include "support/udp_inbox.h"

// Engine::publish_dirty and Engine::open_market.

namespace quorl {
namespace {

using test::BUYS;
using test::Exchange;
using test::FeedMessage;
using test::FeedPacket;
using test::hex;
using test::price4;
using test::SELLS;
using test::shown_levels;
using test::state_of;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::SizeIs;

constexpr uint64_t T = test::START_SYSTEM_NS;  // 15 CD 85 3D FE 9C 97 17 on the wire

test::Bytes bytes_of(const std::string& text) { return {text.begin(), text.end()}; }

std::string text_of(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

/// A file that goes with the test.
struct TemporaryFile {
  TemporaryFile() {
    std::string name = testing::TempDir() + "quorl_feed_XXXXXX";
    const int fd = ::mkstemp(name.data());
    EXPECT_GE(fd, 0);
    ::close(fd);
    path = name;
  }
  ~TemporaryFile() { std::filesystem::remove(path); }
  std::filesystem::path path;
};

/// A market of one empty book whose events are spelled out.
struct Market {
  /// Part of an event that the caller has begun.
  uint64_t buy(const std::string& price, uint32_t shares) {
    return test::rest_synthetic(engine, stock, BUYS, price4(price), shares);
  }
  uint64_t sell(const std::string& price, uint32_t shares) {
    return test::rest_synthetic(engine, stock, SELLS, price4(price), shares);
  }
  void withdraw(uint64_t id) { test::withdraw_order(engine, id); }

  void begin() { engine.begin_event(); }
  void publish() { engine.publish_dirty(stock); }

  /// One message of our own that leaves the packet under assembly `bytes` long.
  void fill_packet_to(size_t bytes) {
    const std::string message(bytes - 42, 'x');
    exchange.publisher.append(message.data(), message.size());
  }

  Exchange exchange{"AAPL:190.00"};
  Engine& engine = exchange.engine;
  Stock& stock = exchange.stock();
  TpPublisher& publisher = exchange.publisher;
};

// --- publish_dirty ---

TEST(BookPublication, a_batch_byte_by_byte) {
  Market market;
  market.begin();
  market.buy("190.00", 300);
  market.sell("190.01", 200);
  test::advance_ms(5);  // the messages carry the time of the event, not of their publication
  market.publish();
  const auto messages = market.exchange.feed();
  ASSERT_THAT(messages, SizeIs(2));
  EXPECT_EQ(bytes_of(messages[0].bytes), hex("35 00 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"
                                             "C8 00 00 00 44 FE 1C 00 00 00 00 00"));
  EXPECT_EQ(bytes_of(messages[1].bytes), hex("38 01 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20"
                                             "2C 01 00 00 E0 FD 1C 00 00 00 00 00"));
}

TEST(BookPublication, a_batch_of_three_has_flags_0_0_1_sells_ascending_before_buys_ascending) {
  Market market;
  market.begin();
  market.buy("190.00", 100);
  market.sell("190.02", 100);
  market.sell("190.01", 100);
  market.publish();
  market.exchange.feed_shows({"5 100 @ 190.01", "5 100 @ 190.02", "8 100 @ 190.00 last"});
}

TEST(BookPublication, the_last_update_is_the_highest_changed_bid) {
  Market market;
  market.begin();
  for (const char* price : {"190.00", "189.90", "189.95"}) market.buy(price, 100);
  market.publish();
  market.exchange.feed_shows({"8 100 @ 189.90", "8 100 @ 189.95", "8 100 @ 190.00 last"});
}

TEST(BookPublication, the_flag_goes_to_the_last_change_and_not_to_the_last_touched_price) {
  Market market;
  market.exchange.rests({"AAPL buy 100 @ 100.01"});
  market.begin();
  market.buy("100.00", 200);
  market.withdraw(market.buy("100.01", 50));
  market.publish();
  market.exchange.feed_shows({"8 200 @ 100.00 last"});
}

TEST(BookPublication, a_size_is_the_sum_of_all_that_rests_at_the_price) {
  Market market;
  market.begin();
  market.buy("190.00", 100);
  market.buy("190.00", 250);
  market.publish();
  market.begin();
  market.buy("190.00", 1);
  market.publish();
  market.exchange.feed_shows({"8 350 @ 190.00 last", "8 351 @ 190.00 last"});
  EXPECT_THAT(shown_levels(market.engine, market.stock, BUYS), ElementsAre(Pair(1900000, 351)));
}

TEST(BookPublication, an_order_that_has_left_its_queue_counts_nothing_more) {
  Market market;
  market.begin();
  market.buy("190.00", 100);
  const uint64_t leaver = market.buy("190.00", 250);
  market.publish();
  market.begin();
  market.withdraw(leaver);
  market.publish();
  market.begin();
  market.buy("190.00", 50);
  market.publish();
  market.exchange.feed_shows({"8 350 @ 190.00 last", "8 100 @ 190.00 last", "8 150 @ 190.00 last"});
}

TEST(BookPublication, a_level_that_is_gone_shows_size_0_and_leaves_the_shown_map) {
  Market market;
  market.begin();
  const uint64_t bid = market.buy("190.00", 100);
  const uint64_t offer = market.sell("190.05", 100);
  market.publish();
  market.begin();
  market.withdraw(bid);
  market.withdraw(offer);
  market.publish();
  market.exchange.feed_shows({"5 100 @ 190.05", "8 100 @ 190.00 last",  //
                              "5 0 @ 190.05", "8 0 @ 190.00 last"});
  EXPECT_THAT(shown_levels(market.engine, market.stock, BUYS), IsEmpty());
  EXPECT_THAT(shown_levels(market.engine, market.stock, SELLS), IsEmpty());
}

TEST(BookPublication, an_order_that_comes_and_goes_within_one_event_publishes_nothing) {
  Market market;
  market.begin();
  market.withdraw(market.buy("190.00", 100));
  market.publish();
  market.exchange.feed_shows({});
  EXPECT_EQ(state_of(market.publisher).next_seq, 1u);
}

TEST(BookPublication, a_total_that_stays_as_it_was_publishes_nothing_for_its_price) {
  Market market;
  const auto ids = market.exchange.rests({"AAPL buy 100 @ 190.00"});
  market.begin();
  market.withdraw(ids[0]);
  market.buy("190.00", 100);
  market.sell("190.10", 500);
  market.publish();
  market.exchange.feed_shows({"5 500 @ 190.10 last"});
}

TEST(BookPublication, what_has_been_published_is_not_published_again) {
  Market market;
  market.begin();
  market.buy("190.00", 100);
  market.publish();
  market.publish();
  market.begin();
  market.sell("190.05", 100);
  market.publish();
  market.exchange.feed_shows({"8 100 @ 190.00 last", "5 100 @ 190.05 last"});
}

TEST(BookPublication, a_total_of_2_to_the_32_shares_wraps_to_0_and_the_level_is_not_shown) {
  Market market;
  market.begin();
  market.buy("190.00", 0x80000000);
  market.publish();
  market.begin();
  market.buy("190.00", 0x80000000);
  market.publish();
  market.exchange.feed_shows({"8 2147483648 @ 190.00 last", "8 0 @ 190.00 last"});
  EXPECT_THAT(shown_levels(market.engine, market.stock, BUYS), IsEmpty());
}

TEST(BookPublication, a_batch_that_just_fits_stays_in_the_packet_under_assembly) {
  Market market;
  market.fill_packet_to(1436);  // 1436 + 2 * 32 = 1500
  market.begin();
  market.buy("190.00", 100);
  market.sell("190.01", 100);
  market.publish();
  EXPECT_EQ(state_of(market.publisher).packets, 0u);
  EXPECT_EQ(state_of(market.publisher).packet_size, 1500u);
}

TEST(BookPublication, a_batch_that_would_end_at_byte_1501_flushes_ahead_of_its_first_update) {
  Market market;
  market.fill_packet_to(1437);
  market.begin();
  market.buy("190.00", 100);
  market.sell("190.01", 100);
  market.publish();
  EXPECT_EQ(state_of(market.publisher).packets, 1u);
  EXPECT_EQ(state_of(market.publisher).waiting, 2u);
  market.publisher.faults.drop_next = 1;  // whose line tells what the packet announces
  EXPECT_EQ(test::standard_error_of([&] { market.publisher.flush(); }),
            "quorl fault: dropped seq 2 (packet 2, 2 message(s))\n");
}

TEST(BookPublication, with_1450_bytes_in_the_packet_a_batch_of_two_is_not_split) {
  Market market;
  market.fill_packet_to(1450);
  market.begin();
  market.buy("190.00", 100);
  market.sell("190.01", 100);
  market.publish();
  EXPECT_EQ(state_of(market.publisher).packets, 1u);
  EXPECT_EQ(state_of(market.publisher).packet_size, 40u + 64u);
}

TEST(BookPublication, prices_that_have_not_changed_take_no_room_in_that_reckoning) {
  Market market;
  market.exchange.rests({"AAPL buy 100 @ 189.00"});
  market.fill_packet_to(1436);
  market.begin();
  market.buy("190.00", 100);
  market.sell("190.01", 100);
  market.withdraw(market.buy("189.00", 50));
  market.publish();
  EXPECT_EQ(state_of(market.publisher).packet_size, 1500u);
}

TEST(BookPublication, fifty_updates_into_an_empty_packet_flush_nothing_ahead_and_overflow_later) {
  Market market;
  market.begin();
  for (int i = 0; i < 50; ++i) market.buy("1" + std::to_string(10 + i) + ".00", 100);
  market.publish();
  EXPECT_EQ(state_of(market.publisher).packets, 1u);
  market.publisher.flush();
  const auto packets = market.exchange.packets();
  ASSERT_THAT(packets, SizeIs(2));
  EXPECT_EQ(packets[0].message_count, 45);
  EXPECT_EQ(packets[0].first_seq, 1u);
  EXPECT_EQ(packets[1].message_count, 5);
  EXPECT_EQ(packets[1].first_seq, 47u);  // its first message is number 46
  EXPECT_EQ(packets[1].stream_offset, 45u * 32);
  EXPECT_EQ(test::retained_message(market.publisher, 45).seq, 46u);
  EXPECT_EQ(test::retained_message(market.publisher, 45).stream_offset, 45u * 32);
  for (const FeedMessage& message : packets[0].messages) EXPECT_EQ(message.flags, 0);
  EXPECT_EQ(packets[1].messages.back().flags, 1);
}

TEST(BookPublication, fifty_updates_behind_a_message_flush_it_first) {
  Market market;
  market.fill_packet_to(50);
  market.begin();
  for (int i = 0; i < 50; ++i) market.buy("1" + std::to_string(10 + i) + ".00", 100);
  market.publish();
  EXPECT_EQ(state_of(market.publisher).packets, 2u);
  EXPECT_EQ(state_of(market.publisher).waiting, 5u);
}

TEST(BookPublication, a_trade_report_stands_ahead_of_the_updates_of_its_event) {
  Market market;
  market.exchange.rests({"AAPL sell 300 @ 190.01"});
  market.exchange.is_hit("AAPL buy 300");
  market.exchange.feed_shows({"T 300 @ 190.01", "5 0 @ 190.01 last"});
}

TEST(BookPublication, a_trade_report_carries_the_event_s_time_and_counts_the_trades) {
  Market market;
  market.exchange.rests({"AAPL sell 100 @ 190.01", "AAPL sell 99 @ 190.02"});
  market.exchange.is_hit("AAPL buy 199");
  const auto messages = market.exchange.feed();
  ASSERT_THAT(messages, SizeIs(4));
  EXPECT_EQ(bytes_of(messages[0].bytes),
            hex("54 00 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 64 00 00 00"
                "44 FE 1C 00 00 00 00 00 01 00 00 00 00 00 00 00"));
  EXPECT_EQ(bytes_of(messages[1].bytes),
            hex("54 20 15 CD 85 3D FE 9C 97 17 41 41 50 4C 20 20 20 20 63 00 00 00"
                "A8 FE 1C 00 00 00 00 00 02 00 00 00 00 00 00 00"));
}

TEST(BookPublication, a_dropped_packet_changes_nothing_of_what_counts_as_shown) {
  Market market;
  market.publisher.faults.drop_next = 1;
  test::standard_error_of([&] {
    market.begin();
    market.buy("190.00", 100);
    market.publish();
    market.publisher.flush();
  });
  EXPECT_THAT(shown_levels(market.engine, market.stock, BUYS), ElementsAre(Pair(1900000, 100)));
  market.begin();
  market.withdraw(market.buy("190.00", 50));
  market.publish();
  EXPECT_EQ(state_of(market.publisher).next_seq, 2u);  // not said again
}

TEST(BookPublication, each_update_writes_a_truth_line_of_the_book_as_it_stands_behind_it) {
  const TemporaryFile file;
  Market market;
  market.engine.truth.open_for_appending(file.path);
  market.begin();
  market.buy("190.00", 300);
  market.sell("190.01", 200);
  market.publish();
  market.engine.truth.flush();
  EXPECT_EQ(text_of(file.path),
            R"({"seq":1,"secid":1,"symbol":"AAPL","bid":[],"ask":[[190.0100,200]]})"
            "\n"
            R"({"seq":2,"secid":1,"symbol":"AAPL","bid":[[190.0000,300]],"ask":[[190.0100,200]]})"
            "\n");
}

TEST(BookPublication, a_truth_file_that_cannot_be_opened_does_not_hold_up_the_feed) {
  Market market;
  market.engine.truth.open_for_appending(testing::TempDir() + "no_such_directory/truth");
  market.begin();
  market.buy("190.00", 300);
  market.publish();
  market.exchange.feed_shows({"8 300 @ 190.00 last"});
}

TEST(BookPublication, a_long_symbol_is_cut_on_the_wire_and_whole_in_the_truth) {
  const TemporaryFile file;
  Exchange exchange{"LONGSYMBOL1:10.00"};
  exchange.engine.truth.open_for_appending(file.path);
  exchange.engine.post_liquidity(exchange.stock(), 100000, 1);
  exchange.engine.truth.flush();
  const auto messages = exchange.feed();
  ASSERT_THAT(messages, SizeIs(1));
  EXPECT_EQ(messages[0].symbol, "LONGSYMB");
  EXPECT_THAT(text_of(file.path), testing::HasSubstr(R"("symbol":"LONGSYMBOL1")"));
}

// --- open_market ---

/// "S O" for a System Event, else the type and the symbol, level updates and trades left out.
std::vector<std::string> statuses(const std::vector<FeedMessage>& messages) {
  std::vector<std::string> words;
  for (const FeedMessage& message : messages) {
    if (message.type == 'S') {
      words.push_back(std::string("S ") + message.bytes[1]);
    } else if (message.type != '8' && message.type != '5' && message.type != 'T') {
      const std::string symbol = message.symbol.substr(0, message.symbol.find(' '));
      words.push_back(std::string(1, message.type) + " " + symbol);
    }
  }
  return words;
}

TEST(OpenMarket, each_type_stands_together_for_all_symbols) {
  Exchange exchange{"AA:10.00,BB:20.00"};
  exchange.engine.open_market();
  const auto messages = exchange.feed();
  EXPECT_THAT(statuses(messages),
              ElementsAre("S O", "D AA", "D BB", "H AA", "H BB", "O AA", "O BB", "P AA", "P BB",
                          "I AA", "I BB", "S S", "S R", "E AA", "E BB"));
  EXPECT_EQ(messages[12].bytes.substr(0, 2), "SR");
  EXPECT_EQ(messages[messages.size() - 2].type, 'E');  // behind all the books
  EXPECT_EQ(messages[messages.size() - 1].type, 'E');
}

TEST(OpenMarket, the_statuses_byte_by_byte) {
  Exchange exchange{"AAPL:190.00"};
  exchange.engine.open_market();
  const auto messages = exchange.feed();
  ASSERT_GE(messages.size(), 9u);
  const std::string time = "15 CD 85 3D FE 9C 97 17";
  const std::string symbol = "41 41 50 4C 20 20 20 20";
  EXPECT_EQ(bytes_of(messages[0].bytes), hex("53 4F" + time));
  EXPECT_EQ(bytes_of(messages[1].bytes),
            hex("44 00" + time + symbol + "64 00 00 00 E0 FD 1C 00 00 00 00 00 01"));
  EXPECT_EQ(bytes_of(messages[2].bytes), hex("48 54" + time + symbol + "20 20 20 20"));
  EXPECT_EQ(bytes_of(messages[3].bytes), hex("4F 4E" + time + symbol));
  EXPECT_EQ(bytes_of(messages[4].bytes), hex("50 00" + time + symbol + "20"));
  EXPECT_EQ(bytes_of(messages[5].bytes), hex("49 20" + time + symbol));
  EXPECT_EQ(bytes_of(messages[6].bytes), hex("53 53" + time));
  EXPECT_EQ(bytes_of(messages[7].bytes), hex("53 52" + time));
  EXPECT_EQ(bytes_of(messages.back().bytes), hex("45 4F" + time + symbol));
}

TEST(OpenMarket, the_statuses_share_one_reading_and_each_security_event_has_its_own) {
  Exchange exchange{"AA:10.00,BB:20.00,CC:30.00"};
  test::step_system_clock_by(1);
  exchange.engine.open_market();
  std::set<uint64_t> status_times;
  std::vector<uint64_t> event_times;
  uint64_t last_update_time = 0;
  for (const FeedMessage& message : exchange.feed()) {
    if (message.type == 'E') {
      event_times.push_back(message.timestamp_ns);
    } else if (message.type == '8' || message.type == '5' || message.type == 'T') {
      last_update_time = message.timestamp_ns;
    } else {
      status_times.insert(message.timestamp_ns);
    }
  }
  EXPECT_THAT(status_times, ElementsAre(T));
  ASSERT_THAT(event_times, SizeIs(3));
  EXPECT_LT(last_update_time, event_times[0]);
  EXPECT_LT(event_times[0], event_times[1]);
  EXPECT_LT(event_times[1], event_times[2]);
}

TEST(OpenMarket, begins_the_feed_at_number_1_and_offset_0_and_leaves_nothing_waiting) {
  Exchange exchange{"AAPL:190.00,MSFT:410.00,SPY:520.00"};
  exchange.engine.open_market();
  EXPECT_EQ(state_of(exchange.publisher).waiting, 0u);
  const auto packets = exchange.packets();
  ASSERT_FALSE(packets.empty());
  EXPECT_EQ(packets.front().first_seq, 1u);
  EXPECT_EQ(packets.front().stream_offset, 0u);
  uint64_t messages = 0;
  uint64_t offset = 0;
  for (const FeedPacket& packet : packets) {
    EXPECT_LE(packet.bytes.size(), 1500u);
    EXPECT_EQ(packet.stream_offset, offset);
    offset += packet.payload_length;
    messages += packet.message_count;
  }
  EXPECT_EQ(messages, state_of(exchange.publisher).next_seq - 1);
}

TEST(OpenMarket, posts_forty_orders_per_symbol_and_sets_the_system_status) {
  Exchange exchange{"AAPL:190.00,MSFT:410.00"};
  EXPECT_EQ(exchange.engine.system_status, 'O');
  exchange.engine.open_market();
  EXPECT_EQ(exchange.engine.next_order_id, 1000u + 80u);
  EXPECT_EQ(exchange.engine.system_status, 'R');
  for (const Stock& stock : exchange.engine.stocks) {
    EXPECT_THAT(shown_levels(exchange.engine, stock, BUYS), Not(IsEmpty()));
    EXPECT_THAT(shown_levels(exchange.engine, stock, SELLS), Not(IsEmpty()));
  }
}

TEST(OpenMarket, the_books_are_seeded_around_the_mid_in_whole_cents_halves_away_from_zero) {
  Exchange exchange{"AAPL:10.125"};  // exact in binary
  exchange.engine.open_market();
  const auto messages = exchange.feed();
  EXPECT_EQ(bytes_of(messages[1].bytes.substr(22, 8)), hex("B4 8B 01 00 00 00 00 00"));  // 10.13
  for (const uint64_t id : test::order_ids(exchange.engine)) {
    const Order& order = test::order_by_id(exchange.engine, id);
    EXPECT_EQ(order.price % 100, 0);
    if (order.buy) {
      EXPECT_LE(order.price, 101300 - 100);
      EXPECT_GE(order.price, 101300 - 1000);
    } else {
      EXPECT_GE(order.price, 101300);
      EXPECT_LE(order.price, 101300 + 900);
    }
  }
}

TEST(OpenMarket, a_symbol_of_eight_characters_fills_its_field) {
  Exchange exchange{"ABCDEFGH:10.00"};
  exchange.engine.open_market();
  EXPECT_EQ(exchange.feed().at(1).symbol, "ABCDEFGH");
}

TEST(OpenMarket, with_many_symbols_the_statuses_overflow_inside_append) {
  std::string symbols = "S0:10.00";
  for (int i = 1; i < 20; ++i) symbols += ",S" + std::to_string(i) + ":10.00";
  Exchange exchange{symbols};
  exchange.engine.open_market();
  const auto packets = exchange.packets();
  ASSERT_GE(packets.size(), 2u);
  EXPECT_EQ(packets[0].first_seq, 1u);
  EXPECT_EQ(packets[1].first_seq, packets[0].message_count + 2u);  // one above its first message
  EXPECT_EQ(packets[1].stream_offset, packets[0].payload_length);
}

TEST(OpenMarket, a_market_without_symbols_opens_with_three_system_events) {
  Exchange exchange{"AAPL:190.00"};
  exchange.engine.stocks.clear();
  exchange.engine.open_market();
  EXPECT_THAT(statuses(exchange.feed()), ElementsAre("S O", "S S", "S R"));
}

TEST(OpenMarket, behind_it_only_level_updates_and_trades_appear) {
  Exchange exchange{"AAPL:190.00,MSFT:410.00"};
  exchange.engine.open_market();
  exchange.feed();
  exchange.engine.touch_hit = 1.0;
  std::set<char> types;
  for (int i = 0; i < 50; ++i) {
    exchange.engine.walk_tick();
    for (const FeedMessage& message : exchange.feed()) types.insert(message.type);
  }
  EXPECT_THAT(types, ElementsAre('5', '8', 'T'));
}

}  // namespace
}  // namespace quorl
