// New orders: what is refused and in which words, what trades, what rests, and what each wire hears
// of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/fix_message.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/tcp.h"
#include "quorl/client/temp_directory.h"
#include "quorl/client/udp.h"
#include "tests/e2e/support/exchange.h"
#include "tests/e2e/support/said.h"
#include "tests/e2e/support/stamped_receive.h"

namespace client = quorl::client;

namespace e2e {
namespace {

using client::FixMessage;
using client::FixSession;
using client::NewOrder;
using client::Price4;
using client::SimulatorOptions;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// Nothing but the counters named has moved.
void expect_counters(Exchange& exchange, const client::BenchStats& expected) {
  const client::ControlStats stats = exchange.turn();
  for (const auto& [name, value] : stats.counters) {
    const auto wanted = expected.find(name);
    EXPECT_EQ(value, wanted == expected.end() ? 0 : wanted->second) << name;
  }
}

// The first id that is left for clients: the three symbols' opening orders have taken 120.
constexpr uint64_t FIRST_ID = 1120;

TEST(Order, acknowledgement_and_resting_level_stand_field_by_field) {
  Exchange exchange(still());
  (void)exchange.news();
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .quantity = "300", .price = "100.50", .capacity = "A"});
  const FixMessage ack = alpha.next();
  EXPECT_EQ(said(ack).substr(0, said(ack).find("37=")), "35=8|34=2|49=IEXG|56=ALPHA|");
  EXPECT_EQ(body_text(ack),
            "37=1120|11=a1|17=E1|20=0|150=0|39=0|55=AAPL|54=1|38=300|18=i|40=2|47=A|59=0|44=100.5|"
            "32=0|31=0|151=300|14=0|6=0|60=now|");
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 300 @ 100.5 last"));
  expect_counters(exchange, {{"orders", 1}, {"accepts", 1}, {"logins", 1}, {"logons", 1}});
}

struct RefusedOrder {
  std::string what;
  NewOrder order;
  std::string text;
  std::string reason;
};

/// An order that is accepted, for one field to be spoilt.
NewOrder good() { return {.cl_ord_id = "good", .price = "1"}; }

template <typename Spoil>
NewOrder good_but(Spoil spoil) {
  NewOrder order = good();
  spoil(order);
  return order;
}

std::vector<RefusedOrder> refusals() {
  const auto row = [](const std::string& text, const std::string& reason) {
    return [text, reason](const std::string& what, auto spoil) {
      return RefusedOrder{what, good_but(spoil), text, reason};
    };
  };
  const auto id = row("BrokerOption: invalid ClOrdID", "0");
  const auto symbol = row("UnknownSymbol", "1");
  const auto quantity = row("ExceededMaxSharesPerOrder", "3");
  const auto side = row("BrokerOption: invalid Side", "0");
  const auto locate = row("MissingLocate", "0");
  const auto inst = row("InvalidExecInst", "0");
  const auto price = row("InvalidPrice", "0");
  const auto limit_tif = row("OrderInvalidInCurrentMarketSession", "0");
  const auto market_tif = row("InvalidTagCombinationForMarketOrder", "0");
  const auto capacity = row("BrokerOption: invalid OrderCapacity", "0");
  const auto duplicate = row("BrokerOption: duplicate ClOrdID among live orders", "0");
  std::vector<RefusedOrder> rows;
  for (const std::string bad :
       {"", "123456789012345678901", "a\"b", "a,b", "a@b", "a|b", "a\xE9,b"}) {
    rows.push_back(id("11=" + bad, [&](NewOrder& o) { o.cl_ord_id = bad; }));
  }
  for (const std::string bad : {"", "NONE", "aapl", "AAPL ", "AAP"}) {
    rows.push_back(symbol("55=" + bad, [&](NewOrder& o) { o.symbol = bad; }));
  }
  for (const std::string bad : {"", "0", "0.5", "1.5", "-1", "10000001", "abc", "nan", "inf",
                                "-inf", "1e19", "5e9", "1e400", "1e-310", "100.00001"}) {
    rows.push_back(quantity("38=" + bad, [&](NewOrder& o) { o.quantity = bad; }));
  }
  for (const std::string bad : {"", "3", "0", "B", " 1"}) {
    rows.push_back(side("54=" + bad, [&](NewOrder& o) { o.side = bad; }));
  }
  for (const std::string bad : {"", "Y", "NN", "n"}) {
    for (const std::string which : {"5", "6"}) {
      rows.push_back(locate("54=" + which + " 114=" + bad, [&](NewOrder& o) {
        o.side = which;
        o.locate = bad;
      }));
    }
  }
  for (const std::string bad : {"", "I", "x", " i"}) {
    rows.push_back(inst("18=" + bad, [&](NewOrder& o) { o.exec_inst = bad; }));
  }
  for (const std::string bad : {"P", "3", "K"}) {
    rows.push_back(inst("40=" + bad, [&](NewOrder& o) { o.type = bad; }));
  }
  for (const std::string bad : {"", "0", "-1", "abc", "1.0001", "190.005", "0.00004", "nan", "inf",
                                "-inf", "1e15", "1e300", "1e400"}) {
    rows.push_back(price("44=" + bad, [&](NewOrder& o) { o.price = bad; }));
  }
  for (const std::string bad : {"1", "6", "2"}) {
    rows.push_back(limit_tif("59=" + bad, [&](NewOrder& o) { o.tif = bad; }));
    rows.push_back(market_tif("40=1 59=" + bad, [&](NewOrder& o) {
      o.type = "1";
      o.tif = bad;
    }));
  }
  for (const std::string bad : {"X", "I", "p"}) {
    rows.push_back(capacity("47=" + bad, [&](NewOrder& o) { o.capacity = bad; }));
  }
  rows.push_back(duplicate("11=live", [](NewOrder& o) { o.cl_ord_id = "live"; }));
  return rows;
}

TEST(Order, each_rule_of_the_ladder_refuses_in_its_own_words_and_leaves_no_trace) {
  SimulatorOptions options = still();
  options.order_truth = true;
  Exchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "live", .price = "1"});
  alpha.hears("35=8|150=0|37=" + std::to_string(FIRST_ID));
  (void)exchange.news();
  const std::vector<RefusedOrder> rows = refusals();
  for (const RefusedOrder& row : rows) {
    SCOPED_TRACE(row.what);
    alpha.new_order(row.order);
    const FixMessage report = alpha.next();
    EXPECT_EQ(report.type(), "8");
    EXPECT_EQ(report.get(58), row.text);
    EXPECT_EQ(report.get(103), row.reason);
    EXPECT_EQ(report.get(11), row.order.cl_ord_id);
    EXPECT_EQ(report.get(55), row.order.symbol);
    EXPECT_EQ(report.get(37) + report.get(150) + report.get(39) + report.get(151) + report.get(14),
              "NONE8800");
    EXPECT_FALSE(report.has(41));
  }
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), IsEmpty());
  expect_counters(exchange, {{"orders", 1}, {"accepts", 1}, {"logins", 1}, {"logons", 1}});
  alpha.new_order(good());
  alpha.hears("35=8|150=0|37=" + std::to_string(FIRST_ID + 1));  // no id was spent

  const auto events =
      client::parse_order_events(client::read_file(exchange.simulator().order_truth_path()));
  ASSERT_EQ(events.size(), rows.size() + 2);
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(events[i + 1].ev, "reject");
    EXPECT_EQ(events[i + 1].text, rows[i].text);
    EXPECT_EQ(events[i + 1].oid, 0U);
  }
}

TEST(Order, refused_order_is_reported_with_its_fields_as_far_as_they_were_read) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.send_message("D", {{11, "a1"}, {55, "NONE"}});
  EXPECT_EQ(body_text(alpha.next()),
            "37=NONE|11=a1|17=E1|20=0|150=8|39=8|55=NONE|54= |38=0|18=i|40=2|47=P|59=0|32=0|31=0|"
            "151=0|14=0|6=0|60=now|58=UnknownSymbol|103=1|");
  alpha.send_message("D", {{11, "a2"},
                           {55, "AAPL"},
                           {54, "1x"},
                           {38, "5e9"},
                           {40, "2y"},
                           {44, "inf"},
                           {18, "iz"},
                           {59, "0w"},
                           {47, "Av"}});
  EXPECT_EQ(body_text(alpha.next()),
            "37=NONE|11=a2|17=E2|20=0|150=8|39=8|55=AAPL|54=1|38=705032704|18=i|40=2|47=A|59=0|"
            "44=-922337203685477.625|32=0|31=0|151=0|14=0|6=0|60=now|"
            "58=ExceededMaxSharesPerOrder|103=3|");
}

TEST(Order, first_broken_rule_of_the_ladder_answers) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  // Every rule broken; then mended from the first on.
  NewOrder order{.cl_ord_id = "a|b",
                 .symbol = "NONE",
                 .side = "9",
                 .quantity = "0",
                 .type = "P",
                 .price = "0",
                 .tif = "6",
                 .exec_inst = "x",
                 .capacity = "X"};
  const auto answers = [&](const std::string& text) {
    alpha.new_order(order);
    EXPECT_EQ(alpha.next().find(58), text);
  };
  answers("BrokerOption: invalid ClOrdID");
  order.cl_ord_id = "a1";
  answers("UnknownSymbol");
  order.symbol = "AAPL";
  answers("ExceededMaxSharesPerOrder");
  order.quantity = "100";
  answers("BrokerOption: invalid Side");
  order.side = "5";
  answers("MissingLocate");
  order.locate = "N";
  answers("InvalidExecInst");
  order.exec_inst = "i";
  answers("InvalidExecInst");
  order.type = "2";
  answers("InvalidPrice");
  order.price = "1000";
  answers("OrderInvalidInCurrentMarketSession");
  order.tif = "0";
  answers("BrokerOption: invalid OrderCapacity");
  order.capacity = "R";
  alpha.new_order(order);
  alpha.hears("35=8|150=0|11=a1|54=5|47=R");
  order.capacity = "X";
  answers("BrokerOption: invalid OrderCapacity");
  order.capacity = "P";
  answers("BrokerOption: duplicate ClOrdID among live orders");
}

TEST(Order, values_at_the_edge_pass_and_absent_ones_take_their_defaults) {
  Exchange exchange(still());
  FixSession alpha = exchange.logs_on("ALPHA");
  const auto accepted = [&](const NewOrder& order, const std::string& fields) {
    alpha.new_order(order);
    alpha.hears("35=8|150=0|" + fields);
  };
  accepted({.cl_ord_id = "12345678901234567890", .price = "1"}, "11=12345678901234567890");
  accepted({.cl_ord_id = "q1", .quantity = "10000000", .price = "1"}, "38=10000000");
  accepted({.cl_ord_id = "q2", .quantity = "1", .price = "1"}, "38=1");
  accepted({.cl_ord_id = "q3", .quantity = "1e3", .price = "1"}, "38=1000");
  accepted({.cl_ord_id = "q4", .quantity = "0x64", .price = "1"}, "38=100");
  accepted({.cl_ord_id = "q5", .quantity = " 100.0x", .price = "1"}, "38=100");
  accepted({.cl_ord_id = "p1", .price = "0.9999"}, "44=0.9999");
  accepted({.cl_ord_id = "p2", .price = "0.00005"}, "44=0.0001");
  accepted({.cl_ord_id = "p3", .price = "1.01"}, "44=1.01");
  accepted({.cl_ord_id = "p4", .price = "100.500000"}, "44=100.5");
  accepted({.cl_ord_id = "p5", .price = "0100"}, "44=100");
  accepted({.cl_ord_id = "s1", .side = "12", .price = "1"}, "54=1");
  accepted({.cl_ord_id = "s5", .side = "5", .price = "1000", .locate = "N"}, "54=5|44=1000");
  accepted({.cl_ord_id = "s6", .side = "6", .price = "1000", .locate = "N"}, "54=6|44=1000");
  accepted({.cl_ord_id = "d1", .type = "", .price = "1", .tif = "", .capacity = ""},
           "40=2|59=0|47=P");
  accepted({.cl_ord_id = "d2", .type = "2", .price = "1", .tif = "0", .capacity = "A"}, "47=A");
  const client::SymbolBook& book = exchange.book("AAPL");
  EXPECT_EQ(book.asks.at(to_price4("1000")), 200U) << "sides 5 and 6 sell";
  EXPECT_EQ(book.bids.at(1), 100U);
}

TEST(Order, closed_or_foreign_name_of_an_order_may_be_used_again) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  alpha.new_order({.cl_ord_id = "x", .side = "2", .price = "190"});
  alpha.expect_report('0');
  bravo.new_order({.cl_ord_id = "x", .price = "190"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  alpha.expect_report('2');
  for (FixSession* session : {&alpha, &bravo}) {
    session->new_order({.cl_ord_id = "x", .price = "1"});
    session->expect_report('0');
    session->new_order({.cl_ord_id = "x", .price = "1"});
    session->hears("35=8|150=8|58=BrokerOption: duplicate ClOrdID among live orders");
  }
}

TEST(Order, market_buy_sweeps_two_levels_best_price_first) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  bravo.new_order({.cl_ord_id = "b2", .side = "2", .quantity = "300", .price = "190.02"});
  bravo.new_order({.cl_ord_id = "b1", .side = "2", .quantity = "300", .price = "190.01"});
  const std::string b2 = bravo.expect_report('0').get(37);
  const std::string b1 = bravo.expect_report('0').get(37);
  (void)exchange.news();
  const uint64_t last_trade = exchange.book().last_trade_id();

  alpha.new_order({.cl_ord_id = "a1", .quantity = "500", .type = "1"});
  const FixMessage ack = alpha.next();
  const FixMessage first = alpha.next();
  const FixMessage second = alpha.next();
  alpha.hears_nothing();
  const std::string id = ack.get(37);
  const auto exec = [&](const FixMessage& report) { return report.get(17); };
  EXPECT_EQ(body_text(ack), "37=" + id + "|11=a1|17=" + exec(ack) +
                                "|20=0|150=0|39=0|55=AAPL|54=1|38=500|18=i|40=1|47=P|59=0|32=0|"
                                "31=0|151=500|14=0|6=0|60=now|");
  EXPECT_EQ(body_text(first),
            "37=" + id + "|11=a1|17=" + exec(first) +
                "|20=0|150=1|39=1|55=AAPL|54=1|38=500|18=i|40=1|47=P|59=0|32=300|31=190.01|"
                "151=200|14=300|6=190.01|60=now|30=IEXG|375=IEXG|382=1|851=2|880=" +
                std::to_string(last_trade + 1) + "|9730=TL|");
  EXPECT_EQ(body_text(second),
            "37=" + id + "|11=a1|17=" + exec(second) +
                "|20=0|150=2|39=2|55=AAPL|54=1|38=500|18=i|40=1|47=P|59=0|32=200|31=190.02|"
                "151=0|14=500|6=190.014|60=now|30=IEXG|375=IEXG|382=1|851=2|880=" +
                std::to_string(last_trade + 2) + "|9730=TL|");
  const FixMessage maker_full = bravo.next();
  const FixMessage maker_part = bravo.next();
  bravo.hears_nothing();
  EXPECT_EQ(body_text(maker_full),
            "37=" + b1 + "|11=b1|17=" + exec(maker_full) +
                "|20=0|150=2|39=2|55=AAPL|54=2|38=300|18=i|40=2|47=P|59=0|44=190.01|32=300|"
                "31=190.01|151=0|14=300|6=190.01|60=now|30=IEXG|375=IEXG|382=1|851=1|880=" +
                std::to_string(last_trade + 1) + "|9730=ML|");
  EXPECT_EQ(body_text(maker_part),
            "37=" + b2 + "|11=b2|17=" + exec(maker_part) +
                "|20=0|150=1|39=1|55=AAPL|54=2|38=300|18=i|40=2|47=P|59=0|44=190.02|32=200|"
                "31=190.02|151=100|14=200|6=190.02|60=now|30=IEXG|375=IEXG|382=1|851=1|880=" +
                std::to_string(last_trade + 2) + "|9730=ML|");
  EXPECT_THAT(exchange.news(), ElementsAre("T AAPL 300 @ 190.01", "T AAPL 200 @ 190.02",
                                           "5 AAPL 0 @ 190.01", "5 AAPL 100 @ 190.02 last"));
  // One counter for all reports, in the order of composing: the owner of a resting order comes
  // last.
  const auto number = [&](const FixMessage& report) { return std::stoul(exec(report).substr(1)); };
  EXPECT_EQ(number(first), number(ack) + 1);
  EXPECT_EQ(number(second), number(ack) + 2);
  EXPECT_EQ(number(maker_full), number(ack) + 3);
  EXPECT_EQ(number(maker_part), number(ack) + 4);
}

TEST(Order, orders_of_one_price_trade_in_the_order_of_their_arrival) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  FixSession charlie = exchange.logs_on("CHARLIE");
  bravo.new_order({.cl_ord_id = "b1", .quantity = "100", .price = "190"});
  bravo.expect_report('0');
  charlie.new_order({.cl_ord_id = "c1", .quantity = "99", .price = "190"});
  charlie.expect_report('0');
  bravo.new_order({.cl_ord_id = "b2", .quantity = "100", .price = "190"});
  bravo.expect_report('0');
  (void)exchange.news();
  alpha.new_order({.cl_ord_id = "a1", .side = "2", .quantity = "200", .price = "189"});
  alpha.hears("150=0|151=200");
  alpha.hears("150=1|32=100|31=190|151=100|14=100|6=190");
  alpha.hears("150=1|32=99|31=190|151=1|14=199|6=190");
  alpha.hears("150=2|32=1|31=190|151=0|14=200|6=190");
  bravo.hears("150=2|11=b1|32=100");
  charlie.hears("150=2|11=c1|32=99");
  bravo.hears("150=1|11=b2|32=1|151=99");
  EXPECT_THAT(exchange.news(), ElementsAre("T AAPL 100 @ 190", "T AAPL 99 @ 190", "T AAPL 1 @ 190",
                                           "8 AAPL 99 @ 190 last"));
  const auto& messages = exchange.feed().messages();
  EXPECT_EQ(messages[messages.size() - 4].bytes[1], 0) << "a round lot";
  EXPECT_EQ(messages[messages.size() - 3].bytes[1], 0x20) << "an odd lot";
}

TEST(Order, immediate_order_trades_what_it_can_and_its_rest_is_cancelled) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  bravo.new_order({.cl_ord_id = "b1", .side = "2", .price = "190"});
  bravo.expect_report('0');
  (void)exchange.news();
  alpha.new_order({.cl_ord_id = "a1", .quantity = "250", .price = "190", .tif = "3"});
  alpha.hears("150=0");
  alpha.hears("150=1|32=100|151=150");
  const FixMessage rest = alpha.next();
  EXPECT_EQ(body_text(rest), "37=" + rest.get(37) + "|11=a1|17=" + rest.get(17) +
                                 "|20=0|150=4|39=4|55=AAPL|54=1|38=250|18=i|40=2|47=P|59=3|44=190|"
                                 "32=0|31=0|151=0|14=100|6=190|60=now|58=UnmatchedIOC|");
  EXPECT_THAT(exchange.news(), ElementsAre("T AAPL 100 @ 190", "5 AAPL 0 @ 190 last"));
  // Nothing to meet at all: acknowledged, then cancelled.
  alpha.new_order({.cl_ord_id = "a2", .price = "190", .tif = "3"});
  alpha.hears("150=0|11=a2");
  alpha.hears("150=4|11=a2|14=0|6=0|58=UnmatchedIOC");
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), IsEmpty());
}

TEST(Order, market_order_never_rests_whatever_its_time_in_force) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  for (const std::string tif : {"0", "3", "4"}) {
    alpha.new_order({.cl_ord_id = "a" + tif, .type = "1", .price = "190", .tif = tif});
    EXPECT_FALSE(alpha.hears("35=8|150=0|40=1|59=" + tif).has(44)) << "its price is ignored";
    alpha.hears("35=8|150=4|58=UnmatchedIOC|14=0|59=" + tif);
  }
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), IsEmpty());
}

TEST(Order, fill_or_kill_trades_all_or_nothing) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  for (const auto& [id, price] : std::vector<std::pair<std::string, std::string>>{
           {"b1", "190"}, {"b2", "190.01"}, {"b3", "190.02"}}) {
    bravo.new_order({.cl_ord_id = id, .side = "2", .price = price});
    bravo.expect_report('0');
  }
  (void)exchange.news();
  alpha.new_order({.cl_ord_id = "a1", .quantity = "201", .price = "190.01", .tif = "4"});
  alpha.hears("150=0|151=201");
  alpha.hears("150=4|58=UnmatchedIOC|14=0|151=0");
  alpha.hears_nothing();
  EXPECT_THAT(exchange.news(), IsEmpty()) << "one share short";

  alpha.new_order({.cl_ord_id = "a2", .quantity = "200", .price = "190.01", .tif = "4"});
  alpha.hears("150=0");
  alpha.hears("150=1|32=100|31=190");
  alpha.hears("150=2|32=100|31=190.01");
  EXPECT_THAT(exchange.news(), ElementsAre("T AAPL 100 @ 190", "T AAPL 100 @ 190.01",
                                           "5 AAPL 0 @ 190", "5 AAPL 0 @ 190.01 last"));
  alpha.new_order({.cl_ord_id = "a3", .quantity = "101", .type = "1", .tif = "4"});
  alpha.hears("150=0");
  alpha.hears("150=4|58=UnmatchedIOC");
  alpha.new_order({.cl_ord_id = "a4", .quantity = "100", .type = "1", .tif = "4"});
  alpha.hears("150=0");
  alpha.hears("150=2|31=190.02");
}

TEST(Order, same_client_on_both_sides_trades_and_hears_of_its_aggressive_side_first) {
  Exchange exchange(still());
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "sell", .side = "2", .price = "190"});
  alpha.expect_report('0');
  alpha.new_order({.cl_ord_id = "buy", .price = "190"});
  alpha.hears("150=0|11=buy");
  alpha.hears("150=2|11=buy|851=2");
  alpha.hears("150=2|11=sell|851=1");
}

TEST(Order, orders_are_handled_while_the_market_is_paused) {
  Exchange exchange(living());
  exchange.control().ok("pause");
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .price = "190"});
  alpha.expect_report('0');
  EXPECT_THAT(exchange.news(), ElementsAre("8 AAPL 100 @ 190 last"));
}

TEST(Order, scripted_reject_takes_each_nth_order_and_one_shots_between) {
  SimulatorOptions options = still();
  options.scenario = "reject_every=3";
  Exchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  const auto send = [&](int i, char expected) {
    alpha.new_order({.cl_ord_id = "a" + std::to_string(i), .price = "1"});
    return alpha.expect_report(expected);
  };
  send(1, '0');
  alpha.new_order({.cl_ord_id = "x", .symbol = "NONE", .price = "1"});
  alpha.hears("150=8|58=UnknownSymbol");  // does not count
  exchange.control().ok("reject 1");
  EXPECT_EQ(body_text(send(2, '8')),
            "37=NONE|11=a2|17=E3|20=0|150=8|39=8|55=AAPL|54=1|38=100|18=i|40=2|47=P|59=0|44=1|"
            "32=0|31=0|151=0|14=0|6=0|60=now|58=bench:scripted_reject|103=0|");
  EXPECT_EQ(send(3, '8').get(58), "bench:scripted_reject");
  send(4, '0');
  send(5, '0');
  exchange.control().ok("reject 2");
  send(6, '8');  // by the rule, and it takes a one-shot with it
  send(7, '8');  // by the one-shot that is left
  send(8, '0');
  EXPECT_EQ(send(8, '8').get(58), "BrokerOption: duplicate ClOrdID among live orders");
  expect_counters(exchange,
                  {{"orders", 8}, {"accepts", 4}, {"rejects", 4}, {"logins", 1}, {"logons", 1}});
}

TEST(Order, buy_that_crosses_part_of_the_book_takes_its_road_in_order_on_both_wires) {
  SimulatorOptions options = still();
  options.order_truth = true;
  options.market_truth = true;
  Exchange exchange(options);
  const client::SymbolBook before = exchange.book("AAPL");
  (void)exchange.news();
  ASSERT_GE(before.asks.size(), 3U);
  const auto first = before.asks.begin();
  const auto second = std::next(first);
  const uint32_t crossed = first->second + second->second;
  FixSession alpha = exchange.logs_on("ALPHA");
  const size_t message_from = exchange.feed().messages().size();
  const size_t packet_from = exchange.feed().packets().size();
  alpha.new_order({.cl_ord_id = "a1",
                   .quantity = std::to_string(crossed + 100),
                   .price = client::price_text(second->first)});

  // FIX: the acknowledgement, then one fill for each resting order, best price first.
  alpha.hears("35=8|34=2|150=0|11=a1|37=1120|17=E1|14=0");
  std::vector<FixMessage> fills;
  uint32_t filled = 0;
  while (filled < crossed) {
    fills.push_back(alpha.hears("35=8|150=1|11=a1|851=2|37=1120"));
    filled += static_cast<uint32_t>(fills.back().number(32));
    EXPECT_EQ(fills.back().number(14), filled);
    EXPECT_EQ(fills.back().number(151), crossed + 100 - filled);
  }
  alpha.hears_nothing();
  EXPECT_EQ(filled, crossed);

  // The feed: one event, a Trade Report for each fill, then the changed levels.
  const std::vector<std::string> news = exchange.news();
  ASSERT_EQ(news.size(), fills.size() + 3);
  const auto& messages = exchange.feed().messages();
  std::set<uint64_t> times;
  for (size_t i = 0; i < news.size(); ++i) {
    const auto& message = messages[message_from + i].message;
    if (i < fills.size()) {
      const auto& trade = std::get<client::TradeReport>(message);
      EXPECT_EQ(trade.trade_id, i + 1);
      EXPECT_EQ(std::to_string(trade.trade_id), fills[i].get(880));
      EXPECT_EQ(std::to_string(trade.size), fills[i].get(32));
      EXPECT_EQ(client::price_text(trade.price), fills[i].get(31));
      times.insert(trade.timestamp_ns);
    } else {
      times.insert(std::get<client::LevelUpdate>(message).timestamp_ns);
    }
  }
  EXPECT_EQ(times.size(), 1U);
  const std::vector<std::string> levels(news.end() - 3, news.end());
  EXPECT_THAT(levels, ElementsAre("5 AAPL 0 @ " + client::price_text(first->first),
                                  "5 AAPL 0 @ " + client::price_text(second->first),
                                  "8 AAPL 100 @ " + client::price_text(second->first) + " last"));
  const client::FeedPacket& packet = exchange.feed().packets()[packet_from];
  EXPECT_EQ(packet.packet.messages.size(), news.size()) << "one packet";

  // The files: each report at its composing, each level after its update.
  const auto events =
      client::parse_order_events(client::read_file(exchange.simulator().order_truth_path()));
  ASSERT_EQ(events.size(), fills.size() + 1);
  EXPECT_EQ(events[0].ev, "new");
  for (size_t i = 0; i < fills.size(); ++i) {
    EXPECT_EQ(events[i + 1].ev, "fill");
    EXPECT_EQ(std::to_string(events[i + 1].last_qty), fills[i].get(32));
    EXPECT_LE(events[i + 1].t_ns, packet.packet.header.send_time_ns) << "composed, then flushed";
  }
  EXPECT_LE(events[0].t_ns, *times.begin()) << "acknowledged before the event began";
  EXPECT_LE(*times.begin(), events[1].t_ns);
  expect_counters(
      exchange,
      {{"orders", 1}, {"accepts", 1}, {"fills", fills.size()}, {"logins", 1}, {"logons", 1}});
}

TEST(Order, feed_is_sent_before_the_reports_of_a_new_order) {
  Exchange exchange(still());
  client::UdpSocket feed =
      client::UdpSocket::in_group(exchange.ports().group, exchange.ports().feed);
  client::TcpStream fix = client::TcpStream::connect(exchange.ports().fix);
  stamp_arrivals(feed.fd());
  stamp_arrivals(fix.fd());
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  uint32_t seq = 1;
  const auto send = [&](const std::string& type, const client::FixFields& body) {
    ASSERT_TRUE(fix.send_all(client::to_bytes(client::compose_fix(
        {.type = type, .seq = std::to_string(seq++), .sender = "ALPHA", .target = "IEXG"}, body))));
  };
  send("A", {{98, "0"}, {108, "30"}});
  // The kernel begins to stamp a moment after it is asked to.
  while (receive_stamped(fix.fd(), deadline).stamp_ns == 0) send("1", {{112, "stamp?"}});
  for (int i = 1; i <= 200; ++i) {
    const std::string price = client::price_text(i * 100 + 10000);
    send("D", {{11, "a" + std::to_string(i)},
               {55, "AAPL"},
               {54, "1"},
               {38, "100"},
               {40, "2"},
               {44, price},
               {18, "i"}});
    const Stamped report = receive_stamped(fix.fd(), deadline);
    EXPECT_EQ(client::parse_fix(client::to_text(report.bytes)).get(44), price);
    Stamped packet = receive_stamped(feed.fd(), deadline);
    while (client::decode_tp_packet(packet.bytes).is_heartbeat()) {
      packet = receive_stamped(feed.fd(), deadline);
    }
    const client::TpPacket decoded = client::decode_tp_packet(packet.bytes);
    ASSERT_EQ(decoded.messages.size(), 1U);
    EXPECT_EQ(client::describe(client::decode_deep(decoded.messages[0].bytes)),
              "8 AAPL 100 @ " + price + " last");
    ASSERT_GT(packet.stamp_ns, 0);
    ASSERT_LT(packet.stamp_ns, report.stamp_ns) << "order " << i;
  }
}

TEST(Order, resting_order_hit_by_the_market_itself_is_reported_behind_the_trade) {
  Exchange exchange(living());
  exchange.control().ok("pause");
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  // Above any price at which the walk will sell: its first sell order trades against it.
  alpha.new_order({.cl_ord_id = "a1", .quantity = "100", .price = "200"});
  const std::string id = alpha.expect_report('0').get(37);
  const uint64_t fills = exchange.counter("fills");
  (void)exchange.news();
  const size_t from = exchange.feed().messages().size();
  exchange.control().ok("resume");
  const FixMessage fill = alpha.hears("35=8|150=2|39=2|11=a1|32=100|31=200|151=0|14=100|6=200");
  EXPECT_EQ(fill.get(37), id);
  EXPECT_EQ(fill.get(851) + fill.get(9730), "1ML");
  const size_t trade_at = exchange.feed().await_message(
      [](const client::DeepMessage& m) { return client::describe(m) == "T AAPL 100 @ 200"; },
      "the trade", from);
  const auto& trade = std::get<client::TradeReport>(exchange.feed().messages()[trade_at].message);
  EXPECT_EQ(fill.get(880), std::to_string(trade.trade_id));
  EXPECT_EQ(exchange.counter("fills"), fills + 1);
  EXPECT_EQ(exchange.counter("partials"), 0U);
}

TEST(Order, scripted_partial_fill_halves_each_complete_fill_by_the_market) {
  SimulatorOptions options = living();
  options.scenario = "partial_fill_every=1";
  Exchange exchange(options);
  exchange.control().ok("pause");
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  FixSession bravo = exchange.logs_on("BRAVO");
  alpha.new_order({.cl_ord_id = "a1", .quantity = "200", .price = "200"});
  alpha.expect_report('0');
  bravo.new_order({.cl_ord_id = "b1", .side = "2", .quantity = "100", .price = "200"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  alpha.hears("150=1|32=100|151=100");  // another client's order is never cut
  exchange.control().ok("resume");
  uint32_t leaves = 100;
  for (const uint32_t cut : {50U, 25U, 12U, 6U, 3U, 2U, 1U}) {
    alpha.hears("35=8|150=1|39=1|11=a1|31=200|32=" + std::to_string(cut) +
                "|151=" + std::to_string(leaves - cut));
    exchange.simulator().wait_for_line("bench: partial fill of a1: " + std::to_string(cut) +
                                       " of " + std::to_string(leaves));
    leaves -= cut;
  }
  EXPECT_EQ(leaves, 1U);
  alpha.hears("35=8|150=2|39=2|11=a1|32=1|151=0|14=200|6=200");
  EXPECT_EQ(exchange.counter("partials"), 7U);
  EXPECT_EQ(exchange.count_lines("bench: partial fill of"), 7U);
}

TEST(Order, fill_of_an_absent_owner_is_counted_at_once_and_waits_on_its_stream) {
  SimulatorOptions options = still();
  options.order_truth = true;
  Exchange exchange(options);
  exchange.empty_book("AAPL");
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .side = "2", .quantity = "300", .price = "190"});
  alpha.expect_report('0');
  alpha.logout();
  const uint64_t fills = exchange.counter("fills");
  FixSession bravo = exchange.logs_on("BRAVO");
  bravo.new_order({.cl_ord_id = "b1", .quantity = "100", .price = "190"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  bravo.new_order({.cl_ord_id = "b2", .quantity = "100", .price = "190"});
  bravo.expect_report('0');
  bravo.expect_report('2');
  EXPECT_EQ(exchange.counter("fills"), fills + 4);
  const auto events =
      client::parse_order_events(client::read_file(exchange.simulator().order_truth_path()));
  ASSERT_GE(events.size(), 3U);
  EXPECT_EQ(events.back().cl, "a1");
  EXPECT_EQ(events.back().ev, "fill");
  EXPECT_EQ(events.back().leaves, 100U);

  alpha.continuity = client::Continuity::TRACK;
  EXPECT_EQ(alpha.logon().seq(), 6U);
  EXPECT_THAT(alpha.missing(), ElementsAre(4, 5));
  bravo.new_order({.cl_ord_id = "b3", .quantity = "100", .price = "190"});
  alpha.hears("34=7|150=2|11=a1|151=0|14=300");
}

TEST(Order, stats_of_a_run_add_up_to_its_end) {
  SimulatorOptions options = still();
  Exchange exchange(options);
  FixSession alpha = exchange.logs_on("ALPHA");
  alpha.new_order({.cl_ord_id = "a1", .side = "2", .quantity = "100", .price = "189.00"});
  alpha.expect_report('0');
  uint64_t fills = 0;
  for (uint64_t cum = 0; cum < 100; ++fills) cum = alpha.hears("35=8").number(14);
  alpha.new_order({.cl_ord_id = "a2", .price = "1", .tif = "3"});
  alpha.expect_report('0');
  alpha.expect_report('4');
  alpha.new_order({.cl_ord_id = "a3", .price = "1"});
  alpha.expect_report('0');
  exchange.control().ok("reject");
  alpha.new_order({.cl_ord_id = "a4", .price = "1"});
  alpha.expect_report('8');
  expect_counters(exchange, {{"orders", 4},
                             {"accepts", 3},
                             {"fills", fills},
                             {"cancels", 1},
                             {"rejects", 1},
                             {"logins", 1},
                             {"logons", 1}});
  const client::ControlStats stats = exchange.control().stats();
  EXPECT_TRUE(stats.session_up);
  exchange.simulator().terminate();
  const std::vector<std::string> lines = exchange.simulator().lines();
  EXPECT_EQ(lines[lines.size() - 2],
            "bench: stats orders=4 accepts=3 fills=" + std::to_string(fills) +
                " partials=0 cancels=1 replaces=0 rejects=1 replace_rejects=0 cancel_rejects=0 "
                "unsolicited_cancels=0 race_fills=0 late_cancels=0 stale_cancels=0 logins=1 "
                "logons=1 resend_requests=0 replays=0 replayed=0 next_seq=" +
                std::to_string(stats.next_seq));
  EXPECT_EQ(lines[lines.size() - 3], "quorl faults: sent " + std::to_string(stats.faults.sent) +
                                         " dropped 0 duplicated 0 reordered 0");
}

}  // namespace
}  // namespace e2e
