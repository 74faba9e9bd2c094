#pragma once

#include <string>

#include "quorl/client/fix_message.h"

namespace quorl::client {

/// Holds a message of the exchange to the layout of its type (35=8, 9, A, 0, 2, 3, 4, 5): which
/// fields, in which order, which of them only together, the form of every value, sender IEXG and
/// target `comp_id`. Throws WireError, quoting the message.
void check_layout(const FixMessage& message, const std::string& comp_id);

/// A price or an average as the exchange writes it: at most four decimals, no trailing zeros, "0",
/// "190", "190.5", "-3.25".
bool is_price_text(const std::string& text);

}  // namespace quorl::client
