#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fix/fix_fields.h"
#include "fix/fix_text.h"
#include "fix/receive_buffer.h"

namespace quorl {

/// Takes the next complete frame with a valid checksum out of `buffer` into `frame`. False when no
/// further whole frame can be had now. Garbage, frames with a bad length and frames with a bad
/// checksum are dropped without a word. Call it until it returns false.
bool extract_frame(ReceiveBuffer& buffer, std::string& frame);

/// Splits a frame into its fields; stops at the first piece that is not "tag=value" SOH. `frame`
/// must outlive the result.
FixFieldMap parse_fields(const std::string& frame);
FixFieldMap parse_fields(std::string&& frame) = delete;

/// The whole wire message: head, the session's fields, `header_fields`, `body_fields`, trailer.
/// SendingTime is read from the clock here.
std::string compose_message(std::string_view msg_type, uint32_t seq, std::string_view sender,
                            std::string_view target, const FixFieldList& body_fields,
                            const FixFieldList& header_fields);

}  // namespace quorl
