#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exchange.h"
#include "support/inside.h"
#include "support/test_clock.h"

// What of a cancel no message shows. What clients hear of it, and the feed, is in
// tests/stories/cancels.story.

namespace quorl::test {
namespace {

constexpr std::string_view SELL_100 = "35=D|11=a1|55=AAPL|54=2|38=100|40=2|44=190.00|59=0|18=i";

std::string sell(std::string_view changes = "") { return altered(SELL_100, changes); }

TEST(Cancel, stamps_the_feed_with_the_first_reading_of_its_own_time) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  exchange.feed();
  advance_ms(1000);
  step_system_clock_by(1'000'000);
  client.says("35=F|11=c1|41=a1");
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 1U);
  EXPECT_EQ(feed[0].timestamp_ns, START_SYSTEM_NS + 1'000'000'000);
}

TEST(Cancel, is_no_trade_for_the_tape) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  client.says("35=F|11=c1|41=a1");
  EXPECT_EQ(exchange.engine.next_trade_id, 0U);
  EXPECT_EQ(exchange.stock().volume, 0U);
  EXPECT_EQ(exchange.stock().last_price, 0);
}

TEST(Cancel, of_a_fresh_closing_is_for_an_unknown_order_once_all_closings_were_forgotten) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  FixPeer client = exchange.logs_on("ALPHA");
  for (int i = 1; i <= 50000; ++i) exchange.engine.note_closed("BETA", std::to_string(i));
  client.says(sell("59=3"));  // closed at once, as number 50001
  client.skips_all();
  EXPECT_EQ(closing_count(exchange.engine), 0U);
  client.says("35=F|11=c1|41=a1");
  client.hears("35=9|39=8|102=1|58=Unknown order");
}

TEST(CancelRace, stamps_its_trade_and_its_level_with_the_first_reading_of_its_own_time) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.every = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell());
  exchange.feed();
  advance_ms(1000);
  step_system_clock_by(1'000'000);
  client.says("35=F|11=c1|41=a1");
  const std::vector<FeedMessage> feed = exchange.feed();
  ASSERT_EQ(feed.size(), 2U);
  EXPECT_EQ(feed[0].type, 'T');
  for (const FeedMessage& message : feed) {
    EXPECT_EQ(message.timestamp_ns, START_SYSTEM_NS + 1'000'000'000);
  }
}

TEST(CancelRace, is_a_trade_for_the_tape) {
  Exchange exchange = Exchange::with_empty_book("AAPL:190.00");
  exchange.scenario.fills_on_cancel.every = 1;
  FixPeer client = exchange.logs_on("ALPHA");
  client.says(sell("38=300"));
  client.says("35=F|11=c1|41=a1");
  EXPECT_EQ(exchange.stock().last_price, price4("190.00"));
  EXPECT_EQ(exchange.stock().volume, 300U);
}

}  // namespace
}  // namespace quorl::test
