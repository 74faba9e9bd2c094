#include "market/engine.h"

#include <algorithm>

#include "base/clocks.h"

namespace quorl {
namespace {

constexpr size_t MOST_CLOSED = 50000;
constexpr int64_t JUST_CLOSED_MS = 2000;

template <typename Levels>
void remove_id(Levels& levels, Price4 price, uint64_t id) {
  const auto level = levels.find(price);
  if (level == levels.end()) return;
  Level& queue = level->second;
  const auto at = std::find(queue.begin(), queue.end(), id);  // fills take the front: found at once
  if (at != queue.end()) queue.erase(at);
  if (queue.empty()) levels.erase(level);
}

}  // namespace

Engine::Engine(TpPublisher& lent_publisher, std::mt19937_64& lent_rng, Scenario& lent_scenario,
               double walk_step_bps, double touch_hit_probability, bool is_quiet)
    : publisher(&lent_publisher),
      rng(&lent_rng),
      step_bps(walk_step_bps),
      touch_hit(touch_hit_probability),
      quiet(is_quiet),
      scenario(&lent_scenario) {}

void Engine::add_stock(const std::string& symbol, double price) {
  Stock& stock = stocks.emplace_back();
  stock.symbol = symbol;
  stock.locate = static_cast<uint16_t>(stocks.size());
  stock.mid = price;
  index_by_symbol_.try_emplace(symbol, stocks.size() - 1);  // a repeated symbol finds the first
}

void Engine::begin_event() {
  dirty.clear();
  event_time = system_ns();
}

void Engine::rest_order(Stock& stock, const Order& order) {
  orders.insert_or_assign(order.id, order);
  Level& level = order.buy ? stock.bids[order.price] : stock.asks[order.price];
  level.push_back(order.id);
  dirty.emplace(order.buy, order.price);
}

void Engine::remove_from_level(Stock& stock, const Order& order) {
  if (order.buy) {
    remove_id(stock.bids, order.price, order.id);
  } else {
    remove_id(stock.asks, order.price, order.id);
  }
  dirty.emplace(order.buy, order.price);
}

void Engine::note_closed(const std::string& owner, const std::string& cl_ord_id) {
  closed.insert_or_assign({owner, cl_ord_id}, static_cast<int64_t>(steady_ms()));
  if (closed.size() > MOST_CLOSED) closed.clear();
}

Closing Engine::closing_of(std::string_view owner, std::string_view cl_ord_id) const {
  const auto entry = closed.find(ClientOrderKeyView{owner, cl_ord_id});
  if (entry == closed.end()) return Closing::UNKNOWN;
  const int64_t age_ms = static_cast<int64_t>(steady_ms()) - entry->second;
  return age_ms < JUST_CLOSED_MS ? Closing::JUST_NOW : Closing::LONG_AGO;
}

void Engine::erase_live(std::string_view owner, std::string_view cl_ord_id) {
  const auto entry = live.find(ClientOrderKeyView{owner, cl_ord_id});
  if (entry != live.end()) live.erase(entry);
}

Order* Engine::live_order(std::string_view owner, std::string_view cl_ord_id) {
  const auto entry = live.find(ClientOrderKeyView{owner, cl_ord_id});
  if (entry == live.end()) return nullptr;
  const auto order = orders.find(entry->second);
  return order == orders.end() ? nullptr : &order->second;
}

Stock* Engine::stock_by_symbol(std::string_view symbol) {
  const auto entry = index_by_symbol_.find(symbol);
  return entry == index_by_symbol_.end() ? nullptr : &stocks[entry->second];
}

Stock* Engine::stock_of(const Order& order) {
  const size_t position = order.locate;
  return position == 0 || position > stocks.size() ? nullptr : &stocks[position - 1];
}

size_t Engine::resting_orders_of(const std::string& owner) const {
  return static_cast<size_t>(
      std::count_if(orders.begin(), orders.end(),
                    [&owner](const auto& entry) { return entry.second.owner == owner; }));
}

std::vector<std::pair<size_t, std::string>> Engine::drain_deferred(std::vector<Client>& clients) {
  std::vector<std::pair<size_t, std::string>> to_send;
  if (deferred.empty()) return to_send;
  const std::vector<DeferredReport> reports = std::exchange(deferred, {});
  for (const DeferredReport& report : reports) {
    // Of several connections of one owner the last accepted one is told.
    const auto last = std::find_if(clients.rbegin(), clients.rend(), [&](const Client& client) {
      return client.comp_id == report.owner && client.fd >= 0 && client.logged_on;
    });
    if (last != clients.rend()) {
      const auto index = static_cast<size_t>(std::distance(last, clients.rend()) - 1);
      to_send.emplace_back(index, report.compose(*last));
    } else {
      Client absent;
      absent.comp_id = report.owner;
      report.compose(absent);  // kept on the stream for the owner's ResendRequest
    }
  }
  return to_send;
}

}  // namespace quorl
