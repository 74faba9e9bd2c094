#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/deep.h"

namespace quorl::client {

using BidLevels = std::map<Price4, uint32_t, std::greater<>>;  // best first
using AskLevels = std::map<Price4, uint32_t>;                  // best first

struct SymbolBook {
  BidLevels bids;
  AskLevels asks;
  Price4 last_price = 0;  // 0 until the first trade
  uint64_t volume = 0;
  std::vector<TradeReport> trades;  // all, unless the builder was told not to keep them
};

/// Rebuilds the shown book from DEEP messages and holds the feed to its word: within one event all
/// messages carry one symbol and one timestamp, trades come before level updates, level updates run
/// through the sell side and then the buy side, each by rising price, and each changes what is
/// shown. Trade numbers rise by one. Throws WireError otherwise.
class BookBuilder {
 public:
  /// `keeps_trades` false: SymbolBook::trades stays empty, so that a run without end needs no
  /// memory without end.
  explicit BookBuilder(bool keeps_trades = true) : keeps_trades_(keeps_trades) {}

  void apply(const DeepMessage& message);

  /// Starts over from an image, whose level updates are each an event of their own. Trades and
  /// volume so far are kept; what the image jumps over is missing from them.
  void begin_image();
  void apply_image(const DeepMessage& message);

  /// No event is open: the book is what the exchange shows.
  bool consistent() const { return !event_.has_value(); }

  /// The symbol's book; an empty one if nothing has been shown for it.
  const SymbolBook& book(const std::string& symbol) const;
  const std::map<std::string, SymbolBook>& books() const { return books_; }

  uint64_t last_trade_id() const { return last_trade_id_; }

 private:
  struct OpenEvent {
    std::string symbol;
    uint64_t timestamp_ns = 0;
    std::optional<std::pair<bool, Price4>> last_change;  // side and price, once updates have begun
  };

  void on_trade(const TradeReport& trade);
  void on_level(const LevelUpdate& update);
  void join_event(const std::string& symbol, uint64_t timestamp_ns);

  bool keeps_trades_;
  std::map<std::string, SymbolBook> books_;
  std::optional<OpenEvent> event_;
  uint64_t last_trade_id_ = 0;
  bool trades_missed_ = false;  // behind an image the next trade's number is not known
};

/// What differs between two books' levels, one line each; empty if they are equal.
std::string compare_levels(const std::map<std::string, SymbolBook>& expected,
                           const std::map<std::string, SymbolBook>& actual);

}  // namespace quorl::client
