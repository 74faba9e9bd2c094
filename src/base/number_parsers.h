#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The guarded number parsers. The command line and the scenario use std::stoi, std::stoul,
// std::stoull and std::stod unguarded: a malformed number there ends the process. Foreign bytes
// must not, so what arrives on a socket is read by these.

namespace quorl {

/// Base 10 by the rules of std::stoull: leading white space and a sign are accepted, the first
/// other character ends the number. The low 32 bits, or `fallback` for no digit or over 64 bits.
uint32_t low32_or(std::string_view text, uint32_t fallback);

/// The same in its full width; false (and `out` untouched) for no digit or over 64 bits.
bool parse_u64(std::string_view text, uint64_t& out);

/// By the rules of std::stod, hexadecimal floats, infinities and NaN included; 0.0 for text that
/// is no number or out of the range of a double.
double double_or_zero(std::string_view text);

/// The conversion of the C library's strtol in base 10 (0 without a digit, saturating at 64 bits),
/// narrowed to 32 bits.
int32_t narrowed_strtol(std::string_view text);

}  // namespace quorl
