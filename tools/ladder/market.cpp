#include "tools/ladder/market.h"

#include <variant>

namespace ladder {
namespace {

namespace client = quorl::client;

template <typename Levels>
void set_level(Levels& levels, const client::LevelUpdate& update) {
  if (update.size == 0) {
    levels.erase(update.price);
  } else {
    levels[update.price] = update.size;
  }
}

Tick tick_of(client::Price4 price, const std::deque<Trade>& before) {
  if (before.empty()) return Tick::NONE;
  if (price > before.front().price) return Tick::UP;
  if (price < before.front().price) return Tick::DOWN;
  return before.front().tick;  // at the same price the direction goes on
}

}  // namespace

std::optional<client::Price4> SymbolState::spread() const {
  if (bids.empty() || asks.empty()) return std::nullopt;
  return asks.begin()->first - bids.begin()->first;
}

void Market::apply(const client::DeepMessage& message) {
  if (since_ns_ == 0) since_ns_ = std::visit([](const auto& m) { return m.timestamp_ns; }, message);
  const std::string symbol = client::symbol_of(message);
  if (symbol.empty()) return;
  state_of(symbol);
  if (const auto* update = std::get_if<client::LevelUpdate>(&message)) on_level(*update);
  if (const auto* trade = std::get_if<client::TradeReport>(&message)) on_trade(*trade);
}

void Market::apply_image(const client::SnapImage& image) {
  for (auto& [symbol, state] : states_) {
    state.bids.clear();
    state.asks.clear();
  }
  for (const client::DeepMessage& message : image.messages) apply(message);
}

const SymbolState* Market::find(const std::string& symbol) const {
  const auto found = states_.find(symbol);
  return found == states_.end() ? nullptr : &found->second;
}

SymbolState& Market::state_of(const std::string& symbol) {
  const auto [entry, is_new] = states_.try_emplace(symbol);
  if (is_new) symbols_.push_back(symbol);
  return entry->second;
}

void Market::on_level(const client::LevelUpdate& update) {
  SymbolState& state = state_of(update.symbol);
  if (update.buy) {
    set_level(state.bids, update);
  } else {
    set_level(state.asks, update);
  }
}

void Market::on_trade(const client::TradeReport& trade) {
  SymbolState& state = state_of(trade.symbol);
  state.volume += trade.size;
  state.line.add(trade.timestamp_ns, trade.price);
  state.trades.push_front({.timestamp_ns = trade.timestamp_ns,
                           .price = trade.price,
                           .size = trade.size,
                           .tick = tick_of(trade.price, state.trades)});
  if (state.trades.size() > SymbolState::TRADES_KEPT) state.trades.pop_back();
}

}  // namespace ladder
