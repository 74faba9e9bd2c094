#pragma once

#include <string>

#include "certify/record/events.h"

namespace certify {

/// A line of evidence, as it stands in timeline.txt: time, then what happened.
std::string quoted(const Event& event);

/// "1.25 s", "30 s", cut to milliseconds.
std::string seconds_text(TimeNs time);

/// "35=D|34=7", or "35=D without a number": to name a message within a sentence.
std::string name_in_text(const WireMessage& message);

}  // namespace certify
