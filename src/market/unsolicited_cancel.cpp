#include <cstdint>

#include "base/clocks.h"
#include "base/log.h"
#include "bench/scenario.h"
#include "market/engine.h"

namespace quorl {

void Engine::fire_unsolicited() {
  if (scheduled_cancels.empty()) return;
  for (const ScheduledCancel& entry :
       scheduled_cancels.take_due(static_cast<int64_t>(steady_ms()))) {
    cancel_unsolicited(entry);
  }
}

/// An order that has been filled, cancelled or replaced meanwhile is not found, and the entry is
/// spent without a word.
void Engine::cancel_unsolicited(const ScheduledCancel& due) {
  RestingOrder* const order = live_order(due.owner, due.cl_ord_id);
  Stock* const stock = order == nullptr ? nullptr : stock_of(*order);
  if (stock == nullptr) return;

  ++scenario->counters.unsolicited_cancels;
  print_log(
      "bench: unsolicited cancel of %s (exchange-initiated; the client must mark it cancelled)\n",
      order->cl_ord_id.c_str());
  deferred.push_back({static_cast<const Order&>(*order), stock, /*filled=*/0, /*trade_id=*/0});
  begin_event();
  withdraw(*order);
  publish_dirty(*stock);
  note_closed(due.owner, due.cl_ord_id);
}

}  // namespace quorl
