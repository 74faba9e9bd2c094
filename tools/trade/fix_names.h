#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "quorl/client/fix_message.h"

namespace tools {

/// "MsgType=ExecutionReport|OrdStatus=Filled|" for "35=8|39=2|" on the wire (SOH between the
/// fields). A tag or value without a name stays as it is, and so does what is no field.
std::string explained(std::string_view bytes);

/// Fields as a user writes them, "35=8|OrdStatus=Filled": numbers or the names above, on both
/// sides. Nothing if a field has no '=' or a tag that is neither a number above 0 nor a name; then
/// `complaint` tells which.
std::optional<quorl::client::FixFields> read_fields(std::string_view text_with_bars,
                                                    std::string& complaint);

}  // namespace tools
