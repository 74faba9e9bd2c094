#pragma once

#include <string>
#include <vector>

#include "certify/checks/order_view.h"

namespace certify {

/// What is wrong with the fields of a D, F or G, a sentence each. `order`: what 41 of a replace
/// names; null if it is not known.
std::vector<std::string> flaws_of_order_fields(const WireMessage& message,
                                               const ViewedOrder* order);

}  // namespace certify
