#pragma once

#include <string>
#include <string_view>
#include <vector>

// FIX as bytes, for tests of the gateway. Composed, sealed and split here by code that shares
// nothing with the exchange's own.

namespace quorl::test {

/// '|' becomes SOH: "35=0|34=2|".
std::string wire(std::string_view readable);
/// SOH becomes '|'.
std::string readable(std::string_view wire);

/// Sum of all bytes, unsigned, modulo 256.
unsigned checksum_of(std::string_view wire);

/// `head_and_body` (readable, with its "8=" and "9=" as they stand) and the right CheckSum field
/// behind it.
std::string sealed(std::string_view head_and_body);

/// A whole frame around "35=0|34=2": head with the right BodyLength, the fields, the CheckSum.
std::string framed(std::string_view body);

/// What came from the exchange, message by message, by their BodyLengths. Fails the test for bytes
/// that are not a run of whole messages with right CheckSums.
std::vector<std::string> split_messages(std::string_view wire);

}  // namespace quorl::test
