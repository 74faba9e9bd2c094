#include <cstdint>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/number_parsers.h"
#include "base/price4.h"
#include "bench/scenario.h"
#include "fix/fix_codec.h"
#include "fix/reports.h"
#include "market/engine.h"
#include "market/order_checks.h"

namespace quorl {
namespace {

constexpr char ANSWERS_REPLACE = '2';  // tag 434

/// An OrderCancelReplaceRequest as read, before any check. Only quantity and price can move.
struct ReplaceRequest {
  const std::string& owner;
  const FixFieldMap& fields;
  std::string cl_ord_id;
  std::string orig_cl_ord_id;
  Order* order;  // null if it is not live; then the next three mean nothing
  Stock* stock;
  double order_qty;
  Price4 price;     // wanted
  Closing closing;  // of an order that is not live
};

Price4 wanted_price(const FixFieldMap& fields, const Order& order) {
  if (order.ord_type == '1') return 0;
  // An empty tag is present, and reads as no price.
  return fields.has(TAG_PRICE) ? price_of_dollars(double_or_zero(fields.text(TAG_PRICE)))
                               : order.price;
}

// --- The ladder ---

bool bad_or_duplicate_cl_ord_id(const Engine& engine, const ReplaceRequest& r) {
  return is_bad_cl_ord_id(r.cl_ord_id) ||
         engine.live.contains(ClientOrderKeyView{r.owner, r.cl_ord_id});
}

bool closed_just_now(const Engine&, const ReplaceRequest& r) {
  return r.order == nullptr && r.closing == Closing::JUST_NOW;
}

bool not_live(const Engine&, const ReplaceRequest& r) { return r.order == nullptr; }

/// A fraction passes and is cut off; what is no number at all is refused two rules on.
bool bad_quantity(const Engine&, const ReplaceRequest& r) {
  return r.order_qty < LEAST_ORDER_QTY || r.order_qty > MOST_ORDER_QTY;
}

bool bad_price(const Engine&, const ReplaceRequest& r) {
  return r.order->ord_type == '2' && (r.price < 1 || is_off_tick(r.price));
}

bool nothing_left(const Engine&, const ReplaceRequest& r) {
  return shares_of(r.order_qty) <= r.order->cum;
}

bool other_side_or_symbol(const Engine&, const ReplaceRequest& r) {
  return r.fields.first_char(TAG_SIDE, ' ') != r.order->side ||
         r.fields.text(TAG_SYMBOL) != r.stock->symbol;
}

char new_or_rejected(const ReplaceRequest& r) { return r.order != nullptr ? '0' : '8'; }
char filled(const ReplaceRequest&) { return '2'; }
char filled_or_rejected(const ReplaceRequest& r) {
  return r.closing != Closing::UNKNOWN ? '2' : '8';
}
char still_new(const ReplaceRequest&) { return '0'; }
char by_executed(const ReplaceRequest& r) { return r.order->cum == 0 ? '0' : '1'; }

void nothing_to_count(Scenario&, const ReplaceRequest&) {}
void count_late(Scenario& scenario, const ReplaceRequest&) { ++scenario.counters.late_cancels; }
void count_stale(Scenario& scenario, const ReplaceRequest& r) {
  ++scenario.counters.stale_cancels;
  print_log("bench: stale replace for %s\n", r.orig_cl_ord_id.c_str());
}

struct ReplaceRule {
  bool (*broken)(const Engine& engine, const ReplaceRequest& request);
  std::string_view text;                              // tag 58
  char (*ord_status)(const ReplaceRequest& request);  // tag 39
  char reason;                                        // tag 102
  void (*count)(Scenario& scenario, const ReplaceRequest& request);
};

constexpr ReplaceRule REPLACE_LADDER[] = {
    {bad_or_duplicate_cl_ord_id, "Invalid or duplicate ClOrdID", new_or_rejected, '2',
     nothing_to_count},  // ahead of the next two: also for an unknown order
    {closed_just_now, "Too late to cancel", filled, '0', count_late},
    {not_live, "Unknown order", filled_or_rejected, '1', count_stale},
    {bad_quantity, "InvalidOrderQty", still_new, '2', nothing_to_count},
    {bad_price, "InvalidPrice", still_new, '2', nothing_to_count},
    {nothing_left, "OrderQty at or below executed quantity", by_executed, '2', nothing_to_count},
    {other_side_or_symbol, "Side / Symbol must match the original", still_new, '2',
     nothing_to_count},
};

std::vector<std::string> reject_replace(Engine& engine, const Client& client,
                                        const ReplaceRequest& request, char ord_status, char reason,
                                        std::string_view text) {
  ++engine.scenario->counters.replace_rejects;
  const std::string order_id = request.order != nullptr ? std::to_string(request.order->id) : "";
  return {build_cancel_reject(engine, client, request.cl_ord_id, request.orig_cl_ord_id, order_id,
                              ord_status, reason, ANSWERS_REPLACE, text, "replace_reject")};
}

}  // namespace

std::vector<std::string> Engine::on_cancel_replace(const std::string& owner, Client& client,
                                                   const FixFieldMap& fields) {
  ReplaceRequest request{.owner = owner,
                         .fields = fields,
                         .cl_ord_id = std::string(fields.text(TAG_CL_ORD_ID)),
                         .orig_cl_ord_id = std::string(fields.text(TAG_ORIG_CL_ORD_ID)),
                         .order = nullptr,
                         .stock = nullptr,
                         .order_qty = double_or_zero(fields.text(TAG_ORDER_QTY)),
                         .price = 0,
                         .closing = Closing::UNKNOWN};
  request.order = live_order(owner, request.orig_cl_ord_id);
  if (request.order != nullptr) request.stock = stock_of(*request.order);
  if (request.stock == nullptr) {
    request.order = nullptr;
    request.closing = closing_of(owner, request.orig_cl_ord_id);  // one reading for both rules
  } else {
    request.price = wanted_price(fields, *request.order);
  }

  for (const ReplaceRule& rule : REPLACE_LADDER) {  // the first broken rule answers
    if (!rule.broken(*this, request)) continue;
    rule.count(*scenario, request);
    return reject_replace(*this, client, request, rule.ord_status(request), rule.reason, rule.text);
  }
  ++scenario->counters.replace_requests;
  if (fires(scenario->counters.replace_requests, scenario->replace_reject_every,
            scenario->replace_reject_next)) {
    print_log("bench: scripted replace reject for %s -> %s (the order stands as it was)\n",
              request.orig_cl_ord_id.c_str(), request.cl_ord_id.c_str());
    return reject_replace(*this, client, request, by_executed(request), '2',
                          "bench:scripted_replace_reject");
  }

  Order wanted = *request.order;
  wanted.qty = shares_of(request.order_qty);
  wanted.leaves = wanted.qty - wanted.cum;
  wanted.price = request.price;
  wanted.cl_ord_id = request.cl_ord_id;
  return carry_out_replace(*request.stock, *request.order, wanted, client);
}

/// A change of price or more open shares costs the order its place; it then meets the market like
/// any aggressor. The client is told of the replace first, although the fills were made first: the
/// fills have the lower MsgSeqNums, and the Replaced report in front of them the highest.
std::vector<std::string> Engine::carry_out_replace(Stock& stock, Order& order, const Order& wanted,
                                                   Client& client) {
  const bool keeps_priority = wanted.price == order.price && wanted.leaves <= order.leaves;
  const std::string owner = order.owner;
  const std::string orig_cl_ord_id = order.cl_ord_id;
  Order replaced = wanted;
  std::vector<std::string> reports;

  begin_event();
  if (keeps_priority) {
    order.leaves = wanted.leaves;
    order.qty = wanted.qty;
    order.cl_ord_id = wanted.cl_ord_id;
    dirty.emplace(order.buy, order.price);
    erase_live(owner, orig_cl_ord_id);
  } else {
    remove_from_level(stock, order);
    orders.erase(wanted.id);
    erase_live(owner, orig_cl_ord_id);
    match_order(stock, replaced, &client, &reports);
    if (replaced.leaves > 0) rest_order(stock, replaced);
  }
  publish_dirty(stock);
  ++scenario->counters.replaces;

  Order reported = replaced;
  reported.cl_ord_id = orig_cl_ord_id;
  std::string report = build_exec_report(*this, {.client = client,
                                                 .order = reported,
                                                 .order_id = std::to_string(reported.id),
                                                 .symbol = stock.symbol,
                                                 .exec_type = '5',
                                                 .ord_status = '5',
                                                 .leaves = reported.leaves,
                                                 .cum = reported.cum,
                                                 .new_cl_ord_id = replaced.cl_ord_id});
  reports.insert(reports.begin(), std::move(report));
  note_closed(owner, orig_cl_ord_id);
  if (replaced.leaves > 0) {
    live.insert_or_assign({owner, replaced.cl_ord_id}, replaced.id);
  } else {
    note_closed(owner, replaced.cl_ord_id);
  }
  return reports;
}

}  // namespace quorl
