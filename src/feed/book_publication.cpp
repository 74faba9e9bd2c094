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

}  // namespace

void Engine::publish_dirty(Stock& stock) {
  const std::vector<LevelChange>& changes = stock.book.changes();
  // A batch that fits into a packet is never split over two.
  if (!changes.empty()) publisher->flush_unless_fits(changes.size() * LEVEL_UPDATE_BLOCK);
  for (size_t i = 0; i < changes.size(); ++i) {
    const LevelChange& change = changes[i];
    const bool last = i + 1 == changes.size();
    send(*publisher, PriceLevelUpdate{.buy = change.buy,
                                      .event_flags = static_cast<uint8_t>(last ? 1 : 0),
                                      .timestamp_ns = event_time,
                                      .symbol = stock.symbol,
                                      .size = change.size,
                                      .price = change.price});
    stock.book.show_change(i);
    write_book_line(*this, stock);  // the state after this update
  }
  stock.book.settle();
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
