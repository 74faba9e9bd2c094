#include "market/engine.h"

#include <algorithm>

#include "base/clocks.h"

namespace quorl {
Engine::Engine(TpPublisher& lent_publisher, std::mt19937_64& lent_rng, Scenario& lent_scenario,
               double walk_step_bps, double touch_hit_probability)
    : publisher(&lent_publisher),
      rng(&lent_rng),
      step_bps(walk_step_bps),
      touch_hit(touch_hit_probability),
      scenario(&lent_scenario) {}

void Engine::add_stock(const std::string& symbol, double price) {
  Stock& stock = stocks.emplace_back();
  stock.symbol = symbol;
  stock.locate = static_cast<uint16_t>(stocks.size());
  stock.mid = price;
  index_by_symbol_.try_emplace(symbol, stocks.size() - 1);  // a repeated symbol finds the first
}

void Engine::begin_event() { event_time = system_ns(); }

RestingOrder& Engine::rest_order(Stock& stock, const Order& order) {
  RestingOrder& resting = orders.insert(order);
  stock.book.add(resting);
  return resting;
}

void Engine::take_off_book(RestingOrder& order) {
  if (!order.owner.empty()) live.erase(order);
  Book::remove(order);
  orders.erase(order);
}

void Engine::note_closed(std::string_view owner, std::string_view cl_ord_id) {
  closed.note({owner, cl_ord_id}, steady_ms());
}

Closing Engine::closing_of(std::string_view owner, std::string_view cl_ord_id) const {
  return closed.closing_of({owner, cl_ord_id}, steady_ms());
}

RestingOrder* Engine::live_order(std::string_view owner, std::string_view cl_ord_id) const {
  return live.find({owner, cl_ord_id});
}

Stock* Engine::stock_by_symbol(std::string_view symbol) {
  const auto entry = index_by_symbol_.find(symbol);
  return entry == index_by_symbol_.end() ? nullptr : &stocks[entry->second];
}

Stock* Engine::stock_of(const Order& order) {
  const size_t position = order.locate;
  return position == 0 || position > stocks.size() ? nullptr : &stocks[position - 1];
}

size_t Engine::resting_orders_of(std::string_view owner) const {
  return owner.empty() ? orders.size() - live.size() : live.count_of(owner);
}

std::vector<std::pair<size_t, std::string>> Engine::drain_deferred(std::vector<Client>& clients) {
  std::vector<std::pair<size_t, std::string>> to_send;
  if (deferred.empty()) return to_send;
  const std::vector<DeferredReport> reports = std::exchange(deferred, {});
  for (const DeferredReport& report : reports) {
    // Of several connections of one owner the last accepted one is told.
    const auto last = std::find_if(clients.rbegin(), clients.rend(), [&](const Client& client) {
      return client.comp_id == report.order.owner && client.fd >= 0 && client.logged_on;
    });
    if (last != clients.rend()) {
      const auto index = static_cast<size_t>(std::distance(last, clients.rend()) - 1);
      to_send.emplace_back(index, compose(report, *last));
    } else {
      Client absent;
      absent.comp_id = report.order.owner;
      compose(report, absent);  // kept on the stream for the owner's ResendRequest
    }
  }
  return to_send;
}

}  // namespace quorl
