#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view SELL_1000 = "35=D|11=a1|55=AAPL|54=2|38=1000|40=2|44=190.00|59=0|18=i";
constexpr std::string_view REPLACE = "35=G|11=a2|41=a1|55=AAPL|54=2|38=600|44=190.00";

std::string sell(std::string_view changes = "") { return altered(SELL_1000, changes); }
std::string replace(std::string_view changes = "") { return altered(REPLACE, changes); }

/// ALPHA with a1, a sell of 1000 at 190.00 that rests; its acknowledgement has been heard.
FixPeer resting_client(Exchange& exchange, uint32_t executed = 0) {
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  if (executed != 0) exchange.is_hit("AAPL buy " + std::to_string(executed));
  exchange.drains_deferred();
  client.skips_all();
  exchange.feed();
  return client;
}

/// The request is refused with these words, and the order stands as it was.
void expect_refused(std::string_view request, const std::string& text, const std::string& status,
                    uint32_t executed = 0) {
  const testing::ScopedTrace trace(__FILE__, __LINE__, std::string(request));
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, executed);
  EXPECT_EQ(standard_error_of([&] { client.says(request); }), "");
  client.hears("35=9|37=1000|41=a1|434=2|102=2|39=" + status + "|58=" + text + "|!150|!17");
  client.hears_nothing();
  exchange.feed_shows({});
  exchange.book_holds({"sell " + std::to_string(1000 - executed) + " @ 190.00 ALPHA a1"});
  EXPECT_EQ(exchange.order("ALPHA", "a1").qty, 1000U);
  EXPECT_THAT(live_names(exchange.engine), ElementsAre("ALPHA a1"));
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  const BenchCounters& counters = exchange.scenario.counters;
  EXPECT_EQ(counters.replace_rejects, 1U);
  EXPECT_EQ(counters.replace_requests, 0U);
  EXPECT_EQ(counters.replaces, 0U);
  EXPECT_EQ(counters.late_cancels, 0U);
  EXPECT_EQ(counters.stale_cancels, 0U);
  EXPECT_EQ(counters.cancel_rejects, 0U);
}

void expect_replaced(std::string_view request, const std::string& report) {
  const testing::ScopedTrace trace(__FILE__, __LINE__, std::string(request));
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  client.says(request);
  client.hears("35=8|150=5|39=5|41=a1|" + report);
  client.hears_nothing();
}

// --- The ladder, rung by rung ---

TEST(ReplaceLadder, the_new_name_has_1_to_20_bytes_and_no_separator) {
  expect_replaced(replace("11=12345678901234567890"), "11=12345678901234567890");
  for (const char* name :
       {"11=123456789012345678901", "11=", "!11", "11=a,2", "11=\"a2", "11=a@2"}) {
    expect_refused(replace(name), "Invalid or duplicate ClOrdID", "0");
  }
  for (const char c : {'\x01', '|'}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = resting_client(exchange);
    client.says_fields('G',
                       {{11, std::string(1, c)}, {41, "a1"}, {55, "AAPL"}, {54, "2"}, {38, "1"}});
    client.next_message();
    exchange.book_holds({"sell 1000 @ 190.00 ALPHA a1"});
    EXPECT_EQ(exchange.scenario.counters.replace_rejects, 1U);
  }
}

TEST(ReplaceLadder, the_new_name_may_not_be_live_not_even_as_the_old_one) {
  expect_refused(replace("11=a1"), "Invalid or duplicate ClOrdID", "0");
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  FixPeer beta = exchange.logs_on("BETA");
  client.says(sell("11=a2|38=100"));
  beta.says(sell("11=b2|38=100"));
  client.skips_all();
  client.says(replace("11=a2"));
  client.hears("35=9|37=1000|39=0|102=2|58=Invalid or duplicate ClOrdID");
  client.says(replace("11=b2"));  // another owner's name does not collide
  client.hears("150=5|11=b2|41=a1");
}

TEST(ReplaceLadder, a_bad_name_answers_even_for_an_unknown_order) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  const std::string said = standard_error_of([&] {
    client.says(replace("11=123456789012345678901|41=zz"));
    client.says(replace("11=a1|41=zz"));
  });
  EXPECT_EQ(said, "");
  client.hears("35=9|37=NONE|41=zz|39=8|102=2|434=2|58=Invalid or duplicate ClOrdID");
  client.hears("35=9|37=NONE|11=a1|39=8|102=2|58=Invalid or duplicate ClOrdID");
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 0U);
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 0U);
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 2U);
}

TEST(ReplaceLadder, a_bad_name_answers_as_for_an_unknown_order_even_if_it_has_just_closed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 1000);
  client.says(replace("11="));
  client.hears("35=9|37=NONE|39=8|102=2|58=Invalid or duplicate ClOrdID");
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 0U);
}

TEST(ReplaceLadder, an_order_closed_1999_ms_ago_is_too_late_to_replace) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 1000);
  advance_ms(1999);
  EXPECT_EQ(standard_error_of([&] { client.says(replace()); }), "");
  client.hears("35=9|37=NONE|11=a2|41=a1|39=2|102=0|434=2|58=Too late to cancel");
  client.hears_nothing();
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 0U);
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 1U);
  EXPECT_EQ(exchange.scenario.counters.cancel_rejects, 0U);
  EXPECT_EQ(exchange.scenario.counters.replace_requests, 0U);
}

TEST(ReplaceLadder, an_order_closed_2000_ms_ago_is_unknown_but_filled) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 1000);
  advance_ms(2000);
  EXPECT_EQ(standard_error_of([&] { client.says(replace()); }), "bench: stale replace for a1\n");
  client.hears("35=9|37=NONE|11=a2|41=a1|39=2|102=1|434=2|58=Unknown order");
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.late_cancels, 0U);
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 1U);
}

TEST(ReplaceLadder, an_order_never_seen_is_unknown_and_rejected) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  EXPECT_EQ(standard_error_of([&] { client.says(replace("41=%s%n")); }),
            "bench: stale replace for %s%n\n");
  client.hears("35=9|37=NONE|11=a2|41=%s%n|39=8|102=1|434=2|58=Unknown order");
  EXPECT_EQ(exchange.scenario.counters.stale_cancels, 1U);
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 1U);
}

TEST(ReplaceLadder, an_order_of_another_owner_is_unknown) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  resting_client(exchange);
  FixPeer beta = exchange.logs_on("BETA");
  beta.says(replace());
  beta.hears("35=9|39=8|58=Unknown order");
  exchange.book_holds({"sell 1000 @ 190.00 ALPHA a1"});
}

TEST(ReplaceLadder, quantities_go_from_1_to_10_million) {
  expect_replaced(replace("38=1"), "38=1|151=1");
  expect_replaced(replace("38=10000000"), "38=10000000|151=10000000");
  for (const char* qty : {"0", "0.5", "0.999", "-1", "10000000.5", "10000001", "5e9", "1e19", "inf",
                          "-inf", "1e300", "1e400", "1e-310", "abc", ""}) {
    expect_refused(replace(std::string("38=") + qty), "InvalidOrderQty", "0");
  }
  expect_refused(replace("!38"), "InvalidOrderQty", "0");
  expect_refused(replace("38=0.5"), "InvalidOrderQty", "0", 200);  // status 0 also with shares done
}

TEST(ReplaceLadder, a_fraction_of_a_share_is_cut_off) {
  expect_replaced(replace("38=600.9"), "38=600|151=600");
  expect_replaced(replace("38=1.999"), "38=1|151=1");
  expect_replaced(replace("38=0x64"), "38=100|151=100");
}

TEST(ReplaceLadder, a_quantity_that_is_not_a_number_is_refused_as_executed_already) {
  expect_refused(replace("38=nan"), "OrderQty at or below executed quantity", "0");
  expect_refused(replace("38=-nan"), "OrderQty at or below executed quantity", "0");
  expect_refused(replace("38=nan"), "OrderQty at or below executed quantity", "1", 200);
}

TEST(ReplaceLadder, prices_are_judged_as_those_of_a_new_order) {
  expect_replaced(replace("44=0.9999"), "44=0.9999");
  expect_replaced(replace("44=0.0001"), "44=0.0001");
  expect_replaced(replace("44=1"), "44=1");
  expect_replaced(replace("44=1.01"), "44=1.01");
  expect_replaced(replace("44=0.00005"), "44=0.0001");
  for (const char* price :
       {"1.0001", "1.0099", "190.005", "0", "0.00004", "-1", "-0.0001", "abc", "nan", "inf", "-inf",
        "1e15", "1e19", "1e300", "-1e300", "1e400", "1e-310"}) {
    expect_refused(replace(std::string("44=") + price), "InvalidPrice", "0");
  }
}

TEST(ReplaceLadder, an_empty_price_is_no_price_but_an_absent_one_is_the_old_one) {
  expect_refused(replace("44="), "InvalidPrice", "0");
  expect_refused(replace("44="), "InvalidPrice", "0", 200);
  expect_replaced(replace("!44"), "44=190|38=600|151=600");
}

TEST(ReplaceLadder, the_quantity_must_leave_something_open) {
  expect_refused(replace("38=200"), "OrderQty at or below executed quantity", "1", 200);
  expect_refused(replace("38=200.9"), "OrderQty at or below executed quantity", "1", 200);
  expect_refused(replace("38=1"), "OrderQty at or below executed quantity", "1", 200);
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 200);
  client.says(replace("38=201"));
  client.hears("150=5|38=201|151=1|14=200");
}

TEST(ReplaceLadder, side_and_symbol_must_be_those_of_the_order) {
  for (const char* change :
       {"54=1", "54=5", "54=", "!54", "55=MSFT", "55=", "!55", "55=AAP", "55=AAPL ", "55=aapl"}) {
    expect_refused(replace(change), "Side / Symbol must match the original", "0");
    expect_refused(replace(change), "Side / Symbol must match the original", "0", 200);
  }
  expect_replaced(replace("54=25"), "54=2");  // the first character counts
}

TEST(ReplaceLadder, a_short_sale_is_replaced_under_its_own_side) {
  for (const char* side : {"5", "6"}) {
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = exchange.logs_on("ALPHA");
    client.says(sell(std::string("114=N|54=") + side));
    client.skips_all();
    client.says(replace("54=2"));
    client.hears("35=9|58=Side / Symbol must match the original");
    client.says(replace(std::string("54=") + side));  // and needs no second locate
    client.hears(std::string("150=5|54=") + side);
  }
}

TEST(ReplaceLadder, the_symbol_is_compared_whole) {
  Exchange exchange = Exchange::with_empty_book("LONGSYMBOL1:10");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("55=LONGSYMBOL1"));
  client.skips_all();
  client.says(replace("55=LONGSYMB"));
  client.hears("35=9|58=Side / Symbol must match the original");
  client.says(replace("55=LONGSYMBOL1"));
  client.hears("150=5|55=LONGSYMBOL1");
}

TEST(ReplaceLadder, a_request_with_many_faults_gets_the_word_of_the_first) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 200);
  exchange.engine.note_closed("ALPHA", "old");
  std::string request = altered(REPLACE, "11=|41=old|38=0|44=0|54=1|55=MSFT");
  for (const auto& [mended, text, status, reason] :
       std::vector<std::tuple<std::string, std::string, std::string, std::string>>{
           {"", "Invalid or duplicate ClOrdID", "8", "2"},
           {"11=a2", "Too late to cancel", "2", "0"},
           {"41=zz", "Unknown order", "8", "1"},
           {"41=a1", "InvalidOrderQty", "0", "2"},
           {"38=150", "InvalidPrice", "0", "2"},
           {"44=190", "OrderQty at or below executed quantity", "1", "2"},
           {"38=600", "Side / Symbol must match the original", "0", "2"},
           {"54=2", "Side / Symbol must match the original", "0", "2"},
       }) {
    request = altered(request, mended);
    client.says(request);
    client.hears("35=9|434=2|58=" + text + "|39=" + status + "|102=" + reason);
  }
  client.says(altered(request, "55=AAPL"));
  client.hears("150=5|151=400");
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 8U);
  EXPECT_EQ(exchange.scenario.counters.replace_requests, 1U);
}

// --- The script ---

TEST(ReplaceScript, a_scripted_reject_leaves_the_order_as_it_was) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.replace_rejects.next = 1;
  FixPeer client = resting_client(exchange);
  EXPECT_EQ(standard_error_of([&] { client.says(replace()); }),
            "bench: scripted replace reject for a1 -> a2 (the order stands as it was)\n");
  client.hears("35=9|37=1000|11=a2|41=a1|39=0|102=2|434=2|58=bench:scripted_replace_reject");
  client.hears_nothing();
  exchange.book_holds({"sell 1000 @ 190.00 ALPHA a1"});
  exchange.feed_shows({});
  EXPECT_EQ(exchange.scenario.counters.replace_requests, 1U);
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 1U);
  EXPECT_EQ(exchange.scenario.counters.replaces, 0U);
  EXPECT_EQ(exchange.scenario.replace_rejects.next, 0U);
  client.says(replace());
  client.hears("150=5");
}

TEST(ReplaceScript, a_scripted_reject_of_a_part_filled_order_says_so) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.replace_rejects.every = 1;
  FixPeer client = resting_client(exchange, 200);
  client.says(replace());
  client.hears("35=9|37=1000|39=1|102=2|58=bench:scripted_replace_reject");
}

TEST(ReplaceScript, every_second_request_that_passes_the_ladder_is_refused) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.replace_rejects.every = 2;
  FixPeer client = resting_client(exchange);
  client.says(replace("38=0"));  // refused by the ladder: not counted
  client.hears("35=9|58=InvalidOrderQty");
  client.says(replace("11=a2|38=900"));
  client.hears("150=5");
  client.says(replace("11=a3|41=zz"));
  client.hears("35=9|58=Unknown order");
  client.says(replace("11=a3|41=a2|38=800"));
  client.hears("35=9|58=bench:scripted_replace_reject");
  client.says(replace("11=a3|41=a2|38=800"));
  client.hears("150=5");
  client.says(replace("11=a4|41=a3|38=700"));
  client.hears("35=9|58=bench:scripted_replace_reject");
  EXPECT_EQ(exchange.scenario.counters.replace_requests, 4U);
  EXPECT_EQ(exchange.scenario.counters.replaces, 2U);
  EXPECT_EQ(exchange.scenario.counters.replace_rejects, 4U);
}

TEST(ReplaceScript, a_recurring_reject_spends_a_one_shot_too) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.replace_rejects.every = 1;
  exchange.scenario.replace_rejects.next = 3;
  FixPeer client = resting_client(exchange);
  client.says(replace());
  EXPECT_EQ(exchange.scenario.replace_rejects.next, 2U);
}

// --- Priority kept ---

TEST(Replace, down_in_size_keeps_the_place) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 200);
  exchange.rests({"AAPL sell 300 @ 190.00"});
  client.says(replace("38=600"));
  client.hears(
      "35=8|34=3|37=1000|11=a2|41=a1|17=E3|20=0|150=5|39=5|55=AAPL|54=2|38=600|18=i|40=2|47=P|59=0|"
      "44=190|32=0|31=0|151=400|14=200|6=190|!30|!58|!103");
  client.hears_nothing();
  exchange.feed_shows({"5 700 @ 190.00 last"});
  exchange.book_holds({"sell 400 @ 190.00 ALPHA a2", "sell 300 @ 190.00"});
  const Order& order = exchange.order("ALPHA", "a2");
  EXPECT_EQ(order.id, 1000U);
  EXPECT_EQ(order.qty, 600U);
  EXPECT_EQ(order.leaves, 400U);
  EXPECT_EQ(order.cum, 200U);
  EXPECT_EQ(exchange.scenario.counters.replaces, 1U);
  EXPECT_EQ(exchange.engine.next_order_id, 1002U);  // the synthetic order took the last one
}

TEST(Replace, without_a_price_keeps_price_and_place) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL sell 300 @ 190.00"});
  client.says(replace("!44"));
  client.hears("150=5|44=190|151=600");
  exchange.book_holds({"sell 600 @ 190.00 ALPHA a2", "sell 300 @ 190.00"});
}

TEST(Replace, to_the_same_size_only_renames_and_shows_nothing) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL sell 300 @ 190.00"});
  client.says(replace("38=1000"));
  client.hears("150=5|11=a2|41=a1|38=1000|151=1000");
  exchange.feed_shows({});
  exchange.book_holds({"sell 1000 @ 190.00 ALPHA a2", "sell 300 @ 190.00"});
}

TEST(Replace, reads_nothing_of_the_request_but_size_price_and_names) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  client.says(replace("40=1|59=3|18=x|47=A|37=4711|114=Y"));
  client.hears("150=5|40=2|59=0|18=i|47=P|37=1000|44=190");
  exchange.book_holds({"sell 600 @ 190.00 ALPHA a2"});
}

// --- Priority lost ---

TEST(Replace, up_in_size_goes_to_the_back_of_its_level) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL sell 300 @ 190.00"});
  client.says(replace("38=1001"));
  client.hears("150=5|37=1000|11=a2|38=1001|151=1001");
  client.hears_nothing();
  exchange.feed_shows({"5 1301 @ 190.00 last"});
  exchange.book_holds({"sell 300 @ 190.00", "sell 1001 @ 190.00 ALPHA a2"});
  EXPECT_EQ(exchange.order("ALPHA", "a2").id, 1000U);
}

TEST(Replace, to_another_price_goes_to_the_back_of_the_level_there_even_with_less) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL sell 300 @ 190.01"});
  client.says(replace("38=100|44=190.01"));
  client.hears("150=5|44=190.01|151=100");
  exchange.feed_shows({"5 0 @ 190.00", "5 400 @ 190.01 last"});
  exchange.book_holds({"sell 300 @ 190.01", "sell 100 @ 190.01 ALPHA a2"});
  EXPECT_EQ(exchange.order("ALPHA", "a2").id, 1000U);
}

TEST(Replace, is_judged_by_open_shares_and_not_by_order_size) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange, 400);  // 600 open
  exchange.rests({"AAPL sell 300 @ 190.00"});
  client.says(replace("38=1000"));  // still 600 open
  exchange.book_holds({"sell 600 @ 190.00 ALPHA a2", "sell 300 @ 190.00"});
  client.says(replace("38=1001|41=a2|11=a3"));  // 601
  exchange.book_holds({"sell 300 @ 190.00", "sell 601 @ 190.00 ALPHA a3"});
}

TEST(Replace, to_a_crossing_price_is_told_before_the_fills_it_caused) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.writes_order_events();
  FixPeer client = resting_client(exchange);  // messages 1
  exchange.rests({"AAPL buy 200 @ 189.00", "AAPL buy 300 @ 188.00"});
  client.says(replace("38=600|44=188.00"));
  client.hears(
      "35=8|34=4|17=E4|150=5|39=5|37=1000|11=a2|41=a1|38=600|44=188|32=0|31=0|151=100|14=500|"
      "6=188.4");
  client.hears(
      "34=2|17=E2|150=1|39=1|37=1000|11=a2|!41|38=600|44=188|32=200|31=189|151=400|14=200|"
      "6=189|851=2");
  client.hears("34=3|17=E3|150=1|39=1|11=a2|!41|32=300|31=188|151=100|14=500|6=188.4");
  client.hears_nothing();
  exchange.feed_shows({"T 200 @ 189.00", "T 300 @ 188.00", "5 100 @ 188.00", "5 0 @ 190.00",
                       "8 0 @ 188.00", "8 0 @ 189.00 last"});
  exchange.book_holds({"sell 100 @ 188.00 ALPHA a2"});
  EXPECT_THAT(
      exchange.order_events(),
      testing::ElementsAre(
          testing::StartsWith(R"("ev":"new","cl":"a1")"),
          R"("ev":"fill","cl":"a2","oid":1000,"symbol":"AAPL","side":"S","qty":600,"px":188,)"
          R"("cum":200,"leaves":400,"last_qty":200,"text":""})",
          testing::StartsWith(R"("ev":"fill","cl":"a2")"),
          R"("ev":"replace","cl":"a2","oid":1000,"symbol":"AAPL","side":"S","qty":600,"px":188,)"
          R"("cum":500,"leaves":100,"last_qty":0,"text":"","ref":"a1"})"));
}

TEST(Replace, stamps_the_feed_with_the_first_reading_of_its_own_time) {
  struct Case {
    const char* changes;
    size_t messages;
  };
  for (const Case& c : {Case{"38=600", 1},             // keeps its place
                        Case{"38=2000", 1},            // loses it
                        Case{"38=1000|44=190.05", 2},  // goes to another level
                        // crosses: two trades, and three levels
                        Case{"38=1000|44=189.90", 5}}) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, c.changes);
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    exchange.rests({"AAPL buy 100 @ 189.95", "AAPL buy 100 @ 189.95"});
    FixPeer client = resting_client(exchange);
    advance_ms(1000);
    step_system_clock_by(1'000'000);
    client.says(replace(c.changes));
    const std::vector<FeedMessage> feed = exchange.feed();
    EXPECT_EQ(feed.size(), c.messages);
    for (const FeedMessage& message : feed) {
      EXPECT_EQ(message.timestamp_ns, START_SYSTEM_NS + 1'000'000'000);
    }
  }
}

TEST(Replace, that_fills_the_order_closes_both_its_names) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL buy 2000 @ 189.00"});
  client.says(replace("38=1000|44=189.00"));
  client.hears("34=3|150=5|39=5|151=0|14=1000|38=1000");
  client.hears("34=2|150=2|39=2|32=1000|31=189|151=0|14=1000");
  client.hears_nothing();
  EXPECT_THAT(live_names(exchange.engine), IsEmpty());
  EXPECT_FALSE(has_order(exchange.engine, 1000));
  EXPECT_EQ(closing_count(exchange.engine), 2U);
  EXPECT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a1"), 0);
  EXPECT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a2"), 0);
  for (const char* name : {"41=a1", "41=a2"}) {
    client.says(altered("35=F|11=c1", name));
    client.hears("35=9|37=NONE|58=Too late to cancel");
  }
  EXPECT_EQ(exchange.scenario.counters.replaces, 1U);
  EXPECT_EQ(exchange.scenario.counters.fills, 1U);
}

TEST(Replace, that_grows_at_a_price_the_other_side_has_reached_trades_there) {
  // A cut fill leaves a crossed book; the replaced order meets it as an aggressor.
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL buy 50 @ 190.00"});
  client.says(replace("38=1100"));
  client.hears("150=5|14=50|151=1050");
  client.hears("150=1|32=50|31=190");
  exchange.book_holds({"sell 1050 @ 190.00 ALPHA a2"});
}

TEST(Replace, that_keeps_its_place_does_not_trade_in_a_crossed_book) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.rests({"AAPL buy 50 @ 190.00"});
  client.says(replace("38=900"));
  client.hears("150=5|14=0|151=900");
  client.hears_nothing();
  exchange.book_holds({"sell 900 @ 190.00 ALPHA a2", "buy 50 @ 190.00"});
}

TEST(Replace, a_client_hit_by_it_is_told_later_in_the_turn) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  FixPeer beta = exchange.logs_on("BETA");
  exchange.scenario.partial_fills.every = 1;  // which never cuts a trade between clients
  beta.says("35=D|11=b1|55=AAPL|54=1|38=300|40=2|44=189.00|18=i");
  client.says("35=D|11=own|55=AAPL|54=1|38=100|40=2|44=189.00|18=i");
  beta.skips_all();
  client.skips_all();
  client.says(replace("44=189.00"));
  client.hears("150=5|14=400|151=200");
  client.hears("150=1|11=a2|32=300");
  client.hears("150=1|11=a2|32=100");
  client.hears_nothing();
  exchange.drains_deferred();
  beta.hears("150=2|11=b1|32=300|851=1");
  client.hears("150=2|11=own|32=100|851=1");
  EXPECT_EQ(exchange.scenario.counters.partial_candidates, 0U);
}

// --- What becomes of the names ---

TEST(Replace, the_order_is_found_by_its_new_name_and_the_old_one_has_closed) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  client.says(replace());
  client.hears("150=5");
  EXPECT_THAT(live_names(exchange.engine), ElementsAre("ALPHA a2"));
  EXPECT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a1"), 0);
  client.says("35=F|11=c1|41=a1");
  client.hears("35=9|39=2|58=Too late to cancel");
  client.says(replace("11=a3|41=a1"));
  client.hears("35=9|39=2|102=0|58=Too late to cancel");
  advance_ms(2000);
  client.says(replace("11=a3|41=a1"));
  client.hears("35=9|39=2|102=1|58=Unknown order");
  client.says("35=F|11=c2|41=a2");
  client.hears("150=4|41=a2|37=1000");
}

TEST(Replace, may_take_a_name_that_was_closed_a_moment_ago) {
  for (const char* changes : {"38=600", "38=2000"}) {  // place kept, place lost
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = resting_client(exchange);
    client.says(sell("11=a0|44=191.00"));
    client.says("35=F|11=c1|41=a0");
    client.skips_all();
    ASSERT_EQ(ms_since_closing(exchange.engine, "ALPHA", "a0"), 0);
    client.says(replace(std::string("11=a0|") + changes));
    client.hears("35=8|150=5|11=a0|41=a1|37=1000");
    EXPECT_THAT(live_names(exchange.engine), ElementsAre("ALPHA a0"));
    client.says(replace("11=a1|41=a0|38=500"));  // and back to its own former name
    client.hears("35=8|150=5|11=a1|41=a0|37=1000");
    client.says("35=F|11=c2|41=a1");
    client.hears("35=8|150=4|41=a1|37=1000");
    EXPECT_EQ(exchange.scenario.counters.replace_rejects, 0U);
  }
}

TEST(Replace, of_a_replaced_order_goes_on_under_one_order_id) {
  for (const char* price : {"190.00", "190.01"}) {  // place kept, place lost
    Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
    FixPeer client = resting_client(exchange);
    client.says(replace(std::string("11=a2|41=a1|38=900|44=") + price));
    client.hears("150=5|37=1000|11=a2|41=a1");
    client.says(replace("11=a3|41=a2|38=800"));
    client.hears("150=5|37=1000|11=a3|41=a2");
    client.says(sell("11=a1|38=100"));  // the first name is free again
    client.hears("150=0|37=1001");
    exchange.book_holds({"sell 800 @ 190.00 ALPHA a3", "sell 100 @ 190.00 ALPHA a1"});
  }
}

TEST(Replace, never_schedules_a_cancel) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = resting_client(exchange);
  exchange.scenario.unsolicited_cancels.next = 1;
  exchange.scenario.unsolicited_cancels.every = 1;
  client.says(replace("38=2000"));
  client.hears("150=5");
  EXPECT_THAT(scheduled_cancels(exchange.engine), IsEmpty());
  EXPECT_EQ(exchange.scenario.unsolicited_cancels.next, 1U);
}

TEST(Replace, of_a_buy_works_on_its_own_side) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.rests({"AAPL sell 100 @ 190.02"});
  FixPeer client = exchange.logs_on("ALPHA");
  client.says("35=D|11=a1|55=AAPL|54=1|38=300|40=2|44=190.00|18=i");
  client.skips_all();
  exchange.feed();
  client.says("35=G|11=a2|41=a1|55=AAPL|54=1|38=300|44=190.02");
  client.hears("150=5|14=100|151=200|44=190.02");
  client.hears("150=1|32=100|31=190.02");
  exchange.feed_shows({"T 100 @ 190.02", "5 0 @ 190.02", "8 0 @ 190.00", "8 200 @ 190.02 last"});
  exchange.book_holds({"buy 200 @ 190.02 ALPHA a2"});
}

}  // namespace
}  // namespace quorl::test
