#pragma once

#include <string>

#include "certify/checks/session_view.h"
#include "certify/record/events.h"

namespace certify {

/// A D, F or G from the client that the exchange takes for a message. What it drops for its length
/// or its checksum is no order, and session.frames tells of it.
bool is_order_message(const FixHeard& heard);

/// The same, and no repetition of an earlier one by the client's own word (43=Y or 97=Y).
bool is_fresh_order_message(const FixHeard& heard);

/// The same, as long as the run has not begun to close: how the client leaves is not judged.
bool is_judged(const FixHeard& heard, const SessionView& sessions);

/// The client's CompID of a message either way: by the connection's Logon, else by the message.
const std::string& comp_of(const SessionView& sessions, const FixHeard& heard);

/// "14:03:07.123456  FIX 1 > 35=D|34=12|...", for evidence.
std::string evidence_of(const Event& event);

}  // namespace certify
