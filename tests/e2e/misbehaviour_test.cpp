// The scripted partial fill, which only the market's own flow suffers, as a bench uses it: armed by
// the scenario or by the control port, provoked, and then seen on FIX, on the feed, in the
// counters, in the order event file and on standard error. The other scripted behaviours are
// stories.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "quorl/client/fix_message.h"
#include "tests/e2e/support/watched_exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixMessage;
using client::FixSession;
using testing::ElementsAre;

client::SimulatorOptions scripted(const std::string& scenario) {
  client::SimulatorOptions options = still();
  options.scenario = scenario;
  return options;
}

std::string armed_line(const std::string& values) {
  return "bench: scenario 'demo' armed (disconnect after 0 orders, lapse 0 ms, " + values + ")";
}

std::string acknowledged(FixSession& session, const std::string& cl_ord_id) {
  return session.hears("35=8|150=0|39=0|11=" + cl_ord_id).get(37);
}

/// The trades at that price that the feed has shown.
std::vector<client::TradeReport> trades_at(WatchedExchange& exchange, const std::string& price) {
  std::vector<client::TradeReport> trades;
  for (const client::TradeReport& trade : exchange.book("AAPL").trades) {
    if (trade.price == to_price4(price)) trades.push_back(trade);
  }
  return trades;
}

/// An order that is to be filled in these steps, at 195, by the market's own flow.
void expect_fills(WatchedExchange& exchange, FixSession& session,
                  const std::vector<unsigned>& steps) {
  unsigned cum = 0;
  unsigned total = 0;
  for (const unsigned step : steps) total += step;
  std::vector<FixMessage> fills;
  std::vector<std::string> events;
  for (const unsigned step : steps) {
    cum += step;
    const std::string kind = cum == total ? "2" : "1";
    fills.push_back(session.hears(
        "35=8|150=" + kind + "|39=" + kind + "|32=" + std::to_string(step) +
        "|31=195|851=1|14=" + std::to_string(cum) + "|151=" + std::to_string(total - cum)));
    events.push_back("fill a1 AAPL B " + std::to_string(total) + " @ 195 cum " +
                     std::to_string(cum) + " leaves " + std::to_string(total - cum) + " last " +
                     std::to_string(step));
  }
  exchange.control().ok("rate -1");
  session.hears_nothing();
  EXPECT_EQ(described(exchange.events()), events);
  const auto trades = trades_at(exchange, "195");
  ASSERT_EQ(trades.size(), fills.size());
  for (size_t i = 0; i < fills.size(); ++i) {
    EXPECT_EQ(trades[i].size, steps[i]);
    EXPECT_EQ(std::to_string(trades[i].trade_id), fills[i].get(880));
  }
}

TEST(ScriptedPartialFill, by_the_scenario_cuts_every_nth_fill_that_would_complete_an_order) {
  WatchedExchange exchange(scripted("name=demo,partial_fill_every=1"));
  EXPECT_EQ(exchange.simulator().lines().front(),
            armed_line("reject every 0, partial every 1, fill-on-cancel every 0, unsolicited "
                       "cancel every 0, replace reject every 0"));
  exchange.clear_the_book();
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .price = "195"});  // above the market: every sell reaches it
  acknowledged(alpha, "a1");
  exchange.ignore_so_far();
  exchange.control().ok("rate 5");
  expect_fills(exchange, alpha, {50, 25, 12, 6, 3, 2, 1, 1});
  EXPECT_THAT(
      exchange.lines(),
      ElementsAre("bench: partial fill of a1: 50 of 100", "bench: partial fill of a1: 25 of 50",
                  "bench: partial fill of a1: 12 of 25", "bench: partial fill of a1: 6 of 13",
                  "bench: partial fill of a1: 3 of 7", "bench: partial fill of a1: 2 of 4",
                  "bench: partial fill of a1: 1 of 2"));
  EXPECT_EQ(exchange.rises(), (Rises{{"fills", 8}, {"partials", 7}}));
}

TEST(ScriptedPartialFill, by_the_control_port_cuts_the_next_n_such_fills_by_the_market) {
  WatchedExchange exchange(still());
  exchange.clear_the_book();
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession beta = exchange.logs_on("BETA");
  exchange.control().ok("partial 1");
  exchange.ignore_so_far();

  // A trade with another client is never cut, and spends nothing.
  alpha.new_order({.cl_ord_id = "a0", .price = "194"});
  acknowledged(alpha, "a0");
  beta.new_order({.cl_ord_id = "b1", .side = "2", .price = "194", .tif = "3"});
  alpha.hears("35=8|150=2|11=a0|32=100");
  EXPECT_EQ(exchange.rises(), (Rises{{"orders", 2}, {"accepts", 2}, {"fills", 2}}));

  alpha.new_order({.cl_ord_id = "a1", .quantity = "90", .price = "195"});
  acknowledged(alpha, "a1");
  exchange.ignore_so_far();
  exchange.control().ok("rate 5");
  expect_fills(exchange, alpha, {45, 45});
  EXPECT_EQ(exchange.rises(), (Rises{{"fills", 2}, {"partials", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: partial fill of a1: 45 of 90"));
}

}  // namespace
}  // namespace e2e
