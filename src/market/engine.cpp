#include "market/engine.h"

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

FixStream& Engine::stream_named(std::string_view comp_id) {
  const auto known = streams.find(comp_id);
  if (known != streams.end()) return known->second;
  FixStream& stream = streams[std::string(comp_id)];
  stream.comp_id = comp_id;
  return stream;
}

}  // namespace quorl
