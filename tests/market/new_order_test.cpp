#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using testing::IsEmpty;

constexpr std::string_view BUY_100 = "35=D|11=a1|55=AAPL|54=1|38=100|40=2|44=190.00|59=0|18=i|47=P";
constexpr std::string_view SELL_100 =
    "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i|47=P";

std::string buy(std::string_view changes = "") { return altered(BUY_100, changes); }
std::string sell(std::string_view changes = "") { return altered(SELL_100, changes); }

bool nothing_counted(const Scenario& scenario) {
  const BenchCounters none;
  return std::memcmp(&scenario.counters, &none, sizeof none) == 0;
}

/// The order is refused with these words, and leaves no trace but the report.
void expect_refused(std::string_view order, const std::string& text, const std::string& reason,
                    const std::string& more = "") {
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
  expect_accepted(buy("11=12345678901234567890"), "11=12345678901234567890");
  expect_refused(buy("11=123456789012345678901"), "BrokerOption: invalid ClOrdID", "0",
                 "11=123456789012345678901");
}

TEST(NewOrderLadder, an_empty_or_absent_cl_ord_id_is_refused_with_the_same_words) {
  expect_refused(buy("11="), "BrokerOption: invalid ClOrdID", "0", "11=");
  expect_refused(buy("!11"), "BrokerOption: invalid ClOrdID", "0", "11=");
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
  expect_refused(buy("55=MSFT"), "UnknownSymbol", "1", "55=MSFT");
  expect_refused(buy("55=AAP"), "UnknownSymbol", "1", "55=AAP");
  expect_refused(buy("55=AAPLX"), "UnknownSymbol", "1", "55=AAPLX");
  expect_refused(buy("55=aapl"), "UnknownSymbol", "1", "55=aapl");
  expect_refused(buy("55="), "UnknownSymbol", "1", "55=");
  expect_refused(buy("!55"), "UnknownSymbol", "1", "55=");
}

TEST(NewOrderLadder, a_symbol_is_compared_whole_beyond_the_8_bytes_of_the_feed) {
  Exchange exchange = Exchange::with_empty_book("LONGSYMBOL1:10,LONGSYMBOL2:10");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("55=LONGSYMBOL2|44=10"));
  client.hears("150=0|55=LONGSYMBOL2");
  EXPECT_EQ(exchange.order("ALPHA", "a1").locate, 2);
  exchange.feed_shows({"LONGSYMB 8 100 @ 10.00 last"});
  client.says(buy("11=a2|55=LONGSYMB|44=10"));
  client.hears("150=8|58=UnknownSymbol|55=LONGSYMB");
}

TEST(NewOrderLadder, a_repeated_symbol_trades_in_the_first_of_its_stocks) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00,AAPL:10.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  EXPECT_EQ(exchange.order("ALPHA", "a1").locate, 1);
}

TEST(NewOrderLadder, quantities_are_whole_shares_from_1_to_10_million) {
  expect_accepted(buy("38=1"), "38=1|151=1");
  expect_accepted(buy("38=10000000"), "38=10000000|151=10000000");
  for (const auto& [qty, shown] : std::vector<std::pair<std::string, std::string>>{
           {"0", "0"},
           {"0.5", "0"},
           {"0.999999", "0"},
           {"1.5", "1"},
           {"100.5", "100"},
           {"9999999.5", "9999999"},
           {"10000000.5", "10000000"},
           {"10000001", "10000001"},
           {"-1", "0"},
           {"-100", "0"},
       }) {
    expect_refused(buy("38=" + qty), "ExceededMaxSharesPerOrder", "3", "38=" + shown);
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
    expect_refused(buy("38=" + qty), "ExceededMaxSharesPerOrder", "3", "38=" + shown);
  }
}

TEST(NewOrderLadder, text_that_is_no_quantity_counts_as_0) {
  for (const char* qty : {"38=abc", "38=", "!38", "38=-", "38=.", "38=e5", "38=,100"}) {
    expect_refused(buy(qty), "ExceededMaxSharesPerOrder", "3", "38=0");
  }
}

TEST(NewOrderLadder, a_quantity_is_read_as_the_c_library_reads_a_float) {
  expect_accepted(buy("38=0x64"), "38=100");
  expect_accepted(buy("38=1e3"), "38=1000");
  expect_accepted(buy("38=100.0"), "38=100");
  expect_accepted(buy("38=+100"), "38=100");
  expect_accepted(buy("38= 100"), "38=100");
  expect_accepted(buy("38=100shares"), "38=100");
}

TEST(NewOrderLadder, sides_other_than_1_2_5_6_are_refused) {
  for (const char* side : {"0", "3", "4", "7", "8", "9", "B"}) {
    expect_refused(buy(std::string("54=") + side), "BrokerOption: invalid Side", "0",
                   std::string("54=") + side);
  }
  expect_refused(buy("54="), "BrokerOption: invalid Side", "0", "54= ");
  expect_refused(buy("!54"), "BrokerOption: invalid Side", "0", "54= ");
}

TEST(NewOrderLadder, a_short_sale_needs_a_locate_of_exactly_N) {
  for (const char* side : {"5", "6"}) {
    const std::string is = std::string("54=") + side;
    expect_accepted(buy(is + "|114=N"), is);
    for (const char* locate : {"|114=Y", "|114=n", "|114=NN", "|114= N", "|114=", ""}) {
      expect_refused(buy(is + locate), "MissingLocate", "0", is);
    }
  }
  expect_accepted(buy("114=Y"));
  expect_accepted(sell("114=Y"));
  expect_accepted(sell());
}

TEST(NewOrderLadder, the_exec_inst_must_be_sent_and_begin_with_i) {
  expect_accepted(buy("18=i"), "18=i");
  expect_accepted(buy("18=ix"), "18=i");
  expect_refused(buy("18=I"), "InvalidExecInst", "0", "18=I");
  expect_refused(buy("18=xi"), "InvalidExecInst", "0", "18=x");
  expect_refused(buy("18="), "InvalidExecInst", "0", "18=i");  // shown as the default
  expect_refused(buy("!18"), "InvalidExecInst", "0", "18=i");
}

TEST(NewOrderLadder, an_order_type_is_refused_with_the_word_for_an_exec_inst) {
  for (const char* type : {"P", "3", "4", "0"}) {
    expect_refused(buy(std::string("40=") + type), "InvalidExecInst", "0",
                   std::string("44=190|40=") + type);
  }
  expect_accepted(buy("40="), "40=2|44=190");
  expect_accepted(buy("!40"), "40=2|44=190");
  expect_accepted(buy("40=1"), "40=1");
}

TEST(NewOrderLadder, below_a_dollar_a_price_has_four_decimals_and_from_there_two) {
  expect_accepted(buy("44=0.9999"), "44=0.9999");
  expect_accepted(buy("44=0.0001"), "44=0.0001");
  expect_accepted(buy("44=0.1234"), "44=0.1234");
  expect_accepted(buy("44=1"), "44=1");
  expect_accepted(buy("44=1.01"), "44=1.01");
  expect_accepted(buy("44=190.50"), "44=190.5");
  expect_refused(buy("44=1.0001"), "InvalidPrice", "0", "44=1.0001");
  expect_refused(buy("44=1.0099"), "InvalidPrice", "0", "44=1.0099");
  expect_refused(buy("44=190.005"), "InvalidPrice", "0", "44=190.005");
}

TEST(NewOrderLadder, a_price_is_rounded_to_four_decimals_before_it_is_checked) {
  expect_accepted(buy("44=190.00004"), "44=190");
  expect_refused(buy("44=190.00006"), "InvalidPrice", "0", "44=190.0001");
  expect_accepted(buy("44=0.99995"), "44=1");       // a half goes away from zero
  expect_accepted(buy("44=0.00005"), "44=0.0001");  // so does this one
  expect_refused(buy("44=0.00004"), "InvalidPrice", "0", "!44");
}

TEST(NewOrderLadder, a_limit_order_without_a_positive_price_is_refused) {
  for (const char* price : {"44=0", "!44", "44=", "44=abc", "44=0.0", "44=-0", "44=1e-310"}) {
    expect_refused(buy(price), "InvalidPrice", "0", "!44");
  }
  expect_refused(buy("44=-1"), "InvalidPrice", "0", "44=-1");
  expect_refused(buy("44=-0.0001"), "InvalidPrice", "0", "44=-0.0001");
}

TEST(NewOrderLadder, a_price_beyond_all_numbers_is_refused_as_the_lowest_of_them) {
  for (const char* price : {"nan", "inf", "-inf", "1e15", "1e19", "1e300", "-1e15", "-1e300"}) {
    expect_refused(buy(std::string("44=") + price), "InvalidPrice", "0", "44=-922337203685477.625");
  }
  expect_refused(buy("44=1e400"), "InvalidPrice", "0", "!44");  // not even a double: no number
  expect_accepted(buy("44=920000000000000"), "44=920000000000000");
}

TEST(NewOrderLadder, a_limit_order_lives_for_the_day_or_not_at_all) {
  for (const char* tif : {"0", "3", "4"}) {
    expect_accepted(buy(std::string("59=") + tif), std::string("59=") + tif);
  }
  for (const char* tif : {"1", "2", "5", "6", "7", "D"}) {
    expect_refused(buy(std::string("59=") + tif), "OrderInvalidInCurrentMarketSession", "0",
                   std::string("59=") + tif);
  }
  expect_accepted(buy("59="), "59=0");
  expect_accepted(buy("!59"), "59=0");
}

TEST(NewOrderLadder, a_market_order_has_another_word_for_the_same_times_in_force) {
  for (const char* tif : {"0", "3", "4"}) {
    expect_accepted(buy(std::string("40=1|59=") + tif), std::string("59=") + tif);
  }
  for (const char* tif : {"1", "2", "5", "6", "7", "D"}) {
    expect_refused(buy(std::string("40=1|59=") + tif), "InvalidTagCombinationForMarketOrder", "0",
                   std::string("!44|59=") + tif);
  }
}

TEST(NewOrderLadder, the_capacity_is_A_P_or_R) {
  for (const char* capacity : {"A", "P", "R"}) {
    expect_accepted(buy(std::string("47=") + capacity), std::string("47=") + capacity);
  }
  for (const char* capacity : {"X", "I", "a"}) {
    expect_refused(buy(std::string("47=") + capacity), "BrokerOption: invalid OrderCapacity", "0",
                   std::string("47=") + capacity);
  }
  expect_accepted(buy("47="), "47=P");
  expect_accepted(buy("!47"), "47=P");
}

TEST(NewOrderLadder, a_cl_ord_id_of_a_live_order_is_a_duplicate) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  client.hears("150=0|37=1000");
  client.says(buy("38=200"));
  client.hears("150=8|37=NONE|103=0|58=BrokerOption: duplicate ClOrdID among live orders");
  exchange.book_holds({"buy 100 @ 190.00 ALPHA a1"});
}

TEST(NewOrderLadder, a_cl_ord_id_of_another_owner_does_not_collide) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer alpha = exchange.logs_on("ALPHA");
  FixPeer beta = exchange.logs_on("BETA");
  alpha.says(buy());
  beta.says(buy());
  beta.hears("150=0|37=1001");
  exchange.book_holds({"buy 100 @ 190.00 ALPHA a1", "buy 100 @ 190.00 BETA a1"});
}

TEST(NewOrderLadder, a_cl_ord_id_may_be_used_again_as_soon_as_its_order_is_closed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("59=3"));  // cancelled at once
  client.says(buy());
  client.skips_all();
  exchange.is_hit("AAPL sell 100");  // filled
  client.says(buy());
  client.hears("150=0|37=1002");
}

TEST(NewOrderLadder, an_order_with_many_faults_gets_the_word_of_the_first) {
  // Every rung is broken at the start; each line mends the one that answered before.
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("11=live"));
  client.skips_all();
  std::string order = altered(BUY_100, "11=|55=MSFT|38=0|54=9|18=x|40=9|44=0|59=9|47=X|114=Y");
  for (const auto& [mended, text, reason] :
       std::vector<std::tuple<std::string, std::string, std::string>>{
           {"", "BrokerOption: invalid ClOrdID", "0"},
           {"11=live", "UnknownSymbol", "1"},
           {"55=AAPL", "ExceededMaxSharesPerOrder", "3"},
           {"38=100", "BrokerOption: invalid Side", "0"},
           {"54=5", "MissingLocate", "0"},
           {"114=N", "InvalidExecInst", "0"},
           {"18=i", "InvalidExecInst", "0"},
           {"40=2", "InvalidPrice", "0"},
           {"44=190", "OrderInvalidInCurrentMarketSession", "0"},
           {"40=1", "InvalidTagCombinationForMarketOrder", "0"},
           {"59=0", "BrokerOption: invalid OrderCapacity", "0"},
           {"47=A", "BrokerOption: duplicate ClOrdID among live orders", "0"},
       }) {
    order = altered(order, mended);
    client.says(order);
    client.hears("35=8|150=8|39=8|58=" + text + "|103=" + reason);
  }
  client.says(altered(order, "11=fresh"));
  client.hears("150=0|37=1001");
}

TEST(NewOrderLadder, only_the_first_character_of_a_field_counts) {
  expect_accepted(buy("54=12"), "54=1");
  expect_accepted(buy("40=21"), "40=2");
  expect_accepted(buy("59=09"), "59=0");
  expect_accepted(buy("47=AX"), "47=A");
}

TEST(NewOrderLadder, a_price_on_a_market_order_is_ignored) {
  expect_accepted(buy("40=1|44=1.00001"), "!44");
  expect_accepted(buy("40=1|44=-5"), "!44");
}

// --- Acceptance ---

TEST(NewOrder, an_acknowledgement_shows_the_order_as_it_was_read) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says("35=D|11=a1|1=ACCT|21=1|55=AAPL|54=2|38=300|40=2|44=190.50|59=0|18=i|47=A");
  client.hears(
      "35=8|49=IEXG|56=ALPHA|34=1|37=1000|11=a1|17=E1|20=0|150=0|39=0|55=AAPL|54=2|38=300|18=i|"
      "40=2|47=A|59=0|!41|44=190.5|32=0|31=0|151=300|14=0|6=0|!30|!375|!382|!851|!880|!9730|!58|"
      "!103|!1|!21");
  client.hears_nothing();
}

TEST(NewOrder, an_order_that_does_not_cross_rests_and_is_shown) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.01", "AAPL buy 200 @ 190.00"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  client.hears("150=0|37=1002|151=100");
  client.hears_nothing();
  exchange.feed_shows({"8 300 @ 190.00 last"});
  exchange.book_holds({"sell 300 @ 190.01", "buy 200 @ 190.00", "buy 100 @ 190.00 ALPHA a1"});
  EXPECT_EQ(exchange.order("ALPHA", "a1").id, 1002U);
  EXPECT_EQ(closing_count(exchange.engine), 0U);
}

TEST(NewOrder, only_accepted_orders_take_an_order_id) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("11=a1"));
  client.hears("37=1000");
  client.says(buy("11=a2|38=0"));
  client.hears("37=NONE");
  exchange.scenario.rejects.next = 1;
  client.says(buy("11=a3"));
  client.hears("37=NONE|58=bench:scripted_reject");
  client.says(buy("11=a4|59=3"));  // fills nothing, but has been accepted
  client.hears("150=0|37=1001");
  client.hears("150=4|37=1001");
  client.says(buy("11=a5|59=4"));
  client.hears("150=0|37=1002");
  client.hears("150=4|37=1002");
  client.says(buy("11=a6"));
  client.hears("150=0|37=1003");
}

TEST(NewOrder, the_acknowledgement_is_older_than_the_event_it_precedes) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  step_system_clock_by(1'000'000);
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  client.hears("150=0|60=20231114-22:13:20.123");  // the first reading
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 1U);
  EXPECT_GT(feed[0].timestamp_ns, START_SYSTEM_NS);
}

TEST(NewOrder, short_sales_rest_among_the_sells_and_keep_their_side) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("11=a5|54=5|114=N"));
  client.hears("150=0|54=5");
  client.says(sell("11=a6|54=6|114=N"));
  client.hears("150=0|54=6");
  exchange.book_holds({"sell 100 @ 190.00 ALPHA a5", "sell 100 @ 190.00 ALPHA a6"});
  EXPECT_FALSE(exchange.order("ALPHA", "a5").buy);
  exchange.is_hit("AAPL buy 200");
  exchange.drains_deferred();
  client.hears("150=2|54=5|32=100|31=190");
  client.hears("150=2|54=6|32=100|31=190");
}

TEST(NewOrder, a_pause_stops_the_walk_and_not_the_matching) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.00"});
  exchange.engine.paused = true;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  client.hears("150=0");
  client.hears("150=2|32=100");
}

TEST(NewOrder, orders_are_taken_before_the_market_has_opened) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  EXPECT_EQ(exchange.engine.system_status, 'O');
  exchange.stock().status = 'H';
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  client.hears("150=0");
}

// --- Meeting the book ---

TEST(NewOrder, market_buy_sweeps_two_levels_best_price_first) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.02", "AAPL sell 300 @ 190.01"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says("35=D|11=a1|55=AAPL|54=1|38=500|40=1|18=i");
  client.hears("35=8|34=1|17=E1|150=0|39=0|151=500|14=0|!44");
  client.hears("35=8|34=2|17=E2|150=1|39=1|32=300|31=190.01|151=200|14=300|6=190.01|880=1|851=2");
  client.hears("35=8|34=3|17=E3|150=2|39=2|32=200|31=190.02|151=0|14=500|6=190.014|880=2|851=2");
  client.hears_nothing();
  exchange.feed_shows({"T 300 @ 190.01", "T 200 @ 190.02", "5 0 @ 190.01", "5 100 @ 190.02 last"});
  exchange.book_holds({"sell 100 @ 190.02"});
}

TEST(NewOrder, market_sell_sweeps_the_bids_best_price_first) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL buy 300 @ 189.98", "AAPL buy 300 @ 189.99"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says("35=D|11=a1|55=AAPL|54=2|38=500|40=1|18=i");
  client.hears("150=0");
  client.hears("150=1|32=300|31=189.99|9730=TL");
  client.hears("150=2|32=200|31=189.98");
  exchange.feed_shows({"T 300 @ 189.99", "T 200 @ 189.98", "8 100 @ 189.98", "8 0 @ 189.99 last"});
}

TEST(NewOrder, a_limit_buy_trades_up_to_its_limit_and_rests_there) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.01", "AAPL sell 100 @ 190.02", "AAPL sell 100 @ 190.03"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("38=500|44=190.02"));
  client.hears("150=0|151=500|44=190.02");
  client.hears("150=1|39=1|32=100|31=190.01|151=400|14=100");
  client.hears("150=1|39=1|32=100|31=190.02|151=300|14=200|6=190.015");
  client.hears_nothing();
  exchange.feed_shows(
      {"T 100 @ 190.01", "T 100 @ 190.02", "5 0 @ 190.01", "5 0 @ 190.02", "8 300 @ 190.02 last"});
  exchange.book_holds({"sell 100 @ 190.03", "buy 300 @ 190.02 ALPHA a1"});
  EXPECT_EQ(exchange.order("ALPHA", "a1").cum, 200U);
  EXPECT_EQ(closing_count(exchange.engine), 0U);
}

TEST(NewOrder, a_limit_sell_trades_down_to_its_limit_and_rests_there) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL buy 100 @ 190.00", "AAPL buy 100 @ 189.99", "AAPL buy 100 @ 189.98"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("38=250|44=189.99"));
  client.hears("150=0");
  client.hears("150=1|32=100|31=190|151=150");
  client.hears("150=1|32=100|31=189.99|151=50");
  client.hears_nothing();
  exchange.book_holds({"sell 50 @ 189.99 ALPHA a1", "buy 100 @ 189.98"});
}

TEST(NewOrder, a_filled_order_is_closed_and_not_live) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy());
  client.hears("150=0");
  client.hears("150=2|39=2|151=0|14=100");
  client.hears_nothing();
  exchange.book_holds({});
  EXPECT_EQ(order_count(exchange.engine), 0U);
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  EXPECT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a1"), 0);
  EXPECT_EQ(exchange.scenario.counters.fills, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancels, 0U);
}

TEST(NewOrder, an_order_trades_with_an_order_of_its_own_owner) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("11=s1"));
  client.hears("150=0|37=1000");
  client.says(buy("11=b1"));
  client.hears("150=0|37=1001");
  client.hears("150=2|11=b1|54=1|851=2|880=1");  // the aggressor in the reply
  client.hears_nothing();
  exchange.drains_deferred();
  client.hears("150=2|11=s1|54=2|851=1|880=1");  // the resting side later in the turn
  EXPECT_EQ(exchange.scenario.counters.fills, 2U);
}

TEST(NewOrder, an_event_that_leaves_the_book_as_shown_shows_only_its_trade) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.00", "AAPL sell 300 @ 190.01"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("59=3|38=100"));
  exchange.feed_shows({"T 100 @ 190.00", "5 0 @ 190.00 last"});
  client.says(buy("11=a2|59=3|38=100"));  // meets nothing within its limit
  exchange.feed_shows({});
}

// --- Orders that may not rest ---

TEST(NewOrder, a_market_order_that_meets_nothing_is_acknowledged_and_cancelled) {
  for (const char* tif : {"0", "3", "4"}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(buy(std::string("40=1|59=") + tif));
    client.hears("34=1|150=0|39=0|151=100|14=0");
    client.hears("34=2|150=4|39=4|37=1000|11=a1|!41|151=0|14=0|6=0|32=0|31=0|58=UnmatchedIOC|!103");
    client.hears_nothing();
    exchange.feed_shows({});
    exchange.book_holds({});
    EXPECT_EQ(exchange.scenario.counters.cancels, 1U);
    EXPECT_EQ(closing_count(exchange.engine), 1U);
    EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  }
}

TEST(NewOrder, a_market_order_for_the_day_does_not_rest_its_remainder) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.01"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("40=1|38=500|59=0"));
  client.hears("150=0");
  client.hears("150=1|32=300|151=200");
  client.hears("150=4|39=4|151=0|14=300|6=190.01|58=UnmatchedIOC");
  client.hears_nothing();
  exchange.book_holds({});
  EXPECT_EQ(closing_count(exchange.engine), 1U);
}

TEST(NewOrder, an_immediate_order_takes_what_its_limit_reaches_and_the_rest_is_cancelled) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.01", "AAPL sell 300 @ 190.02"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("38=500|44=190.01|59=3"));
  client.hears("150=0");
  client.hears("150=1|32=300|31=190.01|151=200");
  client.hears("150=4|39=4|151=0|14=300|58=UnmatchedIOC|44=190.01");
  client.hears_nothing();
  exchange.feed_shows({"T 300 @ 190.01", "5 0 @ 190.01 last"});
  exchange.book_holds({"sell 300 @ 190.02"});
  EXPECT_EQ(exchange.scenario.counters.cancels, 1U);
}

TEST(NewOrder, an_immediate_order_filled_in_full_is_not_cancelled) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 300 @ 190.00"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("59=3"));
  client.hears("150=0");
  client.hears("150=2");
  client.hears_nothing();
  EXPECT_EQ(exchange.scenario.counters.cancels, 0U);
}

TEST(NewOrder, a_fill_or_kill_that_the_book_can_fill_trades_in_full) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 200 @ 190.01", "AAPL sell 100 @ 190.02", "AAPL sell 200 @ 190.02"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("38=500|44=190.02|59=4"));
  client.hears("150=0");
  client.hears("150=1|32=200|31=190.01");
  client.hears("150=1|32=100|31=190.02");
  client.hears("150=2|32=200|31=190.02|151=0|14=500");
  client.hears_nothing();
  exchange.book_holds({});
}

TEST(NewOrder, a_fill_or_kill_one_share_short_trades_nothing) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 200 @ 190.01", "AAPL sell 299 @ 190.02", "AAPL sell 900 @ 190.03"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("38=500|44=190.02|59=4"));
  client.hears("150=0|39=0|151=500");
  client.hears("150=4|39=4|151=0|14=0|58=UnmatchedIOC");
  client.hears_nothing();
  exchange.feed_shows({});
  exchange.book_holds({"sell 200 @ 190.01", "sell 299 @ 190.02", "sell 900 @ 190.03"});
  EXPECT_EQ(exchange.scenario.counters.cancels, 1U);
  client.says("35=F|11=c1|41=a1");
  client.hears("35=9|58=Too late to cancel|39=2|102=0");
}

TEST(NewOrder, a_selling_fill_or_kill_counts_the_bids_down_to_its_limit) {
  for (const auto& [qty, fills] :
       std::vector<std::pair<std::string, bool>>{{"300", true}, {"301", false}}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.rests({"AAPL buy 200 @ 190.00", "AAPL buy 100 @ 189.99", "AAPL buy 900 @ 189.98"});
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(sell("44=189.99|59=4|38=" + qty));
    client.hears("150=0");
    client.hears(fills ? "150=1|32=200" : "150=4|14=0");
    if (fills) client.hears("150=2|14=300");
    client.hears_nothing();
  }
}

TEST(NewOrder, a_fill_or_kill_counts_the_orders_of_its_own_owner) {
  for (const char* kind : {"44=190.01", "40=1"}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(sell("11=s1|44=190.00|38=200"));
    exchange.rests({"AAPL sell 100 @ 190.01"});
    client.skips_all();
    client.says(buy(std::string("11=b1|59=4|38=300|") + kind));
    client.hears("150=0|11=b1");
    client.hears("150=1|11=b1|32=200|31=190");
    client.hears("150=2|11=b1|32=100|31=190.01");
    client.hears_nothing();
    exchange.drains_deferred();
    client.hears("150=2|11=s1|32=200|31=190");
    exchange.book_holds({});
  }
}

TEST(NewOrder, a_market_fill_or_kill_counts_every_level) {
  for (const auto& [qty, answer] : std::vector<std::pair<std::string, std::string>>{
           {"400", "150=1|32=200"}, {"401", "150=4|14=0|58=UnmatchedIOC"}}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.rests({"AAPL sell 200 @ 190.00", "AAPL sell 200 @ 250.00"});
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(buy("40=1|59=4|38=" + qty));
    client.hears("150=0");
    client.hears(answer);
  }
}

TEST(NewOrder, a_fill_or_kill_counts_more_shares_than_32_bits_hold) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 4294967295 @ 190.00", "AAPL sell 1 @ 190.00"});
  EXPECT_EQ(shares_at(exchange.engine, exchange.stock(), SELLS, price4("190.00")), 0U);  // as shown
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("59=4"));
  client.hears("150=0");
  client.hears("150=2|32=100|31=190");
}

TEST(NewOrder, a_fill_or_kill_counts_bids_at_0_that_the_matching_stops_at) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL buy 500 @ 0"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("40=1|59=4"));
  client.hears("150=0");
  client.hears("150=4|14=0|58=UnmatchedIOC");
  client.hears_nothing();
  exchange.feed_shows({});

  exchange.rests({"AAPL buy 60 @ 1.00"});
  client.says(sell("40=1|59=4"));
  client.hears("150=0");
  client.hears("150=1|32=60|31=1|151=40");  // so it can be filled in part after all
  client.hears("150=4|151=0|14=60|58=UnmatchedIOC");
  client.hears_nothing();
}

TEST(NewOrder, a_fill_or_kill_counts_only_what_still_rests) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 30 @ 189.00", "AAPL sell 50 @ 190.00", "AAPL sell 120 @ 190.00"});
  exchange.is_hit("AAPL buy 100");  // a level, an order and a part of one are gone
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(buy("59=4|38=101"));
  client.hears("150=0");
  client.hears("150=4|14=0");
  client.says(buy("11=a2|59=4|38=100"));
  client.hears("150=0");
  client.hears("150=2|32=100");
}

}  // namespace
}  // namespace quorl::test
