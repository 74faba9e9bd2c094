#include <cstddef>
#include <string>
#include <vector>

#include "fix/reports.h"
#include "market/engine.h"

// Where the reports of an event go: to the client whose request is in hand, or, later in the turn,
// to the owners of resting orders.

namespace quorl {
namespace {

constexpr char ADDED_LIQUIDITY = '1';  // tag 851

}  // namespace

ReportTarget Engine::replies_to(const Client& client) {
  replies_.clear();
  return {*this, client.stream != nullptr ? *client.stream : stream_named(client.comp_id),
          replies_};
}

void Engine::compose(const DeferredReport& report, const ReportTarget& to) {
  const Order& order = report.order;
  const std::string& symbol = report.stock->symbol;
  if (report.filled == 0) return build_unsolicited_cancel_report(to, order, symbol);
  build_fill_report(to, order, symbol,
                    {.qty = report.filled,
                     .price = order.price,
                     .trade_id = report.trade_id,
                     .liquidity = ADDED_LIQUIDITY});
}

const std::vector<OwedMessage>& Engine::drain_deferred() {
  owed_messages_.clear();
  if (deferred.empty()) return owed_messages_;
  owed_.clear();
  for (const DeferredReport& report : deferred) {
    compose(report, {*this, stream_named(report.order.owner), owed_});
  }
  // Without a connection a report stays on the stream for the owner's ResendRequest.
  for (size_t i = 0; i < deferred.size(); ++i) {
    const std::vector<size_t>& connections = stream_named(deferred[i].order.owner).connections;
    if (!connections.empty()) owed_messages_.push_back({connections.back(), owed_[i]});
  }
  deferred.clear();
  return owed_messages_;
}

}  // namespace quorl
