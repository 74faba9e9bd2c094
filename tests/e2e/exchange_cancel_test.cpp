// Cancels that nobody asked for: about 300 ms after an order came to rest the exchange takes it off
// the book, if it still rests under that ClOrdID.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
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
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

// The clock is read in whole milliseconds.
constexpr milliseconds LEAST_DELAY{299};

std::string cancelled_line(const std::string& cl_ord_id) {
  return "bench: unsolicited cancel of " + cl_ord_id +
         " (exchange-initiated; the client must mark it cancelled)";
}

std::string admin_cancel_of(const std::string& cl_ord_id) {
  return "35=8|150=4|39=4|11=" + cl_ord_id + "|41=" + cl_ord_id + "|32=0|31=0|151=0|58=AdminCancel";
}

/// Buys at 100 rest far below the market and nothing reaches them but the exchange's own cancel.
class ExchangeCancel : public testing::Test {
 protected:
  ExchangeCancel() {
    alpha.logon();
    exchange.ignore_so_far();
  }

  void buy(FixSession& session, const std::string& cl_ord_id, const std::string& tif = "0") const {
    session.new_order({.cl_ord_id = cl_ord_id, .price = "100", .tif = tif});
  }

  client::BidLevels bids_at_100() {
    client::BidLevels bids = exchange.book("AAPL").bids;
    std::erase_if(bids, [](const auto& level) { return level.first != to_price4("100"); });
    return bids;
  }

  WatchedExchange exchange{still()};
  FixSession alpha = exchange.session("ALPHA");
};

TEST_F(ExchangeCancel, takes_a_resting_order_300_ms_later_and_tells_its_owner) {
  exchange.control().ok("unsolicited_cancel 1");
  const auto sent = steady_clock::now();
  buy(alpha, "a1");
  const std::string id = alpha.hears("35=8|150=0|11=a1").get(37);
  const FixMessage report = alpha.hears(admin_cancel_of("a1") + "|37=" + id + "|38=100|14=0|6=0");
  EXPECT_GE(steady_clock::now() - sent, LEAST_DELAY);
  EXPECT_FALSE(report.has(103));

  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 100 last", "8 AAPL 0 @ 100 last"));
  EXPECT_EQ(exchange.rises(), (Rises{{"orders", 1}, {"accepts", 1}, {"unsolicited_cancels", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre(cancelled_line("a1")));
  const auto events = exchange.events();
  EXPECT_THAT(described(events),
              ElementsAre("new a1 AAPL B 100 @ 100 cum 0 leaves 100 last 0",
                          "cancel a1 AAPL B 100 @ 100 cum 0 leaves 0 last 0 \"unsolicited\""));
  EXPECT_EQ(std::to_string(events.at(1).oid), id);

  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=9|37=NONE|11=c1|41=a1|39=2|102=0|58=Too late to cancel");
  buy(alpha, "a2");  // the count is spent
  alpha.hears("35=8|150=0|11=a2");
}

TEST_F(ExchangeCancel, of_an_order_filled_in_part_reports_what_was_executed) {
  exchange.clear_the_book();
  FixSession beta = exchange.logs_on("BETA");
  exchange.control().ok("unsolicited_cancel 1");
  in_one_turn(exchange,
              {[&] { alpha.new_order({.cl_ord_id = "a1", .quantity = "300", .price = "190.5"}); },
               [&] { beta.new_order({.cl_ord_id = "b1", .side = "2", .price = "190"}); }});
  alpha.hears("35=8|150=0|11=a1");
  alpha.hears("35=8|150=1|11=a1|14=100|151=200");
  alpha.hears(admin_cancel_of("a1") + "|38=300|14=100|6=190.5");
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 300 @ 190.5 last", "T AAPL 100 @ 190.5",
                                           "8 AAPL 200 @ 190.5 last", "8 AAPL 0 @ 190.5 last"));
}

TEST_F(ExchangeCancel, reaches_an_owner_who_has_left_by_the_resend_after_the_next_logon) {
  exchange.control().ok("unsolicited_cancel 1");
  in_one_turn(exchange, {[&] { buy(alpha, "a1"); }, [&] { alpha.send_message("5", {}); }});
  alpha.hears("35=8|150=0|11=a1");
  alpha.expect("5");
  alpha.expect_closed();
  const uint32_t n = alpha.next_in;
  exchange.simulator().wait_for_line(cancelled_line("a1"));

  alpha.continuity = client::Continuity::TRACK;
  EXPECT_EQ(alpha.logon().seq(), n + 1);
  EXPECT_THAT(alpha.missing(), ElementsAre(n));
  alpha.resend_request(std::to_string(n), "0");
  alpha.hears(admin_cancel_of("a1") + "|43=Y|34=" + std::to_string(n));
  alpha.hears("35=4|43=Y|123=Y|34=" + std::to_string(n + 1));
  EXPECT_THAT(alpha.missing(), IsEmpty());
  EXPECT_EQ(exchange.rises().at("unsolicited_cancels"), 1U);
  EXPECT_THAT(bids_at_100(), IsEmpty());
}

TEST_F(ExchangeCancel, does_not_find_an_order_that_has_been_replaced) {
  exchange.control().ok("unsolicited_cancel 2");
  in_one_turn(exchange,
              {[&] { buy(alpha, "a1"); },
               [&] {
                 alpha.replace(
                     {.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "90", .price = "100"});
               },
               [&] { buy(alpha, "later"); }});
  alpha.hears("35=8|150=0|11=a1");
  alpha.hears("35=8|150=5|11=a2|41=a1");
  alpha.hears("35=8|150=0|11=later");
  alpha.hears(admin_cancel_of("later"));  // scheduled behind a1
  alpha.hears_nothing();
  EXPECT_EQ(bids_at_100(), (client::BidLevels{{to_price4("100"), 90}}));
  EXPECT_EQ(exchange.rises().at("unsolicited_cancels"), 1U);
  EXPECT_THAT(exchange.lines(), ElementsAre(cancelled_line("later")));
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a2"});
  alpha.hears("35=8|150=4|11=c1|41=a2");
}

TEST_F(ExchangeCancel, takes_the_order_that_uses_the_cl_ord_id_by_then) {
  exchange.control().ok("unsolicited_cancel 1");
  in_one_turn(exchange, {[&] { buy(alpha, "a1"); },
                         [&] { alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"}); },
                         [&] { buy(alpha, "a1"); }});
  const std::string first = alpha.hears("35=8|150=0|11=a1").get(37);
  alpha.hears("35=8|150=4|11=c1|41=a1|37=" + first);
  const std::string second = alpha.hears("35=8|150=0|11=a1").get(37);
  EXPECT_NE(first, second);
  alpha.hears(admin_cancel_of("a1") + "|37=" + second);
  EXPECT_EQ(exchange.rises(),
            (Rises{{"orders", 2}, {"accepts", 2}, {"cancels", 1}, {"unsolicited_cancels", 1}}));
  EXPECT_THAT(bids_at_100(), IsEmpty());
}

TEST_F(ExchangeCancel, of_an_order_that_has_filled_comes_to_nothing) {
  exchange.clear_the_book();
  FixSession beta = exchange.logs_on("BETA");
  exchange.control().ok("unsolicited_cancel 2");
  exchange.ignore_so_far();
  in_one_turn(exchange,
              {[&] { buy(alpha, "a1"); }, [&] { buy(alpha, "later"); },
               [&] { beta.new_order({.cl_ord_id = "b1", .side = "2", .price = "100"}); }});
  alpha.hears("35=8|150=0|11=a1");
  alpha.hears("35=8|150=0|11=later");
  alpha.hears("35=8|150=2|11=a1");
  alpha.hears(admin_cancel_of("later"));
  alpha.hears_nothing();
  EXPECT_EQ(exchange.rises().at("unsolicited_cancels"), 1U);
  EXPECT_THAT(exchange.lines(), ElementsAre(cancelled_line("later")));
}

TEST_F(ExchangeCancel, count_is_spent_only_by_an_order_that_rests) {
  exchange.control().ok("unsolicited_cancel 1");
  buy(alpha, "ioc", "3");
  alpha.hears("35=8|150=0|11=ioc");
  alpha.hears("35=8|150=4|11=ioc|58=UnmatchedIOC");
  buy(alpha, "a1");
  alpha.hears("35=8|150=0|11=a1");
  alpha.hears(admin_cancel_of("a1"));
}

TEST_F(ExchangeCancel, of_several_orders_come_in_the_order_in_which_they_came_to_rest) {
  FixSession beta = exchange.logs_on("BETA");
  exchange.control().ok("unsolicited_cancel 3");
  exchange.ignore_so_far();
  in_one_turn(exchange, {[&] { buy(alpha, "a1"); }, [&] { buy(alpha, "a2"); },
                         [&] { buy(beta, "b1"); }, [&] { buy(beta, "b2"); }});
  alpha.hears("35=8|150=0|11=a1");
  alpha.hears("35=8|150=0|11=a2");
  beta.hears("35=8|150=0|11=b1");
  beta.hears("35=8|150=0|11=b2");
  alpha.hears(admin_cancel_of("a1"));
  alpha.hears(admin_cancel_of("a2"));
  beta.hears(admin_cancel_of("b1"));
  EXPECT_THAT(exchange.lines(),
              ElementsAre(cancelled_line("a1"), cancelled_line("a2"), cancelled_line("b1")));
  EXPECT_EQ(bids_at_100(), (client::BidLevels{{to_price4("100"), 100}}));  // b2
}

}  // namespace
}  // namespace e2e
