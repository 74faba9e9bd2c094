#pragma once

#include <cstdint>
#include <string>

#include "quorl/client/deep.h"
#include "quorl/client/fix_message.h"

namespace certify::trader {

/// A number of shares. Throws WireError if it is none.
uint32_t share_field(const quorl::client::FixMessage& report, int tag);
/// A price as the exchange writes it, "190.05". Throws WireError if it is none.
quorl::client::Price4 price_field(const quorl::client::FixMessage& report, int tag);

/// The line of the order event file that tells the same as an ExecutionReport or an
/// OrderCancelReject, with a line end. `now_ns`: its time, since the Unix epoch.
std::string event_line(const quorl::client::FixMessage& report, int64_t now_ns);

}  // namespace certify::trader
