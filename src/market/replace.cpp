#include <cstdint>
#include <string>
#include <string_view>

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

Price4 wanted_price(const FixFieldMap& fields, const Order& order) {
  if (order.ord_type == '1') return 0;
  // An empty tag is present, and reads as no price.
  return fields.has(TAG_PRICE) ? price_of_dollars(double_or_zero(fields.text(TAG_PRICE)))
                               : order.price;
}

bool is_bad_price(const Order& order, Price4 price) {
  return order.ord_type == '2' && (price < 1 || is_off_tick(price));
}

bool names_other_side_or_symbol(const FixFieldMap& fields, const Order& order, const Stock& stock) {
  return fields.first_char(TAG_SIDE, ' ') != order.side || fields.text(TAG_SYMBOL) != stock.symbol;
}

}  // namespace

/// Only quantity and price can move. The first rule that is broken answers.
const Outbox& Engine::on_cancel_replace(const std::string& owner, Client& client,
                                        const FixFieldMap& fields) {
  const ReportTarget to = replies_to(client);
  BenchCounters& counters = scenario->counters;
  const std::string_view cl_ord_id = fields.text(TAG_CL_ORD_ID);
  const std::string_view orig_cl_ord_id = fields.text(TAG_ORIG_CL_ORD_ID);
  RestingOrder* order = live_order(owner, orig_cl_ord_id);
  Stock* const stock = order == nullptr ? nullptr : stock_of(*order);
  if (stock == nullptr) order = nullptr;
  const auto reject = [&](std::string_view text, char ord_status, char reason) -> const Outbox& {
    ++counters.replace_rejects;
    build_replace_reject(to, {.cl_ord_id = cl_ord_id,
                              .orig_cl_ord_id = orig_cl_ord_id,
                              .order_id = order != nullptr ? order->id : 0,
                              .ord_status = ord_status,
                              .reason = reason,
                              .text = text});
    return to.out;
  };

  // Ahead of the next two: also for an unknown order.
  if (is_bad_cl_ord_id(cl_ord_id) || live.contains({owner, cl_ord_id})) {
    return reject("Invalid or duplicate ClOrdID", order != nullptr ? '0' : '8', '2');
  }
  if (order == nullptr) {
    const Closing closing = closing_of(owner, orig_cl_ord_id);
    if (closing == Closing::JUST_NOW) {
      ++counters.late_cancels;
      return reject("Too late to cancel", '2', '0');
    }
    ++counters.stale_cancels;
    print_log("bench: stale replace for %s\n", std::string(orig_cl_ord_id).c_str());
    return reject("Unknown order", closing == Closing::LONG_AGO ? '2' : '8', '1');
  }
  // A fraction passes and is cut off; what is no number at all is at or below what is executed.
  const double order_qty = double_or_zero(fields.text(TAG_ORDER_QTY));
  if (order_qty < LEAST_ORDER_QTY || order_qty > MOST_ORDER_QTY) {
    return reject("InvalidOrderQty", '0', '2');
  }
  const Price4 price = wanted_price(fields, *order);
  if (is_bad_price(*order, price)) return reject("InvalidPrice", '0', '2');
  const uint32_t qty = shares_of(order_qty);
  const char by_executed = order->cum == 0 ? '0' : '1';
  if (qty <= order->cum) {
    return reject("OrderQty at or below executed quantity", by_executed, '2');
  }
  if (names_other_side_or_symbol(fields, *order, *stock)) {
    return reject("Side / Symbol must match the original", '0', '2');
  }
  ++counters.replace_requests;
  if (scenario->replace_rejects.fires(counters.replace_requests)) {
    print_log("bench: scripted replace reject for %s -> %s (the order stands as it was)\n",
              std::string(orig_cl_ord_id).c_str(), std::string(cl_ord_id).c_str());
    return reject("bench:scripted_replace_reject", by_executed, '2');
  }

  Order wanted = static_cast<const Order&>(*order);
  wanted.qty = qty;
  wanted.leaves = qty - order->cum;
  wanted.price = price;
  wanted.cl_ord_id = cl_ord_id;
  carry_out_replace(*stock, *order, wanted, to);
  return to.out;
}

/// A change of price or more open shares costs the order its place; it then meets the market like
/// any aggressor. The client is told of the replace first, although the fills were made first: the
/// fills have the lower MsgSeqNums, and the Replaced report in front of them the highest.
void Engine::carry_out_replace(Stock& stock, RestingOrder& order, const Order& wanted,
                               const ReportTarget& to) {
  const bool keeps_priority = wanted.price == order.price && wanted.leaves <= order.leaves;
  const std::string orig_cl_ord_id = order.cl_ord_id;
  Order replaced = wanted;

  begin_event();
  RestingOrder* resting = nullptr;
  if (keeps_priority) {
    live.erase(order);
    Book::set_leaves(order, wanted.leaves);
    order.qty = wanted.qty;
    order.cl_ord_id = wanted.cl_ord_id;
    resting = &order;
  } else {
    take_off_book(order);
    match_order(stock, replaced, &to);
    if (replaced.leaves > 0) resting = &rest_order(stock, replaced);
  }
  publish_dirty(stock);
  ++scenario->counters.replaces;

  Order reported = replaced;
  reported.cl_ord_id = orig_cl_ord_id;
  build_replace_report(to, reported, stock.symbol, replaced.cl_ord_id);
  to.out.send_last_first();
  note_closed(replaced.owner, orig_cl_ord_id);
  if (resting != nullptr) {
    live.insert(*resting);
  } else {
    note_closed(replaced.owner, replaced.cl_ord_id);
  }
}

}  // namespace quorl
