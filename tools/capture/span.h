#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <optional>
#include <string>

namespace tools {

/// "10s", "500ms", "2m", "1.5h"; a number alone is seconds. Nothing if the text is none of these,
/// negative, or above a year.
std::optional<std::chrono::nanoseconds> parse_span(const std::string& text);

/// An option whose value is such a text.
CLI::Option* add_span(CLI::App& app, const std::string& names,
                      std::optional<std::chrono::nanoseconds>& span, const std::string& what);

}  // namespace tools
