#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fix/fix_fields.h"
#include "fix/fix_text.h"
#include "fix/outbox.h"
#include "fix/receive_buffer.h"

namespace quorl {

/// Takes the next complete frame with a valid checksum out of `buffer` into `frame`. False when no
/// further whole frame can be had now. Garbage, frames with a bad length and frames with a bad
/// checksum are dropped without a word. Call it until it returns false.
bool extract_frame(ReceiveBuffer& buffer, std::string& frame);

/// Splits a frame into its fields, in place of what `fields` held; stops at the first piece that is
/// not "tag=value" SOH. The frame must outlive the fields.
void parse_fields(std::string_view frame, FixFieldMap& fields);

/// Adds the whole wire message to `out`: head, the session's fields, `header_fields`,
/// `body_fields`, trailer. Both are fields as they stand on the wire, "tag=value" SOH. SendingTime
/// is read from the clock here.
void compose_message(std::string_view msg_type, uint32_t seq, std::string_view sender,
                     std::string_view target, std::string_view body_fields,
                     std::string_view header_fields, Outbox& out);

}  // namespace quorl
