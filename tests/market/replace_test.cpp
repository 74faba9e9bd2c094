#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

// Which values the fields of a replace may have, and what of it no message shows. All else is in
// tests/stories/replaces.story.

namespace quorl::test {
namespace {

using testing::ElementsAre;

constexpr std::string_view SELL_1000 = "35=D|11=a1|55=AAPL|54=2|38=1000|40=2|44=190.00|59=0|18=i";
constexpr std::string_view REPLACE = "35=G|11=a2|41=a1|55=AAPL|54=2|38=600|44=190.00";

std::string sell_1000(std::string_view changes = "") { return altered(SELL_1000, changes); }
std::string replace(std::string_view changes = "") { return altered(REPLACE, changes); }

/// ALPHA with a1, a sell of 1000 at 190.00 that rests; its acknowledgement has been heard.
FixPeer resting_client(Exchange& exchange, uint32_t executed = 0) {
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell_1000());
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

}  // namespace
}  // namespace quorl::test
