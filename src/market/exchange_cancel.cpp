#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "base/clocks.h"
#include "base/log.h"
#include "bench/scenario.h"
#include "fix/reports.h"
#include "market/engine.h"

namespace quorl {

/// The list is not sorted: one due entry behind an undue one fires in the same pass.
void Engine::fire_unsolicited(std::vector<Client>&) {
  if (scheduled_cancels.empty()) return;
  const auto now_ms = static_cast<int64_t>(steady_ms());
  const auto first_due = std::stable_partition(
      scheduled_cancels.begin(), scheduled_cancels.end(),
      [now_ms](const ScheduledCancel& entry) { return now_ms < entry.due_ms; });
  const std::vector<ScheduledCancel> due(std::make_move_iterator(first_due),
                                         std::make_move_iterator(scheduled_cancels.end()));
  scheduled_cancels.erase(first_due, scheduled_cancels.end());
  for (const ScheduledCancel& entry : due) cancel_unasked(entry);
}

/// An order that has been filled, cancelled or replaced meanwhile is not found, and the entry is
/// spent without a word.
void Engine::cancel_unasked(const ScheduledCancel& due) {
  Order* const order = live_order(due.owner, due.cl_ord_id);
  if (order == nullptr || order->leaves == 0 || order->owner.empty()) return;
  Stock* const stock = stock_of(*order);
  if (stock == nullptr) return;

  ++scenario->counters.unsolicited_cancels;
  print_log(
      "bench: unsolicited cancel of %s (exchange-initiated; the client must mark it "
      "cancelled)\n",
      order->cl_ord_id.c_str());
  const Order cancelled = *order;
  begin_event();
  withdraw(*stock, *order);
  publish_dirty(*stock);
  deferred.push_back({cancelled.owner, [this, cancelled, symbol = stock->symbol](Client& client) {
                        return build_exec_report(*this, {.client = client,
                                                         .order = cancelled,
                                                         .order_id = std::to_string(cancelled.id),
                                                         .symbol = symbol,
                                                         .exec_type = '4',
                                                         .ord_status = '4',
                                                         .cum = cancelled.cum,
                                                         .text = "AdminCancel",
                                                         .cl_ord_id = cancelled.cl_ord_id,
                                                         .truth_text = "unsolicited"});
                      }});
  note_closed(cancelled.owner, cancelled.cl_ord_id);
}

}  // namespace quorl
