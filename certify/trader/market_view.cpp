#include "certify/trader/market_view.h"

#include <chrono>

#include "quorl/client/json_lines.h"
#include "tools/ladder/follower.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;

constexpr size_t MOST_LEVELS = 5;

template <typename Levels>
std::string levels_text(const Levels& levels) {
  std::string text;
  size_t count = 0;
  for (const auto& [price, size] : levels) {
    if (++count > MOST_LEVELS) break;
    text += text.empty() ? "[" : ",[";
    text += client::six_digit_text(price) + "," + std::to_string(size) + "]";
  }
  return text;
}

std::string symbol_text(const std::string& symbol, const ladder::SymbolState& state) {
  const client::Price4 last = state.trades.empty() ? 0 : state.trades.front().price;
  return "\"" + symbol + "\":{\"bid\":[" + levels_text(state.bids) + "],\"ask\":[" +
         levels_text(state.asks) + "],\"last\":" + client::six_digit_text(last) +
         ",\"volume\":" + std::to_string(state.volume) + "}";
}

class MarketByFeed : public MarketView {
 public:
  explicit MarketByFeed(const client::Ports& ports) : follower_(ports) {}

  std::optional<Touch> touch(const std::string& symbol) const override {
    std::optional<Touch> touch;
    follower_.look([&](const ladder::Market& market, const ladder::Health&) {
      const ladder::SymbolState* state = market.find(symbol);
      if (state == nullptr || state->bids.empty() || state->asks.empty()) return;
      touch = {state->bids.begin()->first, state->asks.begin()->first};
    });
    return touch;
  }

  bool await_in_step(client::Deadline deadline) const override {
    return follower_.await_in_step(deadline);
  }

  std::string book_text() const override {
    std::string text;
    follower_.look([&](const ladder::Market& market, const ladder::Health&) {
      for (const std::string& symbol : market.symbols()) {
        const ladder::SymbolState* state = market.find(symbol);
        if (state == nullptr) continue;
        text += (text.empty() ? "" : ",") + symbol_text(symbol, *state);
      }
    });
    if (text.empty()) return "";
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    return "{\"ts_ns\":" + std::to_string(ns) + ",\"symbols\":{" + text + "}}\n";
  }

  std::string trouble() const override {
    std::string trouble;
    follower_.look(
        [&](const ladder::Market&, const ladder::Health& health) { trouble = health.trouble; });
    return trouble;
  }

 private:
  ladder::Follower follower_;
};

}  // namespace

std::optional<Touch> MarketView::touch(const std::string&) const { return std::nullopt; }
bool MarketView::await_in_step(client::Deadline) const { return true; }
std::string MarketView::book_text() const { return ""; }
std::string MarketView::trouble() const { return ""; }

std::unique_ptr<MarketView> market_by_feed(const client::Ports& ports) {
  return std::make_unique<MarketByFeed>(ports);
}

}  // namespace certify::trader
