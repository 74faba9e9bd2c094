#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace certify {

/// The text as a person may see it and XML may hold it: control characters, marks that turn the
/// direction of writing and bytes that are no UTF-8 are shown as \x1b. A line end is one of them.
std::string clean_text(std::string_view text);

/// Columns that clean text takes, one for each character.
size_t columns_of(std::string_view utf8);

/// Clean text cut to `width` columns, the last of which then shows "…"; 0: not cut.
std::string cut_to(std::string_view utf8, size_t width);

/// Clean text in lines of at most `width` columns, each behind `indent` blanks, broken at blanks
/// only; 0: one line. Without a line end behind the last.
std::string fold(std::string_view utf8, size_t width, size_t indent);

}  // namespace certify
