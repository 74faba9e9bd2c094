#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tools {

constexpr uint64_t NS_PER_S = 1'000'000'000;

/// "10s", "500ms", "2m", "1.5h"; a number alone is seconds. Nothing if the text is none of these,
/// negative, or above a year.
std::optional<std::chrono::nanoseconds> parse_span(const std::string& text);

}  // namespace tools
