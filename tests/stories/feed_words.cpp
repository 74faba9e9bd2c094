#include "stories/feed_words.h"

#include <variant>

namespace stories {
namespace {

/// At least two decimals: "190.00", "0.9999".
std::string dollars(client::Price4 price) {
  std::string text = client::price_text(price);
  const size_t point = text.find('.');
  if (point == std::string::npos) return text + ".00";
  return text.size() - point == 2 ? text + "0" : text;
}

std::string quantity(uint32_t size, client::Price4 price) {
  return std::to_string(size) + " @ " + dollars(price);
}

}  // namespace

std::string words_of(const client::DeepMessage& message, bool with_symbol, bool with_id) {
  const std::string symbol = with_symbol ? client::symbol_of(message) + " " : "";
  if (const auto* const level = std::get_if<client::LevelUpdate>(&message)) {
    return symbol + (level->buy ? "8 " : "5 ") + quantity(level->size, level->price) +
           (level->last_of_event ? " last" : "");
  }
  if (const auto* const trade = std::get_if<client::TradeReport>(&message)) {
    return symbol + "T " + quantity(trade->size, trade->price) +
           (with_id ? " id " + std::to_string(trade->trade_id) : "");
  }
  return client::describe(message);
}

}  // namespace stories
