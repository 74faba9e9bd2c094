#include "certify/trader/habits.h"

namespace certify::trader {

std::unique_ptr<MarketView> Habits::follow_market(const quorl::client::Ports& ports) {
  return market_by_feed(ports);
}

}  // namespace certify::trader
