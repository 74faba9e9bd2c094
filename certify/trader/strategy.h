#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "certify/trader/market_view.h"
#include "certify/trader/moment.h"
#include "certify/trader/order_desk.h"
#include "certify/trader/session.h"

namespace certify::trader {

struct StrategyOptions {
  std::vector<std::string> symbols{"AAPL"};
  double rate = 5;                 // messages a second, orders, cancels and replaces together
  std::optional<uint64_t> orders;  // no more new ones; nothing: without end
};

/// What the trader sends: by turns market orders, limits at the touch, limits far away, immediate
/// ones; and each that rests is cancelled after a while, or replaced, in its place or across the
/// market. No two orders running are the same, so none repeats one that was refused.
class Strategy {
 public:
  Strategy(StrategyOptions options, Session& session, OrderDesk& desk, std::string prefix);

  /// Sends what is due, at most one message. `market` tells the prices as far as it can; without
  /// one the fills do.
  void act(const MarketView& market, Moment now);
  /// When act() has something to do.
  Moment next_due() const { return next_at_; }

  /// All orders that were wanted have been sent, and none is open.
  bool done() const;

  /// A ClOrdID that nobody has: "mi8r2k4x-12".
  std::string fresh_name();
  // One message each, whatever is due.
  void send(const Order& order, Moment now);
  void cancel(Order& order, Moment now);
  /// `quantity`: those executed included.
  void replace(Order& order, uint32_t quantity, quorl::client::Price4 price, Moment now);

 private:
  bool placing() const;
  Touch touch_of(const MarketView& market, const std::string& symbol) const;
  void place(const MarketView& market, Moment now);
  Order next_order(const MarketView& market, Moment now);
  Order* due_order(Moment now);
  void touch(Order& order, const MarketView& market, Moment now);
  void replace(Order& order, const MarketView& market, Moment now);

  StrategyOptions options_;
  Session& session_;
  OrderDesk& desk_;
  std::string prefix_;
  uint64_t placed_ = 0;
  uint64_t names_ = 0;
  bool touched_last_ = false;
  Moment next_at_{};
};

}  // namespace certify::trader
