#pragma once

#include <string>

#include "market/records.h"

namespace quorl {
struct Engine;
}

namespace quorl::test {

/// What cannot be right in the books and the table of orders between two events, whatever the
/// market went through: levels out of order, a bid above an offer, a size that is not that of its
/// orders or not what the feed has said, an order in no queue or in a wrong one. Empty if all is
/// well. For a market without clients' orders, whose every price is in whole cents.
std::string nonsense_in(const Engine& engine);

/// The first price of the books that lies outside these two, as text. Empty if none does.
std::string price_outside(const Engine& engine, Price4 lowest, Price4 highest);

}  // namespace quorl::test
