// The five scripted behaviours, each as a bench uses it: armed by the scenario or by the control
// port, provoked, and then seen on FIX, on the feed, in the counters, in the order event file and
// on standard error.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "quorl/client/fix_message.h"
#include "tests/e2e/support/one_turn.h"
#include "tests/e2e/support/watched_exchange.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixMessage;
using client::FixSession;
using testing::ElementsAre;
using testing::IsEmpty;

client::SimulatorOptions scripted(const std::string& scenario) {
  client::SimulatorOptions options = still();
  options.scenario = scenario;
  return options;
}

std::string armed_line(const std::string& values) {
  return "bench: scenario 'demo' armed (disconnect after 0 orders, lapse 0 ms, " + values + ")";
}

/// Far below the market, where nothing but a script reaches it.
void buys_at_100(FixSession& session, const std::string& cl_ord_id,
                 const std::string& quantity = "100") {
  session.new_order({.cl_ord_id = cl_ord_id, .quantity = quantity, .price = "100"});
}

std::string acknowledged(FixSession& session, const std::string& cl_ord_id) {
  return session.hears("35=8|150=0|39=0|11=" + cl_ord_id).get(37);
}

void is_refused_by_script(FixSession& session, const std::string& cl_ord_id) {
  session.hears("35=8|150=8|39=8|37=NONE|11=" + cl_ord_id +
                "|151=0|14=0|58=bench:scripted_reject|103=0");
}

// --- Reject of a new order ---

TEST(ScriptedReject, by_the_scenario_refuses_every_nth_order_that_passes_the_checks) {
  WatchedExchange exchange(scripted("name=demo,reject_every=3"));
  EXPECT_EQ(exchange.simulator().lines().front(),
            armed_line("reject every 3, partial every 0, fill-on-cancel every 0, unsolicited "
                       "cancel every 0, replace reject every 0"));
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession beta = exchange.logs_on("BETA");
  exchange.ignore_so_far();

  buys_at_100(alpha, "a1");
  acknowledged(alpha, "a1");
  buys_at_100(beta, "b1");  // the count is the exchange's and not a client's
  acknowledged(beta, "b1");
  buys_at_100(alpha, "bad", "0");  // refused anyway: not counted
  alpha.hears("35=8|150=8|58=ExceededMaxSharesPerOrder");
  buys_at_100(alpha, "a3");
  is_refused_by_script(alpha, "a3");
  for (const std::string id : {"a4", "a5"}) {
    buys_at_100(alpha, id);
    acknowledged(alpha, id);
  }
  buys_at_100(beta, "b6");
  is_refused_by_script(beta, "b6");

  EXPECT_EQ(exchange.rises(), (Rises{{"orders", 6}, {"accepts", 4}, {"rejects", 2}}));
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 100 last", "8 AAPL 200 @ 100 last",
                                           "8 AAPL 300 @ 100 last", "8 AAPL 400 @ 100 last"));
  EXPECT_THAT(exchange.lines(), IsEmpty());
  const auto events = exchange.events();
  ASSERT_EQ(events.size(), 7U);
  EXPECT_EQ(describe(events[3]),
            "reject a3 AAPL B 100 @ 100 cum 0 leaves 0 last 0 \"bench:scripted_reject\"");
  EXPECT_EQ(events[3].oid, 0U);

  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a3"});  // it has never been an order
  alpha.hears("35=9|39=8|102=1|58=Unknown order");
}

TEST(ScriptedReject, by_the_control_port_refuses_the_next_n_orders) {
  WatchedExchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.control().ok("reject 2");
  exchange.ignore_so_far();
  alpha.new_order({.cl_ord_id = "bad", .price = "100.005"});  // spends none of them
  alpha.hears("35=8|150=8|58=InvalidPrice");
  for (const std::string id : {"a1", "a2"}) {
    buys_at_100(alpha, id);
    is_refused_by_script(alpha, id);
  }
  buys_at_100(alpha, "a1");
  acknowledged(alpha, "a1");
  EXPECT_EQ(exchange.rises(), (Rises{{"orders", 3}, {"accepts", 1}, {"rejects", 2}}));
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 100 last"));
  EXPECT_THAT(exchange.lines(), IsEmpty());
}

TEST(ScriptedReject, of_both_kinds_on_one_order_is_one_and_spends_the_one_shot) {
  WatchedExchange exchange(scripted("reject_every=2"));
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.control().ok("reject 1");
  buys_at_100(alpha, "a1");
  is_refused_by_script(alpha, "a1");  // by the command
  exchange.control().ok("reject 1");
  buys_at_100(alpha, "a2");
  is_refused_by_script(alpha, "a2");  // by the rule, and the command's is gone with it
  buys_at_100(alpha, "a3");
  acknowledged(alpha, "a3");
  buys_at_100(alpha, "a4");
  is_refused_by_script(alpha, "a4");
}

// --- Partial fill ---

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

// --- Cancel that loses the race to a fill ---

std::string race_line(const std::string& cl_ord_id) {
  return "bench: cancel of " + cl_ord_id +
         " loses the race to a fill (filled in full, cancel rejected 'too late to cancel')";
}

TEST(LostRace, by_the_scenario_every_nth_cancel_of_a_live_order_is_filled_instead) {
  WatchedExchange exchange(scripted("name=demo,fill_on_cancel_every=2"));
  EXPECT_EQ(exchange.simulator().lines().front(),
            armed_line("reject every 0, partial every 0, fill-on-cancel every 2, unsolicited "
                       "cancel every 0, replace reject every 0"));
  FixSession alpha = exchange.logs_on("ALPHA");
  buys_at_100(alpha, "a1");
  acknowledged(alpha, "a1");
  buys_at_100(alpha, "a2", "300");
  const std::string id = acknowledged(alpha, "a2");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4|41=a1");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});  // finds nothing: not counted
  alpha.hears("35=9|41=a1");
  exchange.ignore_so_far();

  alpha.cancel({.cl_ord_id = "c2", .orig_cl_ord_id = "a2"});
  alpha.hears("35=8|150=2|39=2|11=a2|37=" + id + "|32=300|31=100|151=0|14=300|6=100|851=1|9730=ML");
  alpha.hears("35=9|37=" + id + "|11=c2|41=a2|39=2|102=0|434=1|58=Too late to cancel");
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), ElementsAre("T AAPL 300 @ 100", "8 AAPL 0 @ 100 last"));
  EXPECT_EQ(exchange.rises(), (Rises{{"fills", 1}, {"race_fills", 1}, {"cancel_rejects", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre(race_line("a2")));
  const auto events = exchange.events();
  EXPECT_THAT(described(events), ElementsAre("fill a2 AAPL B 300 @ 100 cum 300 leaves 0 last 300",
                                             "cancel_reject a2 \"Too late to cancel\""));
  EXPECT_EQ(std::to_string(events.at(1).oid), id);

  alpha.cancel({.cl_ord_id = "c3", .orig_cl_ord_id = "a2"});
  alpha.hears("35=9|37=NONE|39=2|102=0|58=Too late to cancel");
}

TEST(LostRace, by_the_control_port_the_next_n_cancels_are_lost) {
  WatchedExchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  for (const std::string id : {"a1", "a2"}) {
    buys_at_100(alpha, id);
    acknowledged(alpha, id);
  }
  exchange.control().ok("fill_on_cancel");
  exchange.ignore_so_far();
  alpha.cancel({.cl_ord_id = "c0", .orig_cl_ord_id = "nobody"});  // spends nothing
  alpha.hears("35=9|58=Unknown order");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a2"});  // behind a1 at its price
  alpha.hears("35=8|150=2|11=a2|32=100|31=100");
  alpha.hears("35=9|11=c1|41=a2|39=2|58=Too late to cancel");
  EXPECT_THAT(exchange.news(), ElementsAre("T AAPL 100 @ 100", "8 AAPL 100 @ 100 last"));
  alpha.cancel({.cl_ord_id = "c2", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4|11=c2|41=a1");
  EXPECT_EQ(exchange.rises(), (Rises{{"fills", 1},
                                     {"race_fills", 1},
                                     {"cancels", 1},
                                     {"cancel_rejects", 2},
                                     {"stale_cancels", 1}}));
  EXPECT_THAT(exchange.lines(),
              ElementsAre("bench: stale cancel for nobody (unknown order)", race_line("a2")));
}

TEST(LostRace, fills_in_full_whatever_the_script_of_partial_fills_says) {
  WatchedExchange exchange(scripted("partial_fill_every=1"));
  FixSession alpha = exchange.logs_on("ALPHA");
  buys_at_100(alpha, "a1");
  acknowledged(alpha, "a1");
  exchange.control().ok("fill_on_cancel 1");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=2|11=a1|32=100|151=0");
  alpha.hears("35=9|11=c1");
  EXPECT_EQ(exchange.counter("partials"), 0U);
}

// --- Cancel that nobody asked for ---

TEST(UnsolicitedCancel, by_the_scenario_takes_every_nth_accepted_order_if_it_rests) {
  WatchedExchange exchange(scripted("name=demo,unsolicited_cancel_every=2"));
  EXPECT_EQ(exchange.simulator().lines().front(),
            armed_line("reject every 0, partial every 0, fill-on-cancel every 0, unsolicited "
                       "cancel every 2, replace reject every 0"));
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.ignore_so_far();
  buys_at_100(alpha, "a1");
  acknowledged(alpha, "a1");
  alpha.new_order(
      {.cl_ord_id = "a2", .price = "100", .tif = "3"});  // the second, but does not rest
  acknowledged(alpha, "a2");
  alpha.hears("35=8|150=4|11=a2|58=UnmatchedIOC");
  for (const std::string id : {"a3", "a4"}) {
    buys_at_100(alpha, id);
    acknowledged(alpha, id);
  }
  alpha.hears("35=8|150=4|39=4|11=a4|41=a4|151=0|14=0|58=AdminCancel");
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 100 last", "8 AAPL 200 @ 100 last",
                                           "8 AAPL 300 @ 100 last", "8 AAPL 200 @ 100 last"));
  EXPECT_EQ(exchange.rises(),
            (Rises{{"orders", 4}, {"accepts", 4}, {"cancels", 1}, {"unsolicited_cancels", 1}}));
  EXPECT_THAT(exchange.lines(),
              ElementsAre("bench: unsolicited cancel of a4 (exchange-initiated; the client must "
                          "mark it cancelled)"));
  EXPECT_EQ(describe(exchange.events().back()),
            "cancel a4 AAPL B 100 @ 100 cum 0 leaves 0 last 0 \"unsolicited\"");
}

TEST(UnsolicitedCancel, by_the_control_port_takes_the_next_n_orders_that_rest) {
  WatchedExchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  exchange.control().ok("unsolicited_cancel 2");
  in_one_turn(exchange, {[&] { buys_at_100(alpha, "a1"); }, [&] { buys_at_100(alpha, "a2"); },
                         [&] { buys_at_100(alpha, "a3"); }});
  for (const std::string id : {"a1", "a2", "a3"}) acknowledged(alpha, id);
  alpha.hears("35=8|150=4|11=a1|41=a1|58=AdminCancel");
  alpha.hears("35=8|150=4|11=a2|41=a2|58=AdminCancel");
  alpha.hears_nothing();
  EXPECT_EQ(exchange.book("AAPL").bids.at(to_price4("100")), 100U);
  EXPECT_EQ(exchange.counter("unsolicited_cancels"), 2U);
  EXPECT_EQ(exchange.counter("cancels"), 0U);
}

// --- Reject of a replace ---

TEST(ScriptedReplaceReject, by_the_scenario_refuses_every_nth_replace_that_passes_the_checks) {
  WatchedExchange exchange(scripted("name=demo,replace_reject_every=2"));
  EXPECT_EQ(exchange.simulator().lines().front(),
            armed_line("reject every 0, partial every 0, fill-on-cancel every 0, unsolicited "
                       "cancel every 0, replace reject every 2"));
  FixSession alpha = exchange.logs_on("ALPHA");
  buys_at_100(alpha, "a1");
  const std::string id = acknowledged(alpha, "a1");
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "200"});
  alpha.hears("35=8|150=5|11=a2|41=a1");
  alpha.replace({.cl_ord_id = "a3", .orig_cl_ord_id = "a2", .quantity = "0"});  // not counted
  alpha.hears("35=9|58=InvalidOrderQty");
  exchange.ignore_so_far();

  alpha.replace({.cl_ord_id = "a3", .orig_cl_ord_id = "a2", .quantity = "300"});
  alpha.hears("35=9|37=" + id + "|11=a3|41=a2|39=0|102=2|434=2|58=bench:scripted_replace_reject");
  EXPECT_THAT(exchange.news(), IsEmpty());
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: scripted replace reject for a2 -> a3 (the "
                                            "order stands as it was)"));
  const auto events = exchange.events();
  EXPECT_THAT(described(events),
              ElementsAre("replace_reject a2 \"bench:scripted_replace_reject\" ref a3"));
  EXPECT_EQ(std::to_string(events.at(0).oid), id);

  alpha.replace({.cl_ord_id = "a3", .orig_cl_ord_id = "a2", .quantity = "300"});
  alpha.hears("35=8|150=5|11=a3|41=a2|37=" + id + "|38=300");
}

TEST(ScriptedReplaceReject, by_the_control_port_refuses_the_next_n_replaces) {
  WatchedExchange exchange(still());
  exchange.clear_the_book();
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession beta = exchange.logs_on("BETA");
  buys_at_100(alpha, "a1", "300");
  const std::string id = acknowledged(alpha, "a1");
  beta.new_order({.cl_ord_id = "b1", .side = "2", .price = "100", .tif = "3"});
  alpha.hears("35=8|150=1|11=a1|14=100");
  exchange.control().ok("replace_reject 1");
  exchange.ignore_so_far();

  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "200"});
  alpha.hears("35=9|37=" + id + "|11=a2|41=a1|39=1|102=2|434=2|58=bench:scripted_replace_reject");
  EXPECT_THAT(exchange.news(), IsEmpty());
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: scripted replace reject for a1 -> a2 (the "
                                            "order stands as it was)"));
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4|41=a1|38=300|14=100");
}

}  // namespace
}  // namespace e2e
