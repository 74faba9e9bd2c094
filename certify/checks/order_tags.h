#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "certify/checks/order_view.h"

namespace certify {

/// What is wrong with the fields of a D, F or G, a sentence each. `order`: what 41 of a replace
/// names; null if it is not known.
std::vector<std::string> flaws_of_order_fields(const WireMessage& message,
                                               const ViewedOrder* order);

/// An OrderQty (38) of good form: a whole number from 1 to 10000000 in plain digits, with or
/// without zeros behind a point; nothing for any other.
std::optional<uint64_t> shares_of(const std::string& text);

}  // namespace certify
