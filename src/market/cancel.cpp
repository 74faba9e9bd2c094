#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "base/log.h"
#include "bench/scenario.h"
#include "fix/fix_codec.h"
#include "fix/reports.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr char ANSWERS_CANCEL = '1';  // tag 434

}  // namespace

/// The order is found by the client's name and ClOrdID alone: nothing else of the request is read,
/// and its own ClOrdID is not checked for anything.
std::vector<std::string> Engine::on_cancel(const std::string& owner, Client& client,
                                           const FixFieldMap& fields) {
  const std::string cl_ord_id(fields.text(TAG_CL_ORD_ID));
  const std::string orig_cl_ord_id(fields.text(TAG_ORIG_CL_ORD_ID));
  RestingOrder* const order = live_order(owner, orig_cl_ord_id);
  Stock* const stock = order == nullptr ? nullptr : stock_of(*order);
  if (stock == nullptr) return reject_cancel(client, owner, cl_ord_id, orig_cl_ord_id);

  BenchCounters& counters = scenario->counters;
  ++counters.cancel_requests;
  if (scenario->fills_on_cancel.fires(counters.cancel_requests)) {
    return lose_race(*stock, *order, client, cl_ord_id, orig_cl_ord_id);
  }

  const Order cancelled = *order;
  begin_event();
  withdraw(*order);
  publish_dirty(*stock);
  ++counters.cancels;
  std::string report = build_exec_report(*this, {.client = client,
                                                 .order = cancelled,
                                                 .order_id = std::to_string(cancelled.id),
                                                 .symbol = stock->symbol,
                                                 .exec_type = '4',
                                                 .ord_status = '4',
                                                 .cum = cancelled.cum,
                                                 .cl_ord_id = cl_ord_id});
  note_closed(owner, orig_cl_ord_id);
  return {std::move(report)};
}

/// The order is filled in full at its own limit, with no counterparty order, before the cancel is
/// looked at: the client gets the fill first and then the rejection.
std::vector<std::string> Engine::lose_race(Stock& stock, RestingOrder& order, Client& client,
                                           const std::string& cl_ord_id,
                                           const std::string& orig_cl_ord_id) {
  BenchCounters& counters = scenario->counters;
  ++counters.race_fills;
  print_log(
      "bench: cancel of %s loses the race to a fill (filled in full, cancel rejected 'too "
      "late to cancel')\n",
      orig_cl_ord_id.c_str());
  const std::string owner = order.owner;
  const std::string order_id = std::to_string(order.id);
  begin_event();
  fill(stock, order, order.leaves, /*scriptable=*/false);
  publish_dirty(stock);

  // The fill may not wait for the end of the turn, and what this owner is owed from earlier in the
  // turn goes ahead of it.
  const auto first_owed =
      std::stable_partition(deferred.begin(), deferred.end(),
                            [&owner](const DeferredReport& r) { return r.order.owner != owner; });
  const std::vector<DeferredReport> owed(std::make_move_iterator(first_owed),
                                         std::make_move_iterator(deferred.end()));
  deferred.erase(first_owed, deferred.end());
  std::vector<std::string> reports;
  for (const DeferredReport& report : owed) reports.push_back(compose(report, client));

  ++counters.cancel_rejects;
  reports.push_back(build_cancel_reject(*this, client, cl_ord_id, orig_cl_ord_id, order_id, '2',
                                        '0', ANSWERS_CANCEL, "Too late to cancel",
                                        "cancel_reject"));
  note_closed(owner, orig_cl_ord_id);
  return reports;
}

std::vector<std::string> Engine::reject_cancel(const Client& client, const std::string& owner,
                                               const std::string& cl_ord_id,
                                               const std::string& orig_cl_ord_id) {
  struct Rejection {
    const char* stale_because;  // null for a cancel that is merely late
    std::string_view text;
    char ord_status;  // "filled" goes with "unknown order" for an order closed long ago
    char reason;
  };
  const auto rejection_for = [](Closing closing) -> Rejection {
    switch (closing) {
      case Closing::JUST_NOW:
        return {nullptr, "Too late to cancel", '2', '0'};
      case Closing::LONG_AGO:
        return {"closed more than 2 s ago", "Unknown order", '2', '1'};
      case Closing::UNKNOWN:
        break;
    }
    return {"unknown order", "Unknown order", '8', '1'};
  };

  BenchCounters& counters = scenario->counters;
  const Rejection rejection = rejection_for(closing_of(owner, orig_cl_ord_id));
  if (rejection.stale_because == nullptr) {
    ++counters.late_cancels;
  } else {
    ++counters.stale_cancels;
    print_log("bench: stale cancel for %s (%s)\n", orig_cl_ord_id.c_str(), rejection.stale_because);
  }
  ++counters.cancel_rejects;
  return {build_cancel_reject(*this, client, cl_ord_id, orig_cl_ord_id, "", rejection.ord_status,
                              rejection.reason, ANSWERS_CANCEL, rejection.text, "cancel_reject")};
}

}  // namespace quorl
