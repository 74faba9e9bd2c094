#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

// Which values the fields of an order may have, and what of it no message shows. All else is in
// tests/stories/orders.story.

namespace quorl::test {
namespace {

using testing::IsEmpty;

constexpr std::string_view PRINCIPAL_BUY =
    "35=D|11=a1|55=AAPL|54=1|38=100|40=2|44=190.00|59=0|18=i|47=P";
constexpr std::string_view PRINCIPAL_SELL =
    "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i|47=P";

std::string principal_buy(std::string_view changes = "") { return altered(PRINCIPAL_BUY, changes); }
std::string principal_sell(std::string_view changes = "") {
  return altered(PRINCIPAL_SELL, changes);
}

bool nothing_counted(const Scenario& scenario) {
  const BenchCounters none;
  return std::memcmp(&scenario.counters, &none, sizeof none) == 0;
}

/// The order is refused with these words, and leaves no trace but the report.
void expect_order_refused(std::string_view order, const std::string& text,
                          const std::string& reason, const std::string& more = "") {
  const testing::ScopedTrace trace(__FILE__, __LINE__, std::string(order));
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(order);
  client.hears("35=8|34=1|37=NONE|17=E1|20=0|150=8|39=8|32=0|31=0|151=0|14=0|6=0|!41|!30|58=" +
               text + "|103=" + reason + (more.empty() ? "" : "|" + more));
  client.hears_nothing();
  EXPECT_EQ(order_count(exchange.engine), 0U);
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  EXPECT_EQ(exchange.engine.next_order_id, 1000U);
  EXPECT_TRUE(nothing_counted(exchange.scenario));
  exchange.feed_shows({});
}

/// The order is acknowledged as the first of the run.
void expect_accepted(std::string_view order, const std::string& more = "") {
  const testing::ScopedTrace trace(__FILE__, __LINE__, std::string(order));
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(order);
  client.hears("35=8|34=1|37=1000|150=0|39=0|14=0|!58|!103" + (more.empty() ? "" : "|" + more));
  EXPECT_EQ(exchange.scenario.counters.accepts, 1U);
  EXPECT_EQ(exchange.scenario.counters.orders, 1U);
}

// --- The ladder, rung by rung ---

TEST(NewOrderLadder, a_cl_ord_id_may_have_20_bytes_and_no_more) {
  expect_accepted(principal_buy("11=12345678901234567890"), "11=12345678901234567890");
  expect_order_refused(principal_buy("11=123456789012345678901"), "BrokerOption: invalid ClOrdID",
                       "0", "11=123456789012345678901");
  expect_order_refused(principal_buy("11=a\xE9,b"), "BrokerOption: invalid ClOrdID", "0");
}

TEST(NewOrderLadder, an_empty_or_absent_cl_ord_id_is_refused_with_the_same_words) {
  expect_order_refused(principal_buy("11="), "BrokerOption: invalid ClOrdID", "0", "11=");
  expect_order_refused(principal_buy("!11"), "BrokerOption: invalid ClOrdID", "0", "11=");
}

TEST(NewOrderLadder, separators_of_benches_are_refused_in_a_cl_ord_id) {
  for (const char c : std::string("\x01\",@|")) {
    for (const std::string& id : {std::string(1, c), "a" + std::string(1, c) + "b"}) {
      const testing::ScopedTrace trace(__FILE__, __LINE__, std::to_string(c));
      Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
      FixPeer client = exchange.logs_on("ALPHA");
      client.says_fields('D',
                         {{11, id}, {55, "AAPL"}, {54, "1"}, {38, "100"}, {44, "1"}, {18, "i"}});
      EXPECT_NE(client.next_message().find("\x01"
                                           "58=BrokerOption: invalid ClOrdID\x01"
                                           "103=0\x01"),
                std::string::npos);
      EXPECT_THAT(live_names(exchange.engine), IsEmpty());
    }
  }
}

TEST(NewOrderLadder, every_other_byte_may_stand_in_a_cl_ord_id) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (std::string_view("\x01\",@|").find(c) != std::string_view::npos) continue;
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = exchange.logs_on("ALPHA");
    const std::string id(1, c);
    client.says_fields('D', {{11, id}, {55, "AAPL"}, {54, "1"}, {38, "100"}, {44, "1"}, {18, "i"}});
    EXPECT_NE(exchange.engine.live_order("ALPHA", id), nullptr) << "byte " << byte;
  }
}

TEST(NewOrderLadder, an_unknown_symbol_is_refused_and_comes_back_as_it_was_sent) {
  expect_order_refused(principal_buy("55=MSFT"), "UnknownSymbol", "1", "55=MSFT");
  expect_order_refused(principal_buy("55=AAP"), "UnknownSymbol", "1", "55=AAP");
  expect_order_refused(principal_buy("55=AAPL "), "UnknownSymbol", "1", "55=AAPL ");
  expect_order_refused(principal_buy("55=AAPLX"), "UnknownSymbol", "1", "55=AAPLX");
  expect_order_refused(principal_buy("55=aapl"), "UnknownSymbol", "1", "55=aapl");
  expect_order_refused(principal_buy("55="), "UnknownSymbol", "1", "55=");
  expect_order_refused(principal_buy("!55"), "UnknownSymbol", "1", "55=");
}

TEST(NewOrderLadder, a_symbol_is_compared_whole_beyond_the_8_bytes_of_the_feed) {
  Exchange exchange = Exchange::with_empty_book("LONGSYMBOL1:10,LONGSYMBOL2:10");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_buy("55=LONGSYMBOL2|44=10"));
  client.hears("150=0|55=LONGSYMBOL2");
  EXPECT_EQ(exchange.order("ALPHA", "a1").locate, 2);
  exchange.feed_shows({"LONGSYMB 8 100 @ 10.00 last"});
  client.says(principal_buy("11=a2|55=LONGSYMB|44=10"));
  client.hears("150=8|58=UnknownSymbol|55=LONGSYMB");
}

TEST(NewOrderLadder, a_repeated_symbol_trades_in_the_first_of_its_stocks) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,AAPL:10.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_buy());
  EXPECT_EQ(exchange.order("ALPHA", "a1").locate, 1);
}

TEST(NewOrderLadder, quantities_are_whole_shares_from_1_to_10_million) {
  expect_accepted(principal_buy("38=1"), "38=1|151=1");
  expect_accepted(principal_buy("38=10000000"), "38=10000000|151=10000000");
  for (const auto& [qty, shown] : std::vector<std::pair<std::string, std::string>>{
           {"0", "0"},
           {"0.5", "0"},
           {"0.999999", "0"},
           {"1.5", "1"},
           {"100.5", "100"},
           {"100.00001", "100"},
           {"9999999.5", "9999999"},
           {"10000000.5", "10000000"},
           {"10000001", "10000001"},
           {"-1", "0"},
           {"-100", "0"},
       }) {
    expect_order_refused(principal_buy("38=" + qty), "ExceededMaxSharesPerOrder", "3",
                         "38=" + shown);
  }
}

TEST(NewOrderLadder, hostile_quantities_are_refused_and_shown_cut_to_32_bits) {
  for (const auto& [qty, shown] : std::vector<std::pair<std::string, std::string>>{
           {"nan", "0"},
           {"-nan", "0"},
           {"inf", "0"},
           {"-inf", "0"},
           {"1e19", "2313682944"},  // fits 64 bits, and is cut from there
           {"2e19", "0"},
           {"1e300", "0"},
           {"1e400", "0"},        // out of range of a double: no number
           {"1e-310", "0"},       // so is a denormal
           {"5e9", "705032704"},  // 5000000000 modulo 2^32
           {"4294967296", "0"},
           {"4294967297", "1"},
           {"18446744073709551616", "0"},
           {"-1e300", "0"},
       }) {
    expect_order_refused(principal_buy("38=" + qty), "ExceededMaxSharesPerOrder", "3",
                         "38=" + shown);
  }
}

TEST(NewOrderLadder, text_that_is_no_quantity_counts_as_0) {
  for (const char* qty : {"38=abc", "38=", "!38", "38=-", "38=.", "38=e5", "38=,100"}) {
    expect_order_refused(principal_buy(qty), "ExceededMaxSharesPerOrder", "3", "38=0");
  }
}

TEST(NewOrderLadder, a_quantity_is_read_as_the_c_library_reads_a_float) {
  expect_accepted(principal_buy("38=0x64"), "38=100");
  expect_accepted(principal_buy("38=1e3"), "38=1000");
  expect_accepted(principal_buy("38=100.0"), "38=100");
  expect_accepted(principal_buy("38=+100"), "38=100");
  expect_accepted(principal_buy("38= 100"), "38=100");
  expect_accepted(principal_buy("38=100shares"), "38=100");
  expect_accepted(principal_buy("38= 100.0x"), "38=100");
}

TEST(NewOrderLadder, sides_other_than_1_2_5_6_are_refused) {
  for (const char* side : {"0", "3", "4", "7", "8", "9", "B", " 1"}) {
    expect_order_refused(principal_buy(std::string("54=") + side), "BrokerOption: invalid Side",
                         "0", std::string("54=") + side[0]);
  }
  expect_order_refused(principal_buy("54="), "BrokerOption: invalid Side", "0", "54= ");
  expect_order_refused(principal_buy("!54"), "BrokerOption: invalid Side", "0", "54= ");
}

TEST(NewOrderLadder, a_short_sale_needs_a_locate_of_exactly_N) {
  for (const char* side : {"5", "6"}) {
    const std::string is = std::string("54=") + side;
    expect_accepted(principal_buy(is + "|114=N"), is);
    for (const char* locate : {"|114=Y", "|114=n", "|114=NN", "|114= N", "|114=", ""}) {
      expect_order_refused(principal_buy(is + locate), "MissingLocate", "0", is);
    }
  }
  expect_accepted(principal_buy("114=Y"));
  expect_accepted(principal_sell("114=Y"));
  expect_accepted(principal_sell());
}

TEST(NewOrderLadder, the_exec_inst_must_be_sent_and_begin_with_i) {
  expect_accepted(principal_buy("18=i"), "18=i");
  expect_accepted(principal_buy("18=ix"), "18=i");
  expect_order_refused(principal_buy("18=I"), "InvalidExecInst", "0", "18=I");
  expect_order_refused(principal_buy("18=xi"), "InvalidExecInst", "0", "18=x");
  expect_order_refused(principal_buy("18= i"), "InvalidExecInst", "0", "18= ");
  expect_order_refused(principal_buy("18="), "InvalidExecInst", "0",
                       "18=i");  // shown as the default
  expect_order_refused(principal_buy("!18"), "InvalidExecInst", "0", "18=i");
}

TEST(NewOrderLadder, an_order_type_is_refused_with_the_word_for_an_exec_inst) {
  for (const char* type : {"P", "3", "4", "0", "K"}) {
    expect_order_refused(principal_buy(std::string("40=") + type), "InvalidExecInst", "0",
                         std::string("44=190|40=") + type);
  }
  expect_accepted(principal_buy("40="), "40=2|44=190");
  expect_accepted(principal_buy("!40"), "40=2|44=190");
  expect_accepted(principal_buy("40=1"), "40=1");
}

TEST(NewOrderLadder, below_a_dollar_a_price_has_four_decimals_and_from_there_two) {
  expect_accepted(principal_buy("44=0.9999"), "44=0.9999");
  expect_accepted(principal_buy("44=0.0001"), "44=0.0001");
  expect_accepted(principal_buy("44=0.1234"), "44=0.1234");
  expect_accepted(principal_buy("44=1"), "44=1");
  expect_accepted(principal_buy("44=1.01"), "44=1.01");
  expect_accepted(principal_buy("44=190.50"), "44=190.5");
  expect_accepted(principal_buy("44=100.500000"), "44=100.5");
  expect_accepted(principal_buy("44=0100"), "44=100");
  expect_order_refused(principal_buy("44=1.0001"), "InvalidPrice", "0", "44=1.0001");
  expect_order_refused(principal_buy("44=1.0099"), "InvalidPrice", "0", "44=1.0099");
  expect_order_refused(principal_buy("44=190.005"), "InvalidPrice", "0", "44=190.005");
}

TEST(NewOrderLadder, a_price_is_rounded_to_four_decimals_before_it_is_checked) {
  expect_accepted(principal_buy("44=190.00004"), "44=190");
  expect_order_refused(principal_buy("44=190.00006"), "InvalidPrice", "0", "44=190.0001");
  expect_accepted(principal_buy("44=0.99995"), "44=1");       // a half goes away from zero
  expect_accepted(principal_buy("44=0.00005"), "44=0.0001");  // so does this one
  expect_order_refused(principal_buy("44=0.00004"), "InvalidPrice", "0", "!44");
}

TEST(NewOrderLadder, a_limit_order_without_a_positive_price_is_refused) {
  for (const char* price : {"44=0", "!44", "44=", "44=abc", "44=0.0", "44=-0", "44=1e-310"}) {
    expect_order_refused(principal_buy(price), "InvalidPrice", "0", "!44");
  }
  expect_order_refused(principal_buy("44=-1"), "InvalidPrice", "0", "44=-1");
  expect_order_refused(principal_buy("44=-0.0001"), "InvalidPrice", "0", "44=-0.0001");
}

TEST(NewOrderLadder, a_price_beyond_all_numbers_is_refused_as_the_lowest_of_them) {
  for (const char* price : {"nan", "inf", "-inf", "1e15", "1e19", "1e300", "-1e15", "-1e300"}) {
    expect_order_refused(principal_buy(std::string("44=") + price), "InvalidPrice", "0",
                         "44=-922337203685477.625");
  }
  expect_order_refused(principal_buy("44=1e400"), "InvalidPrice", "0",
                       "!44");  // not even a double: no number
  expect_accepted(principal_buy("44=920000000000000"), "44=920000000000000");
}

TEST(NewOrderLadder, a_limit_order_lives_for_the_day_or_not_at_all) {
  for (const char* tif : {"0", "3", "4"}) {
    expect_accepted(principal_buy(std::string("59=") + tif), std::string("59=") + tif);
  }
  for (const char* tif : {"1", "2", "5", "6", "7", "D"}) {
    expect_order_refused(principal_buy(std::string("59=") + tif),
                         "OrderInvalidInCurrentMarketSession", "0", std::string("59=") + tif);
  }
  expect_accepted(principal_buy("59="), "59=0");
  expect_accepted(principal_buy("!59"), "59=0");
}

TEST(NewOrderLadder, a_market_order_has_another_word_for_the_same_times_in_force) {
  for (const char* tif : {"0", "3", "4"}) {
    expect_accepted(principal_buy(std::string("40=1|59=") + tif), std::string("59=") + tif);
  }
  for (const char* tif : {"1", "2", "5", "6", "7", "D"}) {
    expect_order_refused(principal_buy(std::string("40=1|59=") + tif),
                         "InvalidTagCombinationForMarketOrder", "0", std::string("!44|59=") + tif);
  }
}

TEST(NewOrderLadder, the_capacity_is_A_P_or_R) {
  for (const char* capacity : {"A", "P", "R"}) {
    expect_accepted(principal_buy(std::string("47=") + capacity), std::string("47=") + capacity);
  }
  for (const char* capacity : {"X", "I", "a", "p"}) {
    expect_order_refused(principal_buy(std::string("47=") + capacity),
                         "BrokerOption: invalid OrderCapacity", "0", std::string("47=") + capacity);
  }
  expect_accepted(principal_buy("47="), "47=P");
  expect_accepted(principal_buy("!47"), "47=P");
}

TEST(NewOrderLadder, only_the_first_character_of_a_field_counts) {
  expect_accepted(principal_buy("54=12"), "54=1");
  expect_accepted(principal_buy("40=21"), "40=2");
  expect_accepted(principal_buy("59=09"), "59=0");
  expect_accepted(principal_buy("47=AX"), "47=A");
}

TEST(NewOrderLadder, a_price_on_a_market_order_is_ignored) {
  expect_accepted(principal_buy("40=1|44=1.00001"), "!44");
  expect_accepted(principal_buy("40=1|44=-5"), "!44");
}

// --- Acceptance ---

TEST(NewOrder, that_rests_after_part_fills_has_not_closed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_buy("38=300"));
  EXPECT_EQ(exchange.order("ALPHA", "a1").cum, 100U);
  EXPECT_EQ(closing_count(exchange.engine), 0U);
}

TEST(NewOrder, the_acknowledgement_is_older_than_the_event_it_precedes) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  step_system_clock_by(1'000'000);
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_buy());
  client.hears("150=0|60=20231114-22:13:20.123");  // the first reading
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 1U);
  EXPECT_GT(feed[0].timestamp_ns, START_SYSTEM_NS);
}

TEST(NewOrder, orders_are_taken_before_the_market_has_opened) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  EXPECT_EQ(exchange.engine.system_status, 'O');
  exchange.stock().status = 'H';
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_buy());
  client.hears("150=0");
}

TEST(NewOrder, a_fill_or_kill_counts_more_shares_than_32_bits_hold) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 4294967295 @ 190.00", "AAPL sell 1 @ 190.00"});
  EXPECT_EQ(shares_at(exchange.engine, exchange.stock(), SELLS, price4("190.00")), 0U);  // as shown
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_buy("59=4"));
  client.hears("150=0");
  client.hears("150=2|32=100|31=190");
}

TEST(NewOrder, a_fill_or_kill_counts_bids_at_0_that_the_matching_stops_at) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL buy 500 @ 0"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(principal_sell("40=1|59=4"));
  client.hears("150=0");
  client.hears("150=4|14=0|58=UnmatchedIOC");
  client.hears_nothing();
  exchange.feed_shows({});

  exchange.rests({"AAPL buy 60 @ 1.00"});
  client.says(principal_sell("40=1|59=4"));
  client.hears("150=0");
  client.hears("150=1|32=60|31=1|151=40");  // so it can be filled in part after all
  client.hears("150=4|151=0|14=60|58=UnmatchedIOC");
  client.hears_nothing();
}

}  // namespace
}  // namespace quorl::test
