#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "base/clocks.h"
#include "base/number_parsers.h"
#include "base/price4.h"
#include "bench/scenario.h"
#include "fix/fix_codec.h"
#include "fix/reports.h"
#include "market/engine.h"
#include "market/order_checks.h"

namespace quorl {
namespace {

constexpr int64_t UNSOLICITED_CANCEL_DELAY_MS = 300;
constexpr char NOT_SENT = '\0';

/// A NewOrderSingle as read, before any check.
struct NewOrderRequest {
  const std::string& owner;
  const FixFieldMap& fields;
  Stock* stock;      // null if the symbol is not listed
  double order_qty;  // as sent; 0.0 for no number
  Order order;       // id 0, no owner and no leaves until it is accepted
};

Order provisional_order(const FixFieldMap& fields, double order_qty) {
  Order order;
  order.cl_ord_id = fields.text(TAG_CL_ORD_ID);
  order.side = fields.first_char(TAG_SIDE, ' ');
  order.ord_type = fields.first_char(TAG_ORD_TYPE, '2');
  order.tif = fields.first_char(TAG_TIME_IN_FORCE, '0');
  order.exec_inst = fields.first_char(TAG_EXEC_INST, 'i');
  order.capacity = fields.first_char(TAG_RULE_80A, 'P');
  order.qty = shares_of(order_qty);
  order.price =
      order.ord_type == '1' ? 0 : price_of_dollars(double_or_zero(fields.text(TAG_PRICE)));
  return order;
}

bool is_one_of(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

// --- The ladder ---

bool bad_cl_ord_id(const Engine&, const NewOrderRequest& r) {
  return is_bad_cl_ord_id(r.order.cl_ord_id);
}

bool unknown_symbol(const Engine&, const NewOrderRequest& r) { return r.stock == nullptr; }

bool bad_quantity(const Engine&, const NewOrderRequest& r) {
  return r.order_qty < LEAST_ORDER_QTY || r.order_qty > MOST_ORDER_QTY ||
         r.order_qty != std::trunc(r.order_qty);
}

bool bad_side(const Engine&, const NewOrderRequest& r) { return !is_one_of(r.order.side, "1256"); }

bool missing_locate(const Engine&, const NewOrderRequest& r) {
  return is_one_of(r.order.side, "56") && r.fields.text(TAG_LOCATE_REQD) != "N";
}

bool bad_exec_inst(const Engine&, const NewOrderRequest& r) {
  return r.fields.first_char(TAG_EXEC_INST, NOT_SENT) != 'i';
}

bool bad_ord_type(const Engine&, const NewOrderRequest& r) {
  return !is_one_of(r.order.ord_type, "12");
}

bool bad_price(const Engine&, const NewOrderRequest& r) {
  return r.order.ord_type == '2' && (r.order.price <= 0 || is_off_tick(r.order.price));
}

bool bad_time_in_force(const NewOrderRequest& r, char ord_type) {
  return r.order.ord_type == ord_type && !is_one_of(r.order.tif, "034");
}

bool bad_limit_time_in_force(const Engine&, const NewOrderRequest& r) {
  return bad_time_in_force(r, '2');
}

bool bad_market_time_in_force(const Engine&, const NewOrderRequest& r) {
  return bad_time_in_force(r, '1');
}

bool bad_capacity(const Engine&, const NewOrderRequest& r) {
  return !is_one_of(r.order.capacity, "APR");
}

bool duplicate_cl_ord_id(const Engine& engine, const NewOrderRequest& r) {
  return engine.live.contains({r.owner, r.order.cl_ord_id});
}

struct OrderRule {
  bool (*broken)(const Engine& engine, const NewOrderRequest& request);
  std::string_view text;    // tag 58
  std::string_view reason;  // tag 103
};

constexpr OrderRule NEW_ORDER_LADDER[] = {
    {bad_cl_ord_id, "BrokerOption: invalid ClOrdID", "0"},
    {unknown_symbol, "UnknownSymbol", "1"},
    {bad_quantity, "ExceededMaxSharesPerOrder", "3"},  // one word for zero, fractions, too many
    {bad_side, "BrokerOption: invalid Side", "0"},
    {missing_locate, "MissingLocate", "0"},
    {bad_exec_inst, "InvalidExecInst", "0"},
    {bad_ord_type, "InvalidExecInst", "0"},  // the exchange's own word for both
    {bad_price, "InvalidPrice", "0"},
    {bad_limit_time_in_force, "OrderInvalidInCurrentMarketSession", "0"},
    {bad_market_time_in_force, "InvalidTagCombinationForMarketOrder", "0"},
    {bad_capacity, "BrokerOption: invalid OrderCapacity", "0"},
    {duplicate_cl_ord_id, "BrokerOption: duplicate ClOrdID among live orders", "0"},
};

/// Shares on the opposite side within the order's limit, counted level by level until they suffice.
/// It counts a level that the matching itself would stop at.
uint64_t available_to(const Order& order, const Book& book) {
  uint64_t shares = 0;
  book.side(!order.buy).for_each_level([&](const Level& level) {
    const bool beyond =
        order.price != 0 && (order.buy ? level.price > order.price : level.price < order.price);
    if (beyond || shares >= order.leaves) return false;
    shares += level.open;
    return true;
  });
  return std::min<uint64_t>(shares, std::numeric_limits<uint32_t>::max());
}

}  // namespace

const Outbox& Engine::on_new_order(const std::string& owner, Client& client,
                                   const FixFieldMap& fields) {
  const ReportTarget to = replies_to(client);
  const double order_qty = double_or_zero(fields.text(TAG_ORDER_QTY));
  // A rejected order may name a symbol that is not listed: the report says what the client said.
  const std::string_view symbol = fields.text(TAG_SYMBOL);
  NewOrderRequest request{.owner = owner,
                          .fields = fields,
                          .stock = stock_by_symbol(symbol),
                          .order_qty = order_qty,
                          .order = provisional_order(fields, order_qty)};

  for (const OrderRule& rule : NEW_ORDER_LADDER) {  // the first broken rule answers
    if (!rule.broken(*this, request)) continue;
    build_reject_report(to, request.order, symbol, rule.text, rule.reason);
    return to.out;
  }
  BenchCounters& counters = scenario->counters;
  ++counters.orders;
  if (scenario->rejects.fires(counters.orders)) {
    ++counters.rejects;
    build_reject_report(to, request.order, symbol, "bench:scripted_reject", "0");
  } else {
    request.order.owner = owner;
    accept_order(request.order, *request.stock, to);
  }
  return to.out;
}

void Engine::accept_order(Order& order, Stock& stock, const ReportTarget& to) {
  order.id = next_order_id++;
  order.locate = stock.locate;
  order.buy = order.side == '1';
  order.leaves = order.qty;
  build_new_report(to, order, stock.symbol);
  ++scenario->counters.accepts;

  begin_event();
  const bool fill_or_kill = order.tif == '4';
  if (fill_or_kill && order.leaves > available_to(order, stock.book)) {
    cancel_remainder(order, stock, to);
    return publish_dirty(stock);
  }
  match_order(stock, order, &to);
  if (order.leaves == 0) {
    note_closed(order.owner, order.cl_ord_id);
  } else if (order.tif != '0' || order.price == 0) {
    cancel_remainder(order, stock, to);  // a market order never rests
  } else {
    live.insert(rest_order(stock, order));
    schedule_cancel_if_scripted(order);
  }
  publish_dirty(stock);
}

/// Closes an order that may not rest with what it has not filled.
void Engine::cancel_remainder(const Order& order, const Stock& stock, const ReportTarget& to) {
  build_unmatched_report(to, order, stock.symbol);
  ++scenario->counters.cancels;
  note_closed(order.owner, order.cl_ord_id);
}

/// Counts on accepted orders, and is asked only for one that has come to rest.
void Engine::schedule_cancel_if_scripted(const Order& order) {
  if (!scenario->unsolicited_cancels.fires(scenario->counters.accepts)) return;
  const int64_t due_ms = static_cast<int64_t>(steady_ms()) + UNSOLICITED_CANCEL_DELAY_MS;
  scheduled_cancels.schedule({order.owner, order.cl_ord_id, due_ms});
}

}  // namespace quorl
