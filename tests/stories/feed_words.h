#pragma once

#include <string>

#include "quorl/client/deep.h"

namespace client = quorl::client;

namespace stories {

/// A message of the feed in a story's words: "5 300 @ 190.00 last", "T 300 @ 190.00 id 7",
/// "H AAPL"; ahead of a level update or a trade its symbol, if asked for.
std::string words_of(const client::DeepMessage& message, bool with_symbol, bool with_id);

}  // namespace stories
