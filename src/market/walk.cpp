#include <cmath>
#include <cstdint>

#include "base/price4.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

// The market's own life: a random walk per symbol, synthetic orders posted and pulled around it,
// and synthetic aggressors at the touch. The order of the draws decides the market of a seed,
// so no expression holds two. Per stock and tick: the step (two or more uniforms, or the spare);
// per pull attempt the pick, then a coin for a near order; per post the side, the distance, the
// size; the touch's chance, and if it comes its side and its size.

namespace quorl {
namespace {

constexpr Price4 ONE_CENT = 100;
constexpr uint32_t ONE_LOT = 100;
constexpr int POSTS_PER_TICK = 3;
constexpr size_t FEWEST_LEVELS = 4;      // a side with fewer is refilled
constexpr double NEAR_CENTS = 12.0;      // up to here a pull takes a coin
constexpr uint64_t POST_DISTANCES = 10;  // cents behind the nearest price
constexpr uint64_t TOUCH_LOTS = 6;       // the largest synthetic aggressor

/// The more background orders rest, the faster they are pulled: against the three posted per tick
/// that bounds the book.
int pull_attempts(size_t background_orders) {
  if (background_orders <= 60) return 2;
  return background_orders <= 90 ? 3 : 4;
}

bool is_marketable(const Stock& stock, const Order& order) {
  const Level* const best = stock.book.side(!order.buy).best();
  if (best == nullptr || best->price == 0) return false;
  return order.buy ? order.price >= best->price : order.price <= best->price;
}

/// Sells begin at the reference itself and buys a cent below it: a fresh pair has a spread of one
/// cent, not centred.
Price4 posted_price(Price4 ref, bool buy, Price4 distance) {
  const Price4 raw = buy ? wrapping_sum(wrapping_sum(ref, -50), -distance)
                         : wrapping_sum(wrapping_sum(ref, distance), 50);
  return raw / ONE_CENT * ONE_CENT;
}

double cents_apart(Price4 a, Price4 b) {
  return std::fabs(static_cast<double>(a) - static_cast<double>(b)) / 100.0;
}

}  // namespace

void Engine::walk_tick() {
  if (paused) return;
  NormalDeviates normal;  // its spare goes from one stock to the next, not to the next tick
  for (Stock& stock : stocks) {
    step_price(stock, normal);
    const Price4 ref = price_of_mid(stock.mid);
    pull_background_orders(stock, ref);
    for (int i = 0; i < POSTS_PER_TICK; ++i) post_liquidity(stock, ref, 0);
    if (stock.book.bids().depth() < FEWEST_LEVELS) post_liquidity(stock, ref, 1);
    if (stock.book.asks().depth() < FEWEST_LEVELS) post_liquidity(stock, ref, -1);
    hit_touch(stock);
  }
  publisher->flush_if_pending();
}

void Engine::step_price(Stock& stock, NormalDeviates& normal) {
  const double z = normal.next(*rng);
  const double sigma = 0.0001 * step_bps;
  stock.mid = (z * sigma + 1.0) * stock.mid;
}

/// What a draw picks is decided by the iteration order of `orders`.
void Engine::pull_background_orders(Stock& stock, Price4 ref) {
  const int attempts = pull_attempts(orders.background_count(stock.locate));
  for (int i = 0; i < attempts && orders.background_count(stock.locate) != 0; ++i) {
    const uint64_t picked = uniform_index(*rng, orders.background_count(stock.locate));
    RestingOrder& order = orders.background_order(stock.locate, picked);
    if (cents_apart(order.price, ref) <= NEAR_CENTS && !coin(*rng)) continue;
    begin_event();
    withdraw(order);
    publish_dirty(stock);
  }
}

void Engine::post_liquidity(Stock& stock, Price4 ref, int direction) {
  Order order;
  order.buy = direction != 0 ? direction > 0 : coin(*rng);
  const auto distance = static_cast<Price4>(uniform_index(*rng, POST_DISTANCES)) * ONE_CENT;
  order.price = posted_price(ref, order.buy, distance);
  order.id = next_order_id++;
  order.locate = stock.locate;
  const auto lots = static_cast<uint32_t>((*rng)() >> 61) + 1;  // 1 to 8
  order.leaves = order.qty = lots * ONE_LOT;

  begin_event();
  if (is_marketable(stock, order)) match_order(stock, order, nullptr);
  if (order.leaves != 0) rest_order(stock, order);
  publish_dirty(stock);
}

/// The aggressor takes no id and never rests: what it cannot fill is forgotten.
void Engine::hit_touch(Stock& stock) {
  const double u = uniform01(*rng);
  if (!(touch_hit > u)) return;
  Order aggressor;
  aggressor.buy = coin(*rng);
  const auto lots = static_cast<uint32_t>(uniform_index(*rng, TOUCH_LOTS)) + 1;
  aggressor.leaves = aggressor.qty = lots * ONE_LOT;
  aggressor.locate = stock.locate;

  begin_event();
  match_order(stock, aggressor, nullptr);
  publish_dirty(stock);
}

}  // namespace quorl
