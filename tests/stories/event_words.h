#pragma once

#include <string>

#include "quorl/client/json_lines.h"

namespace client = quorl::client;

namespace stories {

/// A line of the order event file in a story's words, all of it but its time:
/// `fill a1 oid 1042 AAPL S 300 @ 190 cum 300 leaves 0 last 300 ""`, with ` ref r1` behind the text
/// if there is one, and "-" for a symbol and a side that are blank.
std::string words_of(const client::OrderEvent& event);

}  // namespace stories
