// The life of a resting order: cancelled or not, replaced or not, its place in the queue, and the
// order in which its owner is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
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

using Lines = std::vector<std::string>;

/// AAPL holds only what the clients ALPHA and BETA put there. BETA logged on first: in a turn in
/// which both are read, BETA is served first.
class OrderLife : public testing::Test {
 protected:
  OrderLife() {
    exchange.clear_the_book();
    beta.logon();
    alpha.logon();
    exchange.ignore_so_far();
  }

  /// Rests an order and returns its number (37).
  std::string rests(FixSession& session, const client::NewOrder& order) {
    session.new_order(order);
    const FixMessage report = session.hears("35=8|150=0|39=0|11=" + order.cl_ord_id);
    return report.get(37);
  }

  /// Trades that quantity against the best of the book, at once.
  void sells(FixSession& session, const std::string& quantity, const std::string& price) {
    session.new_order({.cl_ord_id = "hit" + std::to_string(++hits_),
                       .side = "2",
                       .quantity = quantity,
                       .price = price,
                       .tif = "3"});
    session.hears("35=8|150=0");
    session.hears("35=8|150=2|32=" + quantity + "|31=" + price);
  }

  WatchedExchange exchange{still()};
  FixSession beta = exchange.session("BETA");
  FixSession alpha = exchange.session("ALPHA");

 private:
  unsigned hits_ = 0;
};

// --- Cancel ---

TEST_F(OrderLife, cancel_takes_what_is_left_off_the_book_and_no_trade_is_shown) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .quantity = "300", .price = "190.5"});
  sells(beta, "100", "190.5");
  alpha.hears("35=8|150=1|11=a1|32=100|151=200|14=100");
  exchange.ignore_so_far();

  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  const FixMessage report = alpha.hears("35=8|150=4|39=4|11=c1|41=a1|37=" + id +
                                        "|38=300|44=190.5|32=0|31=0|151=0|14=100|6=190.5");
  EXPECT_FALSE(report.has(58));
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 0 @ 190.5 last"));
  EXPECT_EQ(exchange.rises(), (Rises{{"cancels", 1}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());
  const auto events = exchange.events();
  EXPECT_THAT(described(events), ElementsAre("cancel a1 AAPL B 300 @ 190.5 cum 100 leaves 0 last 0 "
                                             "\"cancel\""));
  EXPECT_EQ(std::to_string(events.at(0).oid), id);
}

TEST_F(OrderLife, cancel_finds_its_order_by_the_orig_cl_ord_id_alone) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  alpha.send_message(
      "F",
      {{11, "an id of more than twenty bytes"}, {41, "a1"}, {55, "NONSUCH"}, {54, "2"}, {38, "7"}});
  alpha.hears("35=8|150=4|11=an id of more than twenty bytes|41=a1|55=AAPL|54=1|38=100");
  EXPECT_EQ(exchange.rises().at("cancels"), 1U);
}

TEST_F(OrderLife, cancel_without_a_cl_ord_id_is_reported_under_the_orders_own_and_without_41) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  exchange.ignore_so_far();
  alpha.cancel({.orig_cl_ord_id = "a1"});
  EXPECT_FALSE(alpha.hears("35=8|150=4|39=4|11=a1").has(41));
  EXPECT_THAT(described(exchange.events()),
              ElementsAre("cancel a1 AAPL B 100 @ 190 cum 0 leaves 0 last 0 \"cancel\""));
}

TEST_F(OrderLife, second_cancel_is_too_late_and_counts_as_late) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4");
  exchange.ignore_so_far();
  alpha.cancel({.cl_ord_id = "c2", .orig_cl_ord_id = "a1"});
  alpha.hears("35=9|37=NONE|11=c2|41=a1|39=2|102=0|434=1|58=Too late to cancel");
  EXPECT_EQ(exchange.rises(), (Rises{{"cancel_rejects", 1}, {"late_cancels", 1}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());
  EXPECT_THAT(exchange.news(), IsEmpty());
  const auto events = exchange.events();
  EXPECT_THAT(described(events), ElementsAre("cancel_reject a1 \"Too late to cancel\""));
  EXPECT_EQ(events.at(0).oid, 0U);
  EXPECT_EQ(events.at(0).side, " ");
  EXPECT_EQ(events.at(0).qty + events.at(0).cum + events.at(0).leaves, 0U);
  EXPECT_EQ(events.at(0).px, "0");
}

TEST_F(OrderLife, cancel_of_a_filled_order_is_too_late) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  sells(beta, "100", "190");
  alpha.hears("35=8|150=2|11=a1");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=9|37=NONE|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel");
}

TEST_F(OrderLife, cancel_of_an_order_nobody_knows_is_stale) {
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "zz"});
  alpha.hears("35=9|37=NONE|11=c1|41=zz|39=8|102=1|434=1|58=Unknown order");
  EXPECT_EQ(exchange.rises(), (Rises{{"cancel_rejects", 1}, {"stale_cancels", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: stale cancel for zz (unknown order)"));
  EXPECT_THAT(described(exchange.events()), ElementsAre("cancel_reject zz \"Unknown order\""));
}

TEST_F(OrderLife, order_of_another_owner_is_unknown_and_stays) {
  rests(beta, {.cl_ord_id = "b1", .price = "190"});
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "b1"});
  alpha.hears("35=9|37=NONE|39=8|102=1|434=1|58=Unknown order");
  alpha.replace({.cl_ord_id = "c2", .orig_cl_ord_id = "b1", .quantity = "200", .price = "190"});
  alpha.hears("35=9|37=NONE|39=8|102=1|434=2|58=Unknown order");
  EXPECT_EQ(exchange.book("AAPL").bids, (client::BidLevels{{to_price4("190"), 100}}));
}

TEST_F(OrderLife, order_refused_by_the_ladder_was_never_known) {
  alpha.new_order({.cl_ord_id = "a1", .price = "190.005"});
  alpha.hears("35=8|150=8|58=InvalidPrice");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=9|39=8|102=1|58=Unknown order");
}

TEST_F(OrderLife, two_seconds_after_its_end_an_order_is_no_longer_late_but_unknown) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  const auto before_end = steady_clock::now();
  alpha.cancel({.cl_ord_id = "c0", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4");
  const auto after_end = steady_clock::now();
  exchange.ignore_so_far();

  uint64_t late = 0;
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  for (;;) {
    ASSERT_FALSE(deadline.expired());
    const auto before_request = steady_clock::now();
    alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
    const FixMessage reject = alpha.hears("35=9|37=NONE|11=c1|41=a1|39=2|434=1");
    if (reject.get(58) != "Too late to cancel") {
      EXPECT_EQ(reject.get(58), "Unknown order");
      EXPECT_EQ(reject.get(102), "1");
      EXPECT_GE(steady_clock::now() - before_end, milliseconds(1999));
      break;
    }
    EXPECT_EQ(reject.get(102), "0");
    EXPECT_LE(before_request - after_end, milliseconds(2000));
    ++late;
    std::this_thread::sleep_for(milliseconds(20));
  }
  EXPECT_EQ(exchange.rises(),
            (Rises{{"cancel_rejects", late + 1}, {"late_cancels", late}, {"stale_cancels", 1}}));
  EXPECT_THAT(exchange.lines(),
              ElementsAre("bench: stale cancel for a1 (closed more than 2 s ago)"));

  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "100", .price = "190"});
  alpha.hears("35=9|37=NONE|11=a2|41=a1|39=2|102=1|434=2|58=Unknown order");
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", 1}, {"stale_cancels", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: stale replace for a1"));
}

// --- Which replaces are refused ---

/// A replace of a1, which rests, with one thing or more wrong. The fields are sent as they stand.
struct Refusal {
  const char* fields;
  const char* text;  // 58
  const char* ord_status;
};

TEST_F(OrderLife, replace_ladder_answers_with_the_first_broken_rule_and_the_order_stands) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .quantity = "500", .price = "190"});
  rests(alpha, {.cl_ord_id = "other", .quantity = "100", .price = "189"});
  sells(beta, "200", "190");
  alpha.hears("35=8|150=1|11=a1|14=200");
  exchange.ignore_so_far();

  constexpr const char* CL_ORD_ID = "Invalid or duplicate ClOrdID";
  constexpr const char* QUANTITY = "InvalidOrderQty";
  constexpr const char* PRICE = "InvalidPrice";
  constexpr const char* EXECUTED = "OrderQty at or below executed quantity";
  constexpr const char* MATCH = "Side / Symbol must match the original";
  const std::vector<Refusal> refusals = {
      {"41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},  // no 11
      {"11=|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},
      {"11=123456789012345678901|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},
      {"11=r\"|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},
      {"11=r,|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},
      {"11=r@|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},
      {"11=other|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},
      {"11=a1|41=a1|55=AAPL|54=1|38=600|44=190", CL_ORD_ID, "0"},  // its own id is live
      {"11=r|41=a1|55=AAPL|54=1|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=0|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=0.9|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=-1|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=abc|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=10000001|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=inf|44=190", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=0", PRICE, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=", PRICE, "0"},  // present, if empty
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=-190", PRICE, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=190.005", PRICE, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=1.0001", PRICE, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=nan", PRICE, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=600|44=1e15", PRICE, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=200|44=190", EXECUTED, "1"},
      {"11=r|41=a1|55=AAPL|54=1|38=200.9|44=190", EXECUTED, "1"},
      {"11=r|41=a1|55=AAPL|54=1|38=1|44=190", EXECUTED, "1"},
      {"11=r|41=a1|55=AAPL|54=1|38=nan|44=190", EXECUTED, "1"},
      {"11=r|41=a1|55=AAPL|54=2|38=600|44=190", MATCH, "0"},
      {"11=r|41=a1|55=AAPL|38=600|44=190", MATCH, "0"},  // no 54
      {"11=r|41=a1|55=MSFT|54=1|38=600|44=190", MATCH, "0"},
      {"11=r|41=a1|54=1|38=600|44=190", MATCH, "0"},  // no 55
      // Two rules broken: the earlier answers.
      {"11=a1|41=a1|55=AAPL|54=1|38=0|44=190", CL_ORD_ID, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=0|44=0", QUANTITY, "0"},
      {"11=r|41=a1|55=AAPL|54=1|38=200|44=0", PRICE, "0"},
      {"11=r|41=a1|55=MSFT|54=2|38=200|44=190", EXECUTED, "1"},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.fields);
    alpha.send_message("G", client::fix_fields(refusal.fields));
    alpha.hears("35=9|37=" + id + "|41=a1|39=" + refusal.ord_status +
                "|102=2|434=2|58=" + refusal.text);
  }
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", refusals.size()}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());
  EXPECT_THAT(exchange.news(), IsEmpty());
  EXPECT_EQ(exchange.events().size(), refusals.size());

  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4|41=a1|38=500|44=190|14=200");
}

TEST_F(OrderLife, replace_to_no_number_of_an_untouched_order_is_refused_with_status_0) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  alpha.send_message("G", client::fix_fields("11=r|41=a1|55=AAPL|54=1|38=nan|44=190"));
  alpha.hears("35=9|37=" + id + "|39=0|102=2|58=OrderQty at or below executed quantity");
}

TEST_F(OrderLife, refused_replace_is_told_to_the_bench_under_the_old_id_with_the_new_as_its_ref) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  exchange.ignore_so_far();
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "0", .price = "190"});
  alpha.hears("35=9|11=a2|41=a1");
  const auto events = exchange.events();
  EXPECT_THAT(described(events), ElementsAre("replace_reject a1 \"InvalidOrderQty\" ref a2"));
  EXPECT_EQ(events.at(0).side, " ");
}

TEST_F(OrderLife, bad_new_id_answers_ahead_of_an_unknown_order) {
  alpha.replace({.cl_ord_id = "123456789012345678901",
                 .orig_cl_ord_id = "zz",
                 .quantity = "100",
                 .price = "190"});
  alpha.hears("35=9|37=NONE|41=zz|39=8|102=2|434=2|58=Invalid or duplicate ClOrdID");
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", 1}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());
}

TEST_F(OrderLife, replace_of_an_order_just_closed_is_late_and_of_an_unknown_one_stale) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4");
  exchange.ignore_so_far();

  // What else is wrong with the request is not looked at.
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .side = "2", .quantity = "0"});
  alpha.hears("35=9|37=NONE|11=a2|41=a1|39=2|102=0|434=2|58=Too late to cancel");
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", 1}, {"late_cancels", 1}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());

  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "zz", .side = "2", .quantity = "0"});
  alpha.hears("35=9|37=NONE|11=a2|41=zz|39=8|102=1|434=2|58=Unknown order");
  EXPECT_EQ(exchange.rises(), (Rises{{"replace_rejects", 1}, {"stale_cancels", 1}}));
  EXPECT_THAT(exchange.lines(), ElementsAre("bench: stale replace for zz"));
}

// --- Priority ---

TEST_F(OrderLife, less_at_the_same_price_keeps_its_place) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .quantity = "1000", .price = "190"});
  rests(beta, {.cl_ord_id = "b1", .quantity = "100", .price = "190"});
  FixSession seller = exchange.logs_on("SELLER");
  sells(seller, "200", "190");
  alpha.hears("35=8|150=1|11=a1|14=200|151=800");
  exchange.ignore_so_far();

  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "600", .price = "190"});
  const FixMessage report = alpha.hears("35=8|150=5|39=5|11=a2|41=a1|37=" + id +
                                        "|38=600|44=190|32=0|31=0|151=400|14=200|6=190");
  EXPECT_FALSE(report.has(58));
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 500 @ 190 last"));
  EXPECT_EQ(exchange.rises(), (Rises{{"replaces", 1}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());
  const auto events = exchange.events();
  EXPECT_THAT(described(events),
              ElementsAre("replace a2 AAPL B 600 @ 190 cum 200 leaves 400 last 0 ref a1"));
  EXPECT_EQ(std::to_string(events.at(0).oid), id);

  sells(seller, "400", "190");
  alpha.hears("35=8|150=2|39=2|11=a2|37=" + id + "|38=600|32=400|151=0|14=600");
  beta.hears_nothing();
}

TEST_F(OrderLife, same_price_and_equal_shares_keep_the_place_and_show_nothing_on_the_feed) {
  rests(alpha, {.cl_ord_id = "a1", .quantity = "600", .price = "190"});
  rests(beta, {.cl_ord_id = "b1", .quantity = "600", .price = "190"});
  exchange.ignore_so_far();
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "600.9"});  // no price
  alpha.hears("35=8|150=5|11=a2|41=a1|38=600|44=190|151=600|14=0");
  EXPECT_THAT(exchange.news(), IsEmpty());

  FixSession seller = exchange.logs_on("SELLER");
  sells(seller, "600", "190");
  alpha.hears("35=8|150=2|11=a2|14=600");
  beta.hears_nothing();
}

TEST_F(OrderLife, more_at_the_same_price_goes_to_the_back_of_the_level) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .quantity = "300", .price = "190"});
  rests(beta, {.cl_ord_id = "b1", .quantity = "300", .price = "190"});
  exchange.ignore_so_far();
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "301", .price = "190"});
  alpha.hears("35=8|150=5|11=a2|41=a1|37=" + id + "|38=301|151=301|14=0");
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 601 @ 190 last"));
  EXPECT_EQ(exchange.rises(), (Rises{{"replaces", 1}}));

  FixSession seller = exchange.logs_on("SELLER");
  sells(seller, "300", "190");
  beta.hears("35=8|150=2|11=b1");
  alpha.hears_nothing();
  sells(seller, "301", "190");
  alpha.hears("35=8|150=2|11=a2|37=" + id + "|14=301");
}

TEST_F(OrderLife,
       another_price_goes_to_the_back_there_and_coming_back_does_not_bring_the_place_back) {
  rests(alpha, {.cl_ord_id = "a1", .quantity = "300", .price = "190"});
  rests(beta, {.cl_ord_id = "b1", .quantity = "300", .price = "190"});
  exchange.ignore_so_far();
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "200", .price = "189.99"});
  alpha.hears("35=8|150=5|11=a2|41=a1|38=200|44=189.99|151=200");
  alpha.replace({.cl_ord_id = "a3", .orig_cl_ord_id = "a2", .quantity = "200", .price = "190"});
  alpha.hears("35=8|150=5|11=a3|41=a2|44=190|151=200");
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 200 @ 189.99", "8 AAPL 300 @ 190 last",
                                           "8 AAPL 0 @ 189.99", "8 AAPL 500 @ 190 last"));

  FixSession seller = exchange.logs_on("SELLER");
  sells(seller, "300", "190");
  beta.hears("35=8|150=2|11=b1");
  alpha.hears_nothing();
}

TEST_F(OrderLife, after_a_replace_the_new_id_names_the_order_and_the_old_one_is_closed) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "100", .price = "189"});
  alpha.hears("35=8|150=5|11=a2|41=a1");
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"});
  alpha.hears("35=9|37=NONE|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel");
  alpha.replace({.cl_ord_id = "a3", .orig_cl_ord_id = "a1", .quantity = "100", .price = "188"});
  alpha.hears("35=9|37=NONE|11=a3|41=a1|39=2|102=0|434=2|58=Too late to cancel");

  // The old id is free again, and names the new order then.
  const std::string second = rests(alpha, {.cl_ord_id = "a1", .price = "187"});
  EXPECT_NE(second, id);
  alpha.cancel({.cl_ord_id = "c2", .orig_cl_ord_id = "a2"});
  alpha.hears("35=8|150=4|11=c2|41=a2|37=" + id + "|44=189");
  alpha.cancel({.cl_ord_id = "c3", .orig_cl_ord_id = "a1"});
  alpha.hears("35=8|150=4|11=c3|41=a1|37=" + second + "|44=187");
}

// --- A replace that trades ---

TEST_F(OrderLife, replace_that_crosses_is_told_first_and_numbered_last) {
  rests(beta, {.cl_ord_id = "b1", .side = "2", .quantity = "100", .price = "190.01"});
  rests(beta, {.cl_ord_id = "b2", .side = "2", .quantity = "200", .price = "190.02"});
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .quantity = "400", .price = "189"});
  exchange.ignore_so_far();
  alpha.continuity = client::Continuity::TRACK;
  const uint32_t n = alpha.next_in;

  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "500", .price = "190.02"});
  const FixMessage replaced = alpha.hears("35=8|150=5|39=5|11=a2|41=a1|37=" + id +
                                          "|38=500|44=190.02|32=0|31=0|151=200|14=300|6=190.0167");
  const FixMessage first = alpha.hears("35=8|150=1|39=1|11=a2|37=" + id +
                                       "|38=500|44=190.02|32=100|31=190.01|151=400|14=100|851=2");
  const FixMessage second = alpha.hears("35=8|150=1|39=1|11=a2|37=" + id +
                                        "|38=500|44=190.02|32=200|31=190.02|151=200|14=300|851=2");
  EXPECT_THAT((std::vector{replaced.seq(), first.seq(), second.seq()}),
              ElementsAre(n + 2, n, n + 1));
  EXPECT_THAT(alpha.missing(), IsEmpty());
  EXPECT_FALSE(first.has(41));
  EXPECT_FALSE(second.has(41));
  const auto exec_number = [](const FixMessage& m) { return std::stoul(m.get(17).substr(1)); };
  EXPECT_EQ(exec_number(second), exec_number(first) + 1);
  EXPECT_EQ(exec_number(replaced), exec_number(second) + 1);
  alpha.hears_nothing();

  beta.hears("35=8|150=2|11=b1|32=100|31=190.01|851=1|880=" + first.get(880));
  beta.hears("35=8|150=2|11=b2|32=200|31=190.02|851=1|880=" + second.get(880));
  EXPECT_THAT(exchange.news(),
              ElementsAre("T AAPL 100 @ 190.01", "T AAPL 200 @ 190.02", "5 AAPL 0 @ 190.01",
                          "5 AAPL 0 @ 190.02", "8 AAPL 0 @ 189", "8 AAPL 200 @ 190.02 last"));
  EXPECT_THAT(described(exchange.events()),
              ElementsAre("fill a2 AAPL B 500 @ 190.02 cum 100 leaves 400 last 100",
                          "fill a2 AAPL B 500 @ 190.02 cum 300 leaves 200 last 200",
                          "replace a2 AAPL B 500 @ 190.02 cum 300 leaves 200 last 0 ref a1",
                          "fill b1 AAPL S 100 @ 190.01 cum 100 leaves 0 last 100",
                          "fill b2 AAPL S 200 @ 190.02 cum 200 leaves 0 last 200"));
  EXPECT_EQ(exchange.rises(), (Rises{{"replaces", 1}, {"fills", 4}}));
  EXPECT_THAT(exchange.lines(), IsEmpty());

  // What is left rests under its old number and its new id.
  alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a2"});
  alpha.hears("35=8|150=4|41=a2|37=" + id + "|14=300|151=0");
}

TEST_F(OrderLife, replace_that_fills_the_order_closes_both_its_ids) {
  rests(beta, {.cl_ord_id = "b1", .side = "2", .quantity = "300", .price = "190"});
  rests(alpha, {.cl_ord_id = "a1", .quantity = "300", .price = "189"});
  exchange.ignore_so_far();
  alpha.continuity = client::Continuity::TRACK;
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "300", .price = "190.05"});
  alpha.hears("35=8|150=5|39=5|11=a2|41=a1|151=0|14=300|6=190");
  alpha.hears("35=8|150=2|39=2|11=a2|32=300|31=190|151=0|14=300");
  EXPECT_THAT(exchange.news(),
              ElementsAre("T AAPL 300 @ 190", "5 AAPL 0 @ 190", "8 AAPL 0 @ 189 last"));
  for (const std::string closed : {"a1", "a2"}) {
    alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = closed});
    alpha.hears("35=9|41=" + closed + "|39=2|102=0|58=Too late to cancel");
  }
}

TEST_F(OrderLife, sell_short_is_replaced_under_its_own_side_character) {
  rests(alpha, {.cl_ord_id = "a1", .side = "5", .price = "190", .locate = "N"});
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .side = "2", .quantity = "50"});
  alpha.hears("35=9|58=Side / Symbol must match the original");
  alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .side = "5", .quantity = "50"});
  alpha.hears("35=8|150=5|54=5|38=50|151=50");
}

// --- What one turn brings together ---

TEST_F(OrderLife,
       cancel_of_an_order_filled_earlier_in_the_turn_is_refused_before_the_fill_is_told) {
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  exchange.ignore_so_far();
  const uint32_t n = alpha.next_in;
  in_one_turn(exchange, {[&] { beta.new_order({.cl_ord_id = "b1", .side = "2", .price = "190"}); },
                         [&] { alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a1"}); }});
  const FixMessage reject =
      alpha.hears("35=9|37=NONE|11=c1|41=a1|39=2|102=0|434=1|58=Too late to cancel");
  const FixMessage fill = alpha.hears("35=8|150=2|11=a1|32=100|151=0|14=100");
  EXPECT_EQ(reject.seq(), n);
  EXPECT_EQ(fill.seq(), n + 1);
  beta.hears("35=8|150=0|11=b1");
  beta.hears("35=8|150=2|11=b1");
  EXPECT_EQ(exchange.rises(), (Rises{{"orders", 1},
                                     {"accepts", 1},
                                     {"fills", 2},
                                     {"cancel_rejects", 1},
                                     {"late_cancels", 1}}));
  EXPECT_THAT(described(exchange.events()),
              ElementsAre("new b1 AAPL S 100 @ 190 cum 0 leaves 100 last 0",
                          "fill b1 AAPL S 100 @ 190 cum 100 leaves 0 last 100",
                          "cancel_reject a1 \"Too late to cancel\"",
                          "fill a1 AAPL B 100 @ 190 cum 100 leaves 0 last 100"));
}

TEST_F(OrderLife, lost_race_pulls_forward_all_that_its_owner_is_owed_and_nobody_elses) {
  FixSession gamma = exchange.logs_on("GAMMA");
  rests(gamma, {.cl_ord_id = "g1", .price = "190.01"});
  rests(alpha, {.cl_ord_id = "a1", .price = "190"});
  const std::string id = rests(alpha, {.cl_ord_id = "a2", .quantity = "300", .price = "180"});
  exchange.control().ok("fill_on_cancel 1");
  exchange.ignore_so_far();
  const uint32_t n = alpha.next_in;
  in_one_turn(
      exchange,
      {[&] { beta.new_order({.cl_ord_id = "b1", .side = "2", .quantity = "200", .price = "190"}); },
       [&] { alpha.cancel({.cl_ord_id = "c1", .orig_cl_ord_id = "a2"}); }});
  EXPECT_EQ(alpha.hears("35=8|150=2|11=a1|32=100|31=190").seq(), n);
  EXPECT_EQ(alpha.hears("35=8|150=2|11=a2|32=300|31=180|851=1").seq(), n + 1);
  EXPECT_EQ(
      alpha.hears("35=9|37=" + id + "|11=c1|41=a2|39=2|102=0|434=1|58=Too late to cancel").seq(),
      n + 2);
  gamma.hears("35=8|150=2|11=g1|31=190.01");
  alpha.hears_nothing();
  EXPECT_THAT(described(exchange.events()),
              ElementsAre("new b1 AAPL S 200 @ 190 cum 0 leaves 200 last 0",
                          "fill b1 AAPL S 200 @ 190 cum 100 leaves 100 last 100",
                          "fill b1 AAPL S 200 @ 190 cum 200 leaves 0 last 100",
                          "fill a1 AAPL B 100 @ 190 cum 100 leaves 0 last 100",
                          "fill a2 AAPL B 300 @ 180 cum 300 leaves 0 last 300",
                          "cancel_reject a2 \"Too late to cancel\"",
                          "fill g1 AAPL B 100 @ 190.01 cum 100 leaves 0 last 100"));
}

TEST_F(OrderLife, fill_of_the_turn_is_told_behind_the_replace_and_under_the_old_id) {
  const std::string id = rests(alpha, {.cl_ord_id = "a1", .quantity = "300", .price = "190"});
  exchange.ignore_so_far();
  const uint32_t n = alpha.next_in;
  in_one_turn(
      exchange,
      {[&] { beta.new_order({.cl_ord_id = "b1", .side = "2", .price = "190"}); },
       [&] { alpha.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "250"}); }});
  const FixMessage replaced =
      alpha.hears("35=8|150=5|11=a2|41=a1|37=" + id + "|38=250|151=150|14=100|6=190");
  const FixMessage fill =
      alpha.hears("35=8|150=1|39=1|11=a1|37=" + id + "|38=300|32=100|31=190|151=200|14=100");
  EXPECT_EQ(replaced.seq(), n);
  EXPECT_EQ(fill.seq(), n + 1);
  EXPECT_GT(std::stoul(fill.get(17).substr(1)), std::stoul(replaced.get(17).substr(1)));
  EXPECT_GE(fill.get(60), replaced.get(60));
  EXPECT_THAT(described(exchange.events()),
              ElementsAre("new b1 AAPL S 100 @ 190 cum 0 leaves 100 last 0",
                          "fill b1 AAPL S 100 @ 190 cum 100 leaves 0 last 100",
                          "replace a2 AAPL B 250 @ 190 cum 100 leaves 150 last 0 ref a1",
                          "fill a1 AAPL B 300 @ 190 cum 100 leaves 200 last 100"));
}

}  // namespace
}  // namespace e2e
