#pragma once

#include <string>

#include "certify/record/wire_message.h"

namespace certify {

/// What a message is in an engineer's words, at most 15 characters: "new order", "partial fill",
/// "cancel refused"; "type X" for what FIX 4.2 order entry does not know here.
std::string name_of(const WireMessage& message);

}  // namespace certify
