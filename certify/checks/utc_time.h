#pragma once

#include <optional>
#include <string_view>

#include "certify/record/time.h"

namespace certify {

/// A UTCTimestamp of FIX 4.2: "20261121-12:17:15" or "20261121-12:17:15.929".
struct UtcTime {
  TimeNs at = 0;  // since the Unix epoch
  bool milliseconds = false;
};

/// Nothing if it has another form or names no real day or time.
std::optional<UtcTime> read_utc_time(std::string_view text);

}  // namespace certify
