#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/price4.h"
#include "bench/scenario.h"
#include "feed/deep_messages.h"
#include "feed/tp_publisher.h"
#include "fix/reports.h"
#include "market/engine.h"

// The one place where quantity leaves an order.

namespace quorl {
namespace {

/// An aggressor without a limit reaches every level.
bool reaches(const Order& aggressor, Price4 level) {
  if (aggressor.price == 0) return true;
  return aggressor.buy ? aggressor.price >= level : aggressor.price <= level;
}

char fill_status(uint32_t leaves) { return leaves > 0 ? '1' : '2'; }

/// The id next to trade, with ids that have left `orders` dropped from the queue on the way and
/// emptied levels from the book. Null if the side is empty or the aggressor does not reach it.
template <typename Levels>
Order* next_to_trade(Levels& levels, std::unordered_map<uint64_t, Order>& orders,
                     const Order& aggressor) {
  while (!levels.empty()) {
    const auto best = levels.begin();
    if (best->first == 0 || !reaches(aggressor, best->first)) return nullptr;
    Level& queue = best->second;
    if (!queue.empty()) {
      const auto resting = orders.find(queue.front());
      if (resting != orders.end()) return &resting->second;
      queue.pop_front();
    }
    if (queue.empty()) levels.erase(best);
  }
  return nullptr;
}

}  // namespace

uint32_t Engine::reduce(Stock& stock, Order& order, uint32_t qty, bool withdrawal, Price4 price,
                        char liquidity, bool scriptable) {
  uint32_t taken = qty;
  if (!withdrawal) {
    taken = scripted_quantity(order, qty, scriptable);
    const Price4 trade_price = price != 0 ? price : order.price;
    publish_trade(stock, taken, trade_price);
    if (!order.owner.empty()) credit_resting_fill(stock, order, taken, trade_price, liquidity);
  }
  take_off_book(stock, order, taken);
  return taken;
}

void Engine::withdraw(Stock& stock, Order& order) {
  reduce(stock, order, order.leaves, true, 0, '1', true);
}

/// The partial-fill script is asked only of a fill that would complete a client's order by the
/// market's own flow. A cut leaves half of the order done, in whole lots if there are any.
uint32_t Engine::scripted_quantity(const Order& order, uint32_t qty, bool scriptable) {
  if (order.owner.empty() || qty < 2 || !scriptable || qty != order.leaves) return qty;
  BenchCounters& counters = scenario->counters;
  ++counters.partial_candidates;
  if (!fires(counters.partial_candidates, scenario->partial_fill_every, scenario->partial_next)) {
    return qty;
  }
  const uint32_t half_in_lots = order.leaves / 200 * 100;
  const uint32_t cut = half_in_lots != 0 ? half_in_lots : order.leaves / 2;
  ++counters.partials;
  print_log("bench: partial fill of %s: %u of %u\n", order.cl_ord_id.c_str(), cut, order.leaves);
  return cut;
}

void Engine::publish_trade(Stock& stock, uint32_t qty, Price4 price) {
  const auto report = encode(TradeReport{.timestamp_ns = event_time,
                                         .symbol = stock.symbol,
                                         .size = qty,
                                         .price = price,
                                         .trade_id = ++next_trade_id});
  publisher->append(report.data(), report.size());
  stock.last_price = price;
  stock.volume += qty;
}

/// The report itself waits for drain_deferred: it takes its number, its ExecID and its time there.
void Engine::credit_resting_fill(const Stock& stock, Order& order, uint32_t filled, Price4 price,
                                 char liquidity) {
  order.cum += filled;
  order.notional += notional_of(filled, price);
  const uint32_t remaining = order.leaves - filled;
  Order snapshot = order;
  snapshot.leaves = remaining;
  deferred.push_back({order.owner, [this, snapshot = std::move(snapshot), symbol = stock.symbol,
                                    trade_id = static_cast<int64_t>(next_trade_id), filled, price,
                                    liquidity](Client& client) {
                        return build_exec_report(*this, {.client = client,
                                                         .order = snapshot,
                                                         .order_id = std::to_string(snapshot.id),
                                                         .symbol = symbol,
                                                         .trade_id = trade_id,
                                                         .exec_type = fill_status(snapshot.leaves),
                                                         .ord_status = fill_status(snapshot.leaves),
                                                         .last_qty = filled,
                                                         .last_px = price,
                                                         .leaves = snapshot.leaves,
                                                         .cum = snapshot.cum,
                                                         .liquidity = liquidity});
                      }});
  if (remaining == 0) note_closed(order.owner, order.cl_ord_id);
}

void Engine::take_off_book(Stock& stock, Order& order, uint32_t qty) {
  if (order.leaves > qty) {
    order.leaves -= qty;
    dirty.emplace(order.buy, order.price);
    return;
  }
  if (!order.owner.empty()) erase_live(order.owner, order.cl_ord_id);
  remove_from_level(stock, order);
  const uint64_t id = order.id;  // the record goes with the erasing
  orders.erase(id);
}

void Engine::match_order(Stock& stock, Order& aggressor, Client* client,
                         std::vector<std::string>* out) {
  while (aggressor.leaves > 0) {
    Order* const resting = aggressor.buy ? next_to_trade(stock.asks, orders, aggressor)
                                         : next_to_trade(stock.bids, orders, aggressor);
    if (resting == nullptr) return;
    const Price4 price = resting->price;  // never the aggressor's limit
    const uint32_t want = std::min(aggressor.leaves, resting->leaves);
    const uint32_t got = reduce(stock, *resting, want, false, price, '1', aggressor.owner.empty());
    aggressor.leaves -= got;
    aggressor.cum += got;
    aggressor.notional += notional_of(got, price);
    if (!aggressor.owner.empty() && client != nullptr && out != nullptr) {
      out->push_back(build_exec_report(*this, {.client = *client,
                                               .order = aggressor,
                                               .order_id = std::to_string(aggressor.id),
                                               .symbol = stock.symbol,
                                               .trade_id = static_cast<int64_t>(next_trade_id),
                                               .exec_type = fill_status(aggressor.leaves),
                                               .ord_status = fill_status(aggressor.leaves),
                                               .last_qty = got,
                                               .last_px = price,
                                               .leaves = aggressor.leaves,
                                               .cum = aggressor.cum,
                                               .liquidity = '2'}));
    }
    if (got < want) return;  // the script cut the fill: the sweep ends there
  }
}

}  // namespace quorl
