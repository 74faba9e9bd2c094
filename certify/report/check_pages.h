#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

namespace certify {

/// All checks by group, each with its meaning, folded to `width` columns; 0: not folded.
void write_check_list(size_t width, std::ostream& out);

/// What docs/certify.md says of a check, its heading included; nothing if there is no such check.
std::optional<std::string> page_of_check(std::string_view check);

}  // namespace certify
