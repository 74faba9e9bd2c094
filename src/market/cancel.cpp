#include <algorithm>
#include <string>
#include <string_view>

#include "base/log.h"
#include "bench/scenario.h"
#include "fix/fix_codec.h"
#include "fix/reports.h"
#include "market/engine.h"

namespace quorl {
/// The order is found by the client's name and ClOrdID alone: nothing else of the request is read,
/// and its own ClOrdID is not checked for anything.
const Outbox& Engine::on_cancel(const std::string& owner, Client& client,
                                const FixFieldMap& fields) {
  const ReportTarget to = replies_to(client);
  const std::string_view cl_ord_id = fields.text(TAG_CL_ORD_ID);
  const std::string_view orig_cl_ord_id = fields.text(TAG_ORIG_CL_ORD_ID);
  RestingOrder* const order = live_order(owner, orig_cl_ord_id);
  Stock* const stock = order == nullptr ? nullptr : stock_of(*order);
  if (stock == nullptr) {
    reject_cancel(owner, to, cl_ord_id, orig_cl_ord_id);
    return to.out;
  }

  BenchCounters& counters = scenario->counters;
  ++counters.cancel_requests;
  if (scenario->fills_on_cancel.fires(counters.cancel_requests)) {
    lose_race(*stock, *order, to, cl_ord_id, orig_cl_ord_id);
    return to.out;
  }

  const Order cancelled = static_cast<const Order&>(*order);
  begin_event();
  withdraw(*order);
  publish_dirty(*stock);
  ++counters.cancels;
  build_cancel_report(to, cancelled, stock->symbol, cl_ord_id);
  note_closed(owner, orig_cl_ord_id);
  return to.out;
}

/// The order is filled in full at its own limit, with no counterparty order, before the cancel is
/// looked at: the client gets the fill first and then the rejection.
void Engine::lose_race(Stock& stock, RestingOrder& order, const ReportTarget& to,
                       std::string_view cl_ord_id, std::string_view orig_cl_ord_id) {
  BenchCounters& counters = scenario->counters;
  ++counters.race_fills;
  print_log(
      "bench: cancel of %s loses the race to a fill (filled in full, cancel rejected 'too late to "
      "cancel')\n",
      std::string(orig_cl_ord_id).c_str());
  const std::string owner = order.owner;
  const uint64_t order_id = order.id;
  begin_event();
  fill(stock, order, order.leaves, /*scriptable=*/false);
  publish_dirty(stock);

  // The fill may not wait for the end of the turn, and what this owner is owed from earlier in the
  // turn goes ahead of it.
  const auto first_owed =
      std::stable_partition(deferred.begin(), deferred.end(),
                            [&owner](const DeferredReport& r) { return r.order.owner != owner; });
  for (auto report = first_owed; report != deferred.end(); ++report) compose(*report, to);
  deferred.erase(first_owed, deferred.end());

  ++counters.cancel_rejects;
  build_cancel_reject(to, {.cl_ord_id = cl_ord_id,
                           .orig_cl_ord_id = orig_cl_ord_id,
                           .order_id = order_id,
                           .ord_status = '2',
                           .reason = '0',
                           .text = "Too late to cancel"});
  note_closed(owner, orig_cl_ord_id);
}

void Engine::reject_cancel(const std::string& owner, const ReportTarget& to,
                           std::string_view cl_ord_id, std::string_view orig_cl_ord_id) {
  BenchCounters& counters = scenario->counters;
  CancelReject reject{.cl_ord_id = cl_ord_id,
                      .orig_cl_ord_id = orig_cl_ord_id,
                      .order_id = 0,
                      .ord_status = '2',
                      .reason = '1',
                      .text = "Unknown order"};
  const char* stale_because = nullptr;  // null for a cancel that is merely late
  switch (closing_of(owner, orig_cl_ord_id)) {
    case Closing::JUST_NOW:
      reject.text = "Too late to cancel";
      reject.reason = '0';
      break;
    case Closing::LONG_AGO:  // "filled" goes with "unknown order"
      stale_because = "closed more than 2 s ago";
      break;
    case Closing::UNKNOWN:
      reject.ord_status = '8';
      stale_because = "unknown order";
      break;
  }
  if (stale_because == nullptr) {
    ++counters.late_cancels;
  } else {
    ++counters.stale_cancels;
    print_log("bench: stale cancel for %s (%s)\n", std::string(orig_cl_ord_id).c_str(),
              stale_because);
  }
  ++counters.cancel_rejects;
  build_cancel_reject(to, reject);
}

}  // namespace quorl
