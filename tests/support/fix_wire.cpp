#include "support/fix_wire.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace quorl::test {
namespace {

constexpr char SEPARATOR = '\x01';

std::string with_replaced(std::string_view text, char from, char to) {
  std::string result(text);
  std::replace(result.begin(), result.end(), from, to);
  return result;
}

std::string trailer_of(std::string_view wire_bytes) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "10=%03u", checksum_of(wire_bytes));
  return std::string(text.data()) + SEPARATOR;
}

}  // namespace

std::string wire(std::string_view readable) { return with_replaced(readable, '|', SEPARATOR); }

std::string readable(std::string_view wire) { return with_replaced(wire, SEPARATOR, '|'); }

unsigned checksum_of(std::string_view wire) {
  unsigned sum = 0;
  for (const char c : wire) sum = (sum + static_cast<unsigned char>(c)) % 256;
  return sum;
}

std::string sealed(std::string_view head_and_body) {
  const std::string bytes = wire(head_and_body);
  return bytes + trailer_of(bytes);
}

std::string framed(std::string_view body) {
  const std::string fields = std::string(body) + "|";
  return sealed("8=FIX.4.2|9=" + std::to_string(fields.size()) + "|" + fields);
}

std::vector<std::string> split_messages(std::string_view wire) {
  const std::string head = test::wire("8=FIX.4.2|9=");
  std::vector<std::string> messages;
  while (!wire.empty()) {
    const size_t length_end = wire.find(SEPARATOR, head.size());
    if (!wire.starts_with(head) || length_end == std::string_view::npos) {
      ADD_FAILURE() << "no FIX message begins here: " << readable(wire);
      return messages;
    }
    const std::string length(wire.substr(head.size(), length_end - head.size()));
    const size_t body_end = length_end + 1 + std::stoul(length);
    const size_t end = body_end + 7;
    if (wire.size() < end || wire.substr(body_end, 7) != trailer_of(wire.substr(0, body_end))) {
      ADD_FAILURE() << "a FIX message that does not end where it says: " << readable(wire);
      return messages;
    }
    messages.emplace_back(wire.substr(0, end));
    wire.remove_prefix(end);
  }
  return messages;
}

}  // namespace quorl::test
