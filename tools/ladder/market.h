#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/deep.h"
#include "quorl/client/snap_client.h"
#include "tools/ladder/price_line.h"

namespace ladder {

/// The direction of a trade by the tick rule: against the last different price before it.
enum class Tick { NONE, UP, DOWN };

struct Trade {
  uint64_t timestamp_ns = 0;
  quorl::client::Price4 price = 0;
  uint32_t size = 0;  // shares
  Tick tick = Tick::NONE;
};

/// What is shown of one symbol.
struct SymbolState {
  static constexpr size_t TRADES_KEPT = 64;

  quorl::client::BidLevels bids;
  quorl::client::AskLevels asks;
  std::deque<Trade> trades;  // the latest first, at most TRADES_KEPT
  uint64_t volume = 0;       // shares, of the trades heard of
  PriceLine line;

  /// Best offer less best bid; nothing while a side is empty.
  std::optional<quorl::client::Price4> spread() const;
};

/// The market as the feed tells of it. Its memory is bounded by what rests, not by what has
/// happened. It stands still between calls, so give it whole events: see Follower.
class Market {
 public:
  void apply(const quorl::client::DeepMessage& message);

  /// The levels begin anew with the image. Trades and volume stay as they are, without those that
  /// the image jumps over.
  void apply_image(const quorl::client::SnapImage& image);

  /// In the order in which the feed listed them.
  const std::vector<std::string>& symbols() const { return symbols_; }
  /// Null for a symbol that the feed has not named.
  const SymbolState* find(const std::string& symbol) const;

  /// The feed's time of the first message or image: trades and volume count from then on. 0 while
  /// there is none.
  uint64_t since_ns() const { return since_ns_; }

 private:
  SymbolState& state_of(const std::string& symbol);
  void on_level(const quorl::client::LevelUpdate& update);
  void on_trade(const quorl::client::TradeReport& trade);

  std::vector<std::string> symbols_;
  std::map<std::string, SymbolState> states_;
  uint64_t since_ns_ = 0;
};

}  // namespace ladder
