#include "bench/truth_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using testing::HasSubstr;

std::string content_of(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

class TruthLog : public testing::Test {
 protected:
  ~TruthLog() override {
    std::remove(orders_path.c_str());
    std::remove(market_path.c_str());
  }

  void opens_order_events() { exchange.scenario.order_truth.open_for_appending(orders_path); }
  void opens_market_truth() { exchange.engine.truth.open_for_appending(market_path); }

  /// What is on disk by now.
  std::string order_events() const { return content_of(orders_path); }
  std::string market_truth() const { return content_of(market_path); }

  const std::string base = testing::TempDir() + "quorl_truth_" + std::to_string(::getpid());
  const std::string orders_path = base + "_orders.jsonl";
  const std::string market_path = base + "_market.jsonl";
  Exchange exchange{"AAPL:190.00,LONGSYMBOL1:10.00"};
};

const OrderEvent FILL = {.ev = "fill",
                         .cl = "a1",
                         .oid = "1000",
                         .symbol = "AAPL",
                         .side = 'B',
                         .qty = 300,
                         .px = 1905000,
                         .last_qty = 100,
                         .cum = 200,
                         .leaves = 99,
                         .text = "words"};

// --- Order events ---

TEST_F(TruthLog, writes_an_order_event_byte_for_byte) {
  opens_order_events();
  write_order_event(exchange.engine, FILL);
  EXPECT_EQ(order_events(),
            "{\"t\":1700000000123456789,\"ev\":\"fill\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":200,\"leaves\":99,"
            "\"last_qty\":100,\"text\":\"words\"}\n");
}

TEST_F(TruthLog, writes_an_event_of_empty_values_with_all_its_keys_but_ref) {
  opens_order_events();
  set_system_ns(7);
  write_order_event(exchange.engine, {.ev = "cancel_reject", .cl = "", .oid = ""});
  EXPECT_EQ(
      order_events(),
      "{\"t\":7,\"ev\":\"cancel_reject\",\"cl\":\"\",\"oid\":0,\"symbol\":\"\",\"side\":\" \","
      "\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,\"last_qty\":0,\"text\":\"\"}\n");
}

TEST_F(TruthLog, writes_ref_last_and_only_if_there_is_one) {
  opens_order_events();
  OrderEvent event = FILL;
  event.ev = "replace";
  event.ref = "a0";
  write_order_event(exchange.engine, event);
  EXPECT_EQ(order_events(),
            "{\"t\":1700000000123456789,\"ev\":\"replace\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":200,\"leaves\":99,"
            "\"last_qty\":100,\"text\":\"words\",\"ref\":\"a0\"}\n");
}

TEST_F(TruthLog, writes_the_price_of_an_order_event_with_six_significant_digits) {
  opens_order_events();
  for (const auto& [price, text] : std::vector<std::pair<Price4, std::string>>{
           {0, "0"},
           {1900000, "190"},
           {1899900, "189.99"},
           {12345670, "1234.57"},
           {9999, "0.9999"},
           {1, "0.0001"},
           {123456789, "12345.7"},
           {9999995000, "1e+06"},
           {10000000000, "1e+06"},
           {1234567890000, "1.23457e+08"},
           {-1905000, "-190.5"},
           {std::numeric_limits<int64_t>::min(), "-9.22337e+14"}}) {
    OrderEvent event = FILL;
    event.px = price;
    write_order_event(exchange.engine, event);
    EXPECT_THAT(order_events(), testing::HasSubstr(",\"px\":" + text + ",\"cum\"")) << price;
  }
}

TEST_F(TruthLog, writes_quantities_up_to_the_largest_in_plain_decimals) {
  opens_order_events();
  OrderEvent event = FILL;
  event.qty = event.cum = event.leaves = event.last_qty = 4294967295;
  write_order_event(exchange.engine, event);
  EXPECT_THAT(order_events(), HasSubstr("\"qty\":4294967295,"));
  EXPECT_THAT(order_events(),
              HasSubstr("\"cum\":4294967295,\"leaves\":4294967295,\"last_qty\":4294967295,"));
}

TEST_F(TruthLog, escapes_nothing) {
  opens_order_events();
  OrderEvent event = FILL;
  event.cl = "a\"\\b";
  event.text = "\"%s%n";
  write_order_event(exchange.engine, event);
  EXPECT_THAT(order_events(), HasSubstr("\"cl\":\"a\"\\b\","));
  EXPECT_THAT(order_events(), HasSubstr("\"text\":\"\"%s%n\"}\n"));
}

TEST_F(TruthLog, has_each_order_event_on_disk_at_once) {
  opens_order_events();
  for (size_t lines = 1; lines <= 3; ++lines) {
    write_order_event(exchange.engine, FILL);
    const std::string text = order_events();
    EXPECT_EQ(static_cast<size_t>(std::count(text.begin(), text.end(), '\n')), lines);
    EXPECT_EQ(text.back(), '\n');
  }
}

TEST_F(TruthLog, reads_the_clock_once_for_an_order_event_and_not_at_all_without_a_file) {
  write_order_event(exchange.engine, FILL);
  EXPECT_EQ(system_readings(), 0U);
  opens_order_events();
  write_order_event(exchange.engine, FILL);
  EXPECT_EQ(system_readings(), 1U);
}

TEST_F(TruthLog, leaves_out_order_events_once_the_file_has_failed) {
  exchange.scenario.order_truth.open_for_appending(base + ".none/file");
  write_order_event(exchange.engine, FILL);
  EXPECT_EQ(system_readings(), 0U);
  EXPECT_FALSE(exchange.scenario.order_truth.is_writable());
}

TEST_F(TruthLog, stops_writing_after_a_write_that_fails) {
  exchange.scenario.order_truth.open_for_appending("/dev/full");
  ASSERT_TRUE(exchange.scenario.order_truth.is_writable());
  write_order_event(exchange.engine, FILL);
  EXPECT_FALSE(exchange.scenario.order_truth.is_writable());
  write_order_event(exchange.engine, FILL);
  EXPECT_EQ(system_readings(), 1U);
}

TEST_F(TruthLog, logs_a_cancel_with_nothing_to_cancel_without_symbol_side_and_number) {
  opens_order_events();
  FixPeer alpha = exchange.logs_on("ALPHA");
  standard_error_of([&] { alpha.says("35=F|11=c1|41=nope"); });
  EXPECT_EQ(order_events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel_reject\",\"cl\":\"nope\",\"oid\":0,"
            "\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"Unknown order\"}\n");
}

TEST_F(TruthLog, logs_a_resting_order_s_fill_when_it_is_composed_and_not_when_it_is_traded) {
  opens_order_events();
  FixPeer alpha = exchange.logs_on("ALPHA");
  alpha.says("35=D|11=a1|55=AAPL|54=1|38=100|40=2|44=190|18=i");
  exchange.is_hit("AAPL sell 100");
  EXPECT_THAT(order_events(), testing::Not(HasSubstr("\"fill\"")));
  exchange.drains_deferred();
  EXPECT_THAT(order_events(), HasSubstr("\"ev\":\"fill\",\"cl\":\"a1\""));
  EXPECT_THAT(order_events(), testing::Not(HasSubstr("\"ref\"")));
}

TEST_F(TruthLog, shows_no_price_for_a_market_order) {
  opens_order_events();
  FixPeer alpha = exchange.logs_on("ALPHA");
  alpha.says("35=D|11=a1|55=AAPL|54=1|38=100|40=1|44=190|18=i");
  EXPECT_THAT(order_events(), HasSubstr("\"ev\":\"new\""));
  EXPECT_THAT(order_events(), HasSubstr("\"px\":0,"));
  EXPECT_THAT(order_events(), testing::Not(HasSubstr("190")));
}

// --- Market truth ---

TEST_F(TruthLog, writes_a_book_line_byte_for_byte) {
  rest_and_show(exchange.engine, exchange.stock(), BUYS, {{1899900, 300}, {1899800, 100}});
  rest_and_show(exchange.engine, exchange.stock(), SELLS, {{1900000, 500}});
  opens_market_truth();
  number_up_to(exchange.publisher, 812);
  write_book_line(exchange.engine, exchange.stock());
  exchange.engine.truth.flush();
  EXPECT_EQ(market_truth(),
            "{\"seq\":812,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[[189.9900,300],[189.9800,100]],"
            "\"ask\":[[190.0000,500]]}\n");
}

TEST_F(TruthLog, writes_empty_sides_and_the_whole_symbol) {
  opens_market_truth();
  write_book_line(exchange.engine, exchange.stock(1));
  exchange.engine.truth.flush();
  EXPECT_EQ(market_truth(),
            "{\"seq\":0,\"secid\":2,\"symbol\":\"LONGSYMBOL1\",\"bid\":[],\"ask\":[]}\n");
}

TEST_F(TruthLog, writes_the_ten_best_levels_of_each_side_in_a_book_line) {
  ShownLevels bids;
  ShownLevels asks;
  for (uint32_t i = 1; i <= 11; ++i) {
    bids.emplace_back(1900000 - i * 100, i);
    asks.emplace_back(1900000 + i * 100, i);
  }
  rest_and_show(exchange.engine, exchange.stock(), BUYS, bids);
  rest_and_show(exchange.engine, exchange.stock(), SELLS, asks);
  opens_market_truth();
  write_book_line(exchange.engine, exchange.stock());
  exchange.engine.truth.flush();
  EXPECT_EQ(market_truth(),
            "{\"seq\":22,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[[189.9900,1],[189.9800,2],"
            "[189.9700,3],[189.9600,4],[189.9500,5],[189.9400,6],[189.9300,7],[189.9200,8],"
            "[189.9100,9],[189.9000,10]],\"ask\":[[190.0100,1],[190.0200,2],[190.0300,3],"
            "[190.0400,4],[190.0500,5],[190.0600,6],[190.0700,7],[190.0800,8],[190.0900,9],"
            "[190.1000,10]]}\n");
}

TEST_F(TruthLog, writes_book_prices_with_four_decimals_at_any_size) {
  rest_and_show(exchange.engine, exchange.stock(), SELLS,
                {{std::numeric_limits<int64_t>::min(), 4294967295},
                 {-100, 1},
                 {0, 2},
                 {1, 3},
                 {12345678901, 4},
                 {std::numeric_limits<int64_t>::max(), 4294967295}});
  opens_market_truth();
  write_book_line(exchange.engine, exchange.stock());
  exchange.engine.truth.flush();
  EXPECT_THAT(market_truth(),
              HasSubstr("\"ask\":[[-922337203685477.6250,4294967295],[-0.0100,1],[0.0000,2],"
                        "[0.0001,3],[1234567.8901,4],[922337203685477.6250,4294967295]]}\n"));
}

TEST_F(TruthLog, writes_book_prices_as_the_library_prints_their_dollars) {
  opens_market_truth();
  Stock& stock = exchange.stock();
  std::string expected;
  for (const Price4 price :
       {Price4{1}, Price4{-1}, Price4{-50}, Price4{9999}, Price4{-10000}, Price4{-12345678},
        Price4{999'999'999'999'999}, Price4{1'000'000'000'000'000}, Price4{1'000'000'000'000'001},
        Price4{-1'000'000'000'000'000}, Price4{-1'000'000'000'000'001},
        Price4{123'456'789'012'345'678}, std::numeric_limits<Price4>::max(),
        std::numeric_limits<Price4>::min()}) {
    exchange.engine.begin_event();
    const uint64_t id = rest_synthetic(exchange.engine, stock, BUYS, price, 100);
    exchange.engine.publish_dirty(stock);
    char text[64];
    std::snprintf(text, sizeof text, "[%.4f,100]", static_cast<double>(price) / 10000.0);
    expected = std::string("\"bid\":[") + text + "],\"ask\":[]}\n";
    write_mark(exchange.engine, "flushed");
    const std::string lines = market_truth();
    EXPECT_NE(lines.find(expected), std::string::npos) << expected;
    exchange.engine.begin_event();
    withdraw_order(exchange.engine, id);
    exchange.engine.publish_dirty(stock);
  }
}

TEST_F(TruthLog, holds_book_lines_back_until_a_mark) {
  opens_market_truth();
  write_book_line(exchange.engine, exchange.stock());
  write_book_line(exchange.engine, exchange.stock(1));
  EXPECT_EQ(market_truth(), "");
  number_up_to(exchange.publisher, 4);
  write_mark(exchange.engine, "here");
  EXPECT_EQ(market_truth(),
            "{\"seq\":0,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[],\"ask\":[]}\n"
            "{\"seq\":0,\"secid\":2,\"symbol\":\"LONGSYMBOL1\",\"bid\":[],\"ask\":[]}\n"
            "{\"mark\":\"here\",\"seq\":4}\n");
}

TEST_F(TruthLog, writes_one_book_line_for_each_level_update_with_the_book_as_it_is_then) {
  opens_market_truth();
  exchange.rests({"AAPL sell 300 @ 190.01", "AAPL sell 100 @ 190.02"});
  exchange.is_hit("AAPL buy 400");
  exchange.engine.truth.flush();
  EXPECT_EQ(
      market_truth(),
      "{\"seq\":1,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[],\"ask\":[[190.0100,300]]}\n"
      "{\"seq\":2,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[],\"ask\":[[190.0100,300],"
      "[190.0200,100]]}\n"
      // Two trades, 3 and 4, then an update for each level: a level that is gone has no entry.
      "{\"seq\":5,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[],\"ask\":[[190.0200,100]]}\n"
      "{\"seq\":6,\"secid\":1,\"symbol\":\"AAPL\",\"bid\":[],\"ask\":[]}\n");
}

TEST_F(TruthLog, keeps_the_two_files_apart) {
  opens_market_truth();
  FixPeer alpha = exchange.logs_on("ALPHA");
  alpha.says("35=D|11=a1|55=AAPL|54=1|38=100|40=2|44=190|18=i");
  exchange.engine.truth.close();
  EXPECT_THAT(market_truth(), testing::StartsWith("{\"seq\":1,"));
  EXPECT_EQ(order_events(), "");

  opens_order_events();
  alpha.says("35=F|11=c1|41=a1");
  EXPECT_THAT(order_events(), HasSubstr("\"ev\":\"cancel\""));
  const std::string market = market_truth();
  EXPECT_EQ(std::count(market.begin(), market.end(), '\n'), 1);
}

TEST_F(TruthLog, writes_no_market_truth_without_a_file_and_none_into_a_failed_one) {
  write_book_line(exchange.engine, exchange.stock());
  write_mark(exchange.engine, "a");
  exchange.engine.truth.open_for_appending(base + ".none/file");
  write_book_line(exchange.engine, exchange.stock());
  write_mark(exchange.engine, "b");
  EXPECT_EQ(market_truth(), "");
  EXPECT_FALSE(exchange.engine.truth.is_writable());
}

}  // namespace
}  // namespace quorl::test
