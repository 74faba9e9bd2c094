#include "lives/book_witness.h"

#include <string>
#include <unordered_set>

#include "lives/broken.h"
#include "support/inside.h"

namespace lives {
namespace {

using quorl::Engine;
using quorl::Order;
using quorl::Stock;
namespace inside = quorl::test;

/// Makes a text that names the order.
auto naming(const Order& order) {
  return [&order] {
    return "order " + std::to_string(order.id) + " of '" + order.owner +
           "': " + std::to_string(order.qty) + " ordered, " + std::to_string(order.leaves) +
           " open, " + std::to_string(order.cum) + " done, at " + std::to_string(order.price);
  };
}

void look_at_order(const Order& order, const Stock& stock, bool buy, quorl::Price4 price) {
  holds(order.buy == buy, "a queue holds orders of its side: ", naming(order));
  holds(order.price == price, "a queue holds orders of its price: ", naming(order));
  holds(order.locate == stock.locate, "a book holds orders of its stock: ", naming(order));
  holds(order.leaves > 0, "a resting order has open shares: ", naming(order));
  if (order.owner.empty()) {
    holds(order.leaves <= order.qty, "a background order never grows: ", naming(order));
  } else {
    holds(uint64_t{order.leaves} + order.cum == order.qty,
          "ordered = open + done: ", naming(order));
  }
}

void look_at_side(Engine& engine, const Stock& stock, bool buy,
                  std::unordered_set<uint64_t>& seen) {
  inside::ShownLevels real;
  for (const inside::RestingLevel& level : inside::resting_levels(engine, stock, buy)) {
    const auto at = [&] {
      return stock.symbol + (buy ? " buy " : " sell ") + std::to_string(level.price);
    };
    holds(!level.queue.empty(), "a price without orders does not exist: ", at);
    if (!real.empty()) {
      holds(buy ? level.price < real.back().first : level.price > real.back().first,
            "levels stand from the best to the worst: ", at);
    }
    uint64_t open = 0;
    for (const Order* order : level.queue) {
      look_at_order(*order, stock, buy, level.price);
      holds(seen.insert(order->id).second, "an order stands in one queue: ", naming(*order));
      holds(inside::has_order(engine, order->id), "it is in the table: ", naming(*order));
      open += order->leaves;
    }
    const auto size = static_cast<uint32_t>(open);
    holds(inside::shares_at(engine, stock, buy, level.price) == size,
          "a level's size is the sum of its queue: ", at);
    if (size != 0) real.emplace_back(level.price, size);
  }
  holds(inside::shown_levels(engine, stock, buy) == real,
        "the feed was shown what rests: ", stock.symbol, buy ? " buy" : " sell");
}

}  // namespace

void look_at_books(Engine& engine, bool may_cross) {
  std::unordered_set<uint64_t> seen;
  for (const Stock& stock : engine.stocks) {
    look_at_side(engine, stock, inside::BUYS, seen);
    look_at_side(engine, stock, inside::SELLS, seen);
    const quorl::Level* const bid = stock.book.bids().best();
    const quorl::Level* const ask = stock.book.asks().best();
    holds(may_cross || bid == nullptr || ask == nullptr || bid->price < ask->price,
          "a book is not crossed: ", stock.symbol);
  }
  holds(seen.size() == inside::order_count(engine), "every order of the table stands in a queue");
  size_t named = 0;
  engine.live.for_each([&](const quorl::RestingOrder& order) {
    ++named;
    holds(seen.contains(order.id), "a live name leads to a resting order: ", naming(order));
  });
  holds(named == engine.live.size(), "live names are counted");
  holds(engine.deferred.empty(), "nothing is owed between two turns");
}

}  // namespace lives
