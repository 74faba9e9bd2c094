#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"
#include "quorl/client/deep.h"
#include "quorl/client/port_slot.h"

namespace certify::trader {

/// The best prices of a symbol; both sides are there.
struct Touch {
  quorl::client::Price4 bid = 0;
  quorl::client::Price4 ask = 0;
};

/// What a trader sees of the market. As it stands: nothing.
class MarketView {
 public:
  virtual ~MarketView() = default;
  virtual std::optional<Touch> touch(const std::string& symbol) const;
  /// Waits until all that is known to have been sent has been taken. False at the deadline.
  virtual bool await_in_step(quorl::client::Deadline deadline) const;
  /// In the format of the exchange's book file; empty while nothing is known.
  virtual std::string book_text() const;
  /// What is to be said of how the feed is followed, or the empty text.
  virtual std::string trouble() const;
};

/// The market by its feed, on a thread of its own: the repair of the feed waits for answers, and
/// the orders do not wait for it.
std::unique_ptr<MarketView> market_by_feed(const quorl::client::Ports& ports);

}  // namespace certify::trader
