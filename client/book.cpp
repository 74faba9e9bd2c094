#include "quorl/client/book.h"

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

/// Applies the update to one side; it must change what is shown.
template <typename Levels>
void change_level(Levels& levels, const LevelUpdate& update) {
  const auto shown = levels.find(update.price);
  const uint32_t before = shown == levels.end() ? 0 : shown->second;
  if (before == update.size) {
    throw WireError("level update changes nothing: " + describe(DeepMessage(update)));
  }
  if (update.size == 0) {
    levels.erase(shown);
  } else {
    levels[update.price] = update.size;
  }
}

template <typename Levels>
std::string level_texts(const Levels& levels) {
  std::string text;
  for (const auto& [price, size] : levels) {
    text += " " + std::to_string(size) + "@" + price_text(price);
  }
  return text;
}

}  // namespace

void BookBuilder::apply(const DeepMessage& message) {
  if (const auto* trade = std::get_if<TradeReport>(&message)) {
    on_trade(*trade);
  } else if (const auto* update = std::get_if<LevelUpdate>(&message)) {
    on_level(*update);
  } else if (event_) {
    throw WireError("an event of " + event_->symbol + " is cut short by " + describe(message));
  }
}

/// The event that is open, or a new one.
void BookBuilder::join_event(const std::string& symbol, uint64_t timestamp_ns) {
  if (!event_) event_ = OpenEvent{symbol, timestamp_ns, std::nullopt};
  if (event_->symbol == symbol && event_->timestamp_ns == timestamp_ns) return;
  throw WireError("an event of " + event_->symbol + " at " + std::to_string(event_->timestamp_ns) +
                  " is not finished when one of " + symbol + " at " + std::to_string(timestamp_ns) +
                  " begins");
}

void BookBuilder::on_trade(const TradeReport& trade) {
  join_event(trade.symbol, trade.timestamp_ns);
  if (event_->last_change) {
    throw WireError("a trade behind the level updates of its event: " +
                    describe(DeepMessage(trade)));
  }
  const bool follows =
      trades_missed_ ? trade.trade_id > last_trade_id_ : trade.trade_id == last_trade_id_ + 1;
  if (!follows) {
    throw WireError("trade number " + std::to_string(trade.trade_id) + " behind " +
                    std::to_string(last_trade_id_));
  }
  trades_missed_ = false;
  last_trade_id_ = trade.trade_id;
  SymbolBook& book = books_[trade.symbol];
  book.last_price = trade.price;
  book.volume += trade.size;
  if (keeps_trades_) book.trades.push_back(trade);
}

void BookBuilder::on_level(const LevelUpdate& update) {
  join_event(update.symbol, update.timestamp_ns);
  const std::pair<bool, Price4> change{update.buy, update.price};
  if (event_->last_change && change <= *event_->last_change) {
    throw WireError("level updates of one event out of order at " + describe(DeepMessage(update)));
  }
  event_->last_change = change;
  SymbolBook& book = books_[update.symbol];
  if (update.buy) {
    change_level(book.bids, update);
  } else {
    change_level(book.asks, update);
  }
  if (update.last_of_event) event_.reset();
}

void BookBuilder::begin_image() {
  for (auto& [symbol, book] : books_) {
    book.bids.clear();
    book.asks.clear();
  }
  event_.reset();
  trades_missed_ = true;
}

void BookBuilder::apply_image(const DeepMessage& message) {
  const auto* update = std::get_if<LevelUpdate>(&message);
  if (update == nullptr) return;
  SymbolBook& book = books_[update->symbol];
  if (update->buy) {
    change_level(book.bids, *update);
  } else {
    change_level(book.asks, *update);
  }
}

const SymbolBook& BookBuilder::book(const std::string& symbol) const {
  static const SymbolBook nothing_shown;
  const auto found = books_.find(symbol);
  return found == books_.end() ? nothing_shown : found->second;
}

std::string compare_levels(const std::map<std::string, SymbolBook>& expected,
                           const std::map<std::string, SymbolBook>& actual) {
  static const SymbolBook nothing_shown;
  std::map<std::string, std::pair<const SymbolBook*, const SymbolBook*>> pairs;
  for (const auto& [symbol, book] : expected) pairs[symbol] = {&book, &nothing_shown};
  for (const auto& [symbol, book] : actual) {
    pairs.try_emplace(symbol, &nothing_shown, &book).first->second.second = &book;
  }
  std::string text;
  for (const auto& [symbol, pair] : pairs) {
    const auto& [left, right] = pair;
    if (left->bids != right->bids) {
      text += symbol + " bids: expected" + level_texts(left->bids) + ", actual" +
              level_texts(right->bids) + "\n";
    }
    if (left->asks != right->asks) {
      text += symbol + " asks: expected" + level_texts(left->asks) + ", actual" +
              level_texts(right->asks) + "\n";
    }
  }
  return text;
}

}  // namespace quorl::client
