#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace certify {

/// One line for a reader: bytes that are no printable ASCII as "\x01", and no more than `most`
/// characters, the last three of them dots if something was cut off.
std::string visible(std::string_view bytes, size_t most);

}  // namespace certify
