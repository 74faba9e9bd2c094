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

// Where orders trade, and where open shares leave a resting order by a fill or a withdrawal.

namespace quorl {
namespace {

constexpr char TOOK_LIQUIDITY = '2';  // tag 851

/// An aggressor without a limit reaches every level.
bool reaches(const Order& aggressor, Price4 level) {
  if (aggressor.price == 0) return true;
  return aggressor.buy ? aggressor.price >= level : aggressor.price <= level;
}

/// The order next to trade on the side opposite, or null if the side is empty or the aggressor does
/// not reach its best level. A level at price 0 is never reached.
RestingOrder* next_to_trade(const Book& book, const Order& aggressor) {
  const Level* const best = book.side(!aggressor.buy).best();
  if (best == nullptr || best->price == 0 || !reaches(aggressor, best->price)) return nullptr;
  return best->first;
}

}  // namespace

uint32_t Engine::fill(Stock& stock, RestingOrder& order, uint32_t qty, bool scriptable) {
  const uint32_t filled = scripted_quantity(order, qty, scriptable);
  publish_trade(stock, filled, order.price);
  if (!order.owner.empty()) credit_resting_fill(stock, order, filled);
  reduce(order, filled);
  return filled;
}

void Engine::withdraw(RestingOrder& order) { reduce(order, order.leaves); }

void Engine::reduce(RestingOrder& order, uint32_t qty) {
  if (order.leaves > qty) {
    Book::set_leaves(order, order.leaves - qty);
  } else {
    take_off_book(order);
  }
}

/// The partial-fill script is asked only of a fill that would complete a client's order by the
/// market's own flow. A cut leaves half of the order done, in whole lots if there are any.
uint32_t Engine::scripted_quantity(const Order& order, uint32_t qty, bool scriptable) {
  if (order.owner.empty() || qty < 2 || !scriptable || qty != order.leaves) return qty;
  BenchCounters& counters = scenario->counters;
  ++counters.partial_candidates;
  if (!scenario->partial_fills.fires(counters.partial_candidates)) return qty;
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
void Engine::credit_resting_fill(const Stock& stock, Order& order, uint32_t filled) {
  order.cum += filled;
  order.notional += notional_of(filled, order.price);
  DeferredReport& report = deferred.emplace_back(
      DeferredReport{order, &stock, filled, static_cast<int64_t>(next_trade_id)});
  report.order.leaves -= filled;
  if (report.order.leaves == 0) note_closed(order.owner, order.cl_ord_id);
}

void Engine::match_order(Stock& stock, Order& aggressor, const ReportTarget* reports) {
  while (aggressor.leaves > 0) {
    RestingOrder* const resting = next_to_trade(stock.book, aggressor);
    if (resting == nullptr) return;
    const Price4 price = resting->price;  // never the aggressor's limit
    const uint32_t want = std::min(aggressor.leaves, resting->leaves);
    const uint32_t got = fill(stock, *resting, want, /*scriptable=*/aggressor.owner.empty());
    aggressor.leaves -= got;
    aggressor.cum += got;
    aggressor.notional += notional_of(got, price);
    if (reports != nullptr) {
      build_fill_report(*reports, aggressor, stock.symbol,
                        {.qty = got,
                         .price = price,
                         .trade_id = static_cast<int64_t>(next_trade_id),
                         .liquidity = TOOK_LIQUIDITY});
    }
    if (got < want) return;  // the script cut the fill: the sweep ends there
  }
}

}  // namespace quorl
