#pragma once

#include <string>

#include "quorl/client/stats_text.h"

namespace tools {

/// The counters behind the reply to `stats`. Throws WireError if that is no such reply.
quorl::client::ControlStats stats_of_reply(const std::string& reply);

/// One JSON object on one line, without a line end: the 18 counters and next_seq by name, "faults"
/// with sent, dropped, duplicated and reordered, and session_up.
std::string stats_as_json(const quorl::client::ControlStats& stats);

/// All counters that are not 0, next_seq and the session, on one line.
std::string standing(const quorl::client::ControlStats& now, bool coloured);

/// What is not as it was, from what to what and by how much; "nothing moved" if all is.
/// If next_seq has fallen, which it never does within a run, "another run" and where that stands.
std::string moved(const quorl::client::ControlStats& before, const quorl::client::ControlStats& now,
                  bool coloured);

}  // namespace tools
