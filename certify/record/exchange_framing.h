#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace certify {

// How the exchange finds a message in what it has received, docs/fix.md "Framing".

constexpr char FIX_SEPARATOR = '\x01';
constexpr std::string_view FIX_PREFIX = "8=FIX";
constexpr std::string_view LENGTH_PREFIX =
    "\x01"
    "9=";
constexpr std::string_view CHECKSUM_PREFIX = "10=";
constexpr size_t TRAILER_SIZE = 7;  // "10=", three digits, the separator

/// A number as the exchange reads it: white space and a sign may lead, rubbish may trail. Nothing
/// if there is no digit or it is out of range.
std::optional<uint64_t> lenient_u64(std::string_view text);

/// The same for tags and checksums, which fall to 0.
int lenient_int(std::string_view text);

/// The sum of the bytes modulo 256.
uint8_t checksum_of(std::string_view bytes);

/// Whether a frame of the right size ends with a CheckSum that the exchange takes: it reads up to
/// three digits and does not look at the last byte.
bool has_taken_checksum(std::string_view frame);

}  // namespace certify
