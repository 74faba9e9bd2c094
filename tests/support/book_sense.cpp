#include "support/book_sense.h"

#include <set>
#include <vector>

#include "market/engine.h"
#include "support/inside.h"

namespace quorl::test {
namespace {

constexpr Price4 ONE_CENT = 100;

std::string nonsense_in_order(const Order& order, const Stock& stock, bool buy, Price4 price) {
  if (order.price != price || order.buy != buy || order.locate != stock.locate) {
    return "an order stands where it does not belong";
  }
  if (order.leaves == 0 || order.leaves > order.qty) return "an order has the wrong open shares";
  return "";
}

std::string nonsense_in_side(const Engine& engine, const Stock& stock, bool buy,
                             std::set<uint64_t>& ids) {
  ShownLevels resting;
  for (const RestingLevel& level : resting_levels(engine, stock, buy)) {
    if (level.price % ONE_CENT != 0) return "a price is not in whole cents";
    if (!resting.empty() &&
        (buy ? level.price >= resting.back().first : level.price <= resting.back().first)) {
      return "levels are out of order";
    }
    uint32_t shares = 0;
    for (const Order* const order : level.queue) {
      std::string wrong = nonsense_in_order(*order, stock, buy, level.price);
      if (!wrong.empty()) return wrong;
      if (!ids.insert(order->id).second) return "an order stands twice";
      shares += order->leaves;
    }
    resting.emplace_back(level.price, shares);
  }
  return shown_levels(engine, stock, buy) == resting ? "" : "the feed has said something else";
}

std::string nonsense_in_stock(const Engine& engine, const Stock& stock, std::set<uint64_t>& ids) {
  for (const bool buy : {BUYS, SELLS}) {
    std::string wrong = nonsense_in_side(engine, stock, buy, ids);
    if (!wrong.empty()) return wrong;
  }
  const std::vector<Price4> bids = level_prices(engine, stock, BUYS);
  const std::vector<Price4> offers = level_prices(engine, stock, SELLS);
  const bool crossed = !bids.empty() && !offers.empty() && bids.front() > offers.front();
  return crossed ? "a bid stands above an offer" : "";
}

}  // namespace

std::string nonsense_in(const Engine& engine) {
  std::set<uint64_t> ids;
  for (const Stock& stock : engine.stocks) {
    const std::string wrong = nonsense_in_stock(engine, stock, ids);
    if (!wrong.empty()) return wrong + " (" + stock.symbol + ")";
  }
  return ids.size() == order_count(engine) ? "" : "an order stands in no queue";
}

std::string price_outside(const Engine& engine, Price4 lowest, Price4 highest) {
  for (const Stock& stock : engine.stocks) {
    for (const bool buy : {BUYS, SELLS}) {
      for (const Price4 price : level_prices(engine, stock, buy)) {
        if (price < lowest || price > highest) return std::to_string(price);
      }
    }
  }
  return "";
}

}  // namespace quorl::test
