#include "tools/replay/market.h"

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools {
namespace {

using client::Bytes;
using client::Price4;

constexpr Price4 CENT = 100;
constexpr size_t SYMBOL_SIZE = 8;
constexpr uint32_t ROUND_LOT = 100;
constexpr uint8_t LULD_TIER = 1;
constexpr uint8_t LAST_OF_EVENT = 1;

/// What every message of a symbol begins with.
Bytes message_of(char type, char second, uint64_t timestamp_ns, const std::string& symbol) {
  Bytes message;
  client::put_u8(message, static_cast<uint8_t>(type));
  client::put_u8(message, static_cast<uint8_t>(second));
  client::put_u64(message, timestamp_ns);
  client::put_padded(message, symbol, SYMBOL_SIZE, ' ');
  return message;
}

Bytes system_event(char event, uint64_t timestamp_ns) {
  Bytes message;
  client::put_u8(message, 'S');
  client::put_u8(message, static_cast<uint8_t>(event));
  client::put_u64(message, timestamp_ns);
  return message;
}

Bytes directory(const std::string& symbol, Price4 previous_close, uint64_t timestamp_ns) {
  Bytes message = message_of('D', 0, timestamp_ns, symbol);
  client::put_u32(message, ROUND_LOT);
  client::put_u64(message, static_cast<uint64_t>(previous_close));
  client::put_u8(message, LULD_TIER);
  return message;
}

// The states that the exchange has are one each.
Bytes trading_status(const std::string& symbol, uint64_t timestamp_ns) {
  Bytes message = message_of('H', 'T', timestamp_ns, symbol);
  client::put_text(message, "    ");
  return message;
}

Bytes short_sale_status(const std::string& symbol, uint64_t timestamp_ns) {
  Bytes message = message_of('P', 0, timestamp_ns, symbol);
  client::put_text(message, " ");
  return message;
}

Bytes level(char side, const std::string& symbol, Price4 price, uint32_t size,
            uint64_t timestamp_ns) {
  Bytes message = message_of(side, LAST_OF_EVENT, timestamp_ns, symbol);
  client::put_u32(message, size);
  client::put_u64(message, static_cast<uint64_t>(price));
  return message;
}

template <typename Levels>
void show(Levels& levels, const client::LevelUpdate& update) {
  if (update.size == 0) {
    levels.erase(update.price);
  } else {
    levels[update.price] = update.size;
  }
}

}  // namespace

Price4 Market::Stock::close_or_middle() const {
  if (previous_close) return *previous_close;
  Price4 price = last_price;
  if (!bids.empty() && !asks.empty()) {
    price = bids.begin()->first + (asks.begin()->first - bids.begin()->first) / 2;
  }
  return price - price % CENT;
}

Market::Stock& Market::stock(const std::string& symbol) {
  const auto [place, is_new] = places_.try_emplace(symbol, stocks_.size());
  if (is_new) {
    stocks_.emplace_back();
    stocks_.back().symbol = symbol;
  }
  return stocks_[place->second];
}

bool Market::apply(client::ByteView bytes) {
  client::DeepMessage message;
  try {
    message = client::decode_deep(bytes);
  } catch (const client::WireError&) {
    return false;
  }
  if (const auto* event = std::get_if<client::SystemEvent>(&message)) {
    system_event_ = event->event;
    return true;
  }
  Stock& named = stock(client::symbol_of(message));
  if (const auto* directory = std::get_if<client::SecurityDirectory>(&message)) {
    named.previous_close = directory->previous_close;
  } else if (const auto* update = std::get_if<client::LevelUpdate>(&message)) {
    on_level(*update);
  } else if (const auto* trade = std::get_if<client::TradeReport>(&message)) {
    named.last_price = trade->price;
    inside_event_ = true;
  }
  return true;
}

void Market::on_level(const client::LevelUpdate& update) {
  Stock& named = stock(update.symbol);
  if (update.buy) {
    show(named.bids, update);
  } else {
    show(named.asks, update);
  }
  inside_event_ = !update.last_of_event;
}

std::vector<Bytes> Market::image(uint64_t t) const {
  std::vector<Bytes> messages;
  for (const Stock& stock : stocks_) {
    messages.push_back(directory(stock.symbol, stock.close_or_middle(), t));
  }
  messages.push_back(system_event(system_event_, t));
  for (const Stock& stock : stocks_) {
    messages.push_back(trading_status(stock.symbol, t));
    messages.push_back(message_of('E', 'O', t, stock.symbol));
    messages.push_back(message_of('O', 'N', t, stock.symbol));
    messages.push_back(short_sale_status(stock.symbol, t));
    for (const auto& [price, size] : stock.bids) {
      messages.push_back(level('8', stock.symbol, price, size, t));
    }
    for (const auto& [price, size] : stock.asks) {
      messages.push_back(level('5', stock.symbol, price, size, t));
    }
    messages.push_back(message_of('I', ' ', t, stock.symbol));
  }
  return messages;
}

}  // namespace tools
