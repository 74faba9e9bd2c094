#pragma once

#include <optional>
#include <string>

#include "certify/record/events.h"

namespace certify {

/// What a line of the exchange's standard error says was done to a packet of the feed; nothing if
/// it is about something else.
std::optional<FeedFault> feed_fault_in(const std::string& line);

}  // namespace certify
