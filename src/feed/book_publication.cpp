#include <cstdint>

#include "base/clocks.h"
#include "base/price4.h"
#include "bench/truth_log.h"
#include "feed/deep_messages.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

// How changes of a book and the opening of the market become DEEP messages.

namespace quorl {
namespace {

constexpr uint64_t LEVEL_UPDATE_BLOCK = 32;  // an update of 30 bytes and its length
constexpr int OPENING_ORDERS = 40;           // posted per symbol

template <typename Message>
void send(TpPublisher& publisher, const Message& message) {
  const auto bytes = encode(message);
  publisher.append(bytes.data(), bytes.size());
}

template <typename ShownLevels>
uint32_t shown_size(const ShownLevels& shown, Price4 price) {
  const auto level = shown.find(price);
  return level == shown.end() ? 0 : level->second;
}

template <typename ShownLevels>
void show(ShownLevels& shown, Price4 price, uint32_t size) {
  if (size == 0) {
    shown.erase(price);
  } else {
    shown[price] = size;
  }
}

}  // namespace

/// Always by a walk of the queue: a level carries no running total that could drift. The sum is
/// cut to 32 bits as the wire has it.
uint32_t Engine::level_size(const Stock& stock, bool buy, Price4 price) const {
  const auto sum = [this](const auto& levels, Price4 at) {
    uint32_t size = 0;
    const auto level = levels.find(at);
    if (level == levels.end()) return size;
    for (const uint64_t id : level->second) {
      const auto order = orders.find(id);
      if (order != orders.end()) size += order->second.leaves;
    }
    return size;
  };
  return buy ? sum(stock.bids, price) : sum(stock.asks, price);
}

void Engine::publish_dirty(Stock& stock) {
  changes_.clear();
  for (const auto& [buy, price] : dirty) {
    const uint32_t size = level_size(stock, buy, price);
    const uint32_t shown =
        buy ? shown_size(stock.shown_bids, price) : shown_size(stock.shown_asks, price);
    if (size != shown) changes_.push_back({buy, price, size});
  }
  dirty.clear();
  if (changes_.empty()) return;

  // A batch that fits into a packet is never split over two.
  if (changes_.size() * LEVEL_UPDATE_BLOCK + publisher->fill > publisher->limit &&
      publisher->header.message_count != 0) {
    publisher->flush();
  }
  for (const LevelChange& change : changes_) {
    const bool last = &change == &changes_.back();
    send(*publisher, PriceLevelUpdate{.buy = change.buy,
                                      .event_flags = static_cast<uint8_t>(last ? 1 : 0),
                                      .timestamp_ns = event_time,
                                      .symbol = stock.symbol,
                                      .size = change.size,
                                      .price = change.price});
    if (change.buy) {
      show(stock.shown_bids, change.price, change.size);
    } else {
      show(stock.shown_asks, change.price, change.size);
    }
    write_book_line(*this, stock);  // the state after this update
  }
}

/// Each type together for all symbols. The statuses share one reading of the clock.
void Engine::open_market() {
  const uint64_t t = system_ns();
  send(*publisher, SystemEvent{.event = 'O', .timestamp_ns = t});
  for (const Stock& stock : stocks) {
    send(*publisher, SecurityDirectory{.timestamp_ns = t,
                                       .symbol = stock.symbol,
                                       .adjusted_previous_close = price_of_mid(stock.mid)});
  }
  for (const Stock& stock : stocks) {
    send(*publisher, TradingStatus{.status = 'T', .timestamp_ns = t, .symbol = stock.symbol});
  }
  for (const Stock& stock : stocks) {
    send(*publisher, OperationalHaltStatus{.timestamp_ns = t, .symbol = stock.symbol});
  }
  for (const Stock& stock : stocks) {
    send(*publisher, ShortSalePriceTestStatus{.timestamp_ns = t, .symbol = stock.symbol});
  }
  for (const Stock& stock : stocks) {
    send(*publisher, RetailLiquidityIndicator{.timestamp_ns = t, .symbol = stock.symbol});
  }
  send(*publisher, SystemEvent{.event = 'S', .timestamp_ns = t});
  send(*publisher, SystemEvent{.event = 'R', .timestamp_ns = t});
  system_status = 'R';

  for (Stock& stock : stocks) {
    const Price4 ref = price_of_mid(stock.mid);
    for (int i = 0; i < OPENING_ORDERS; ++i) post_liquidity(stock, ref, 0);
  }
  for (const Stock& stock : stocks) {
    send(*publisher, SecurityEvent{.timestamp_ns = system_ns(), .symbol = stock.symbol});
  }
  publisher->flush_if_pending();
}

}  // namespace quorl
