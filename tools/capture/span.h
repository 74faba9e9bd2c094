#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tools {

/// "10s", "500ms", "2m", "1.5h"; a number alone is seconds. Nothing if the text is none of these,
/// negative, or above a year.
std::optional<std::chrono::nanoseconds> parse_span(const std::string& text);

}  // namespace tools
