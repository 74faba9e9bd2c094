#include "certify/record/exchange_framing.h"

#include <cerrno>
#include <cstdlib>
#include <string>

namespace certify {

std::optional<uint64_t> lenient_u64(std::string_view text) {
  const std::string terminated(text);
  char* end = nullptr;
  errno = 0;
  const uint64_t value = std::strtoull(terminated.c_str(), &end, 10);
  if (end == terminated.c_str() || errno == ERANGE) return std::nullopt;
  return value;
}

int lenient_int(std::string_view text) {
  const std::string terminated(text);
  return static_cast<int32_t>(std::strtol(terminated.c_str(), nullptr, 10));
}

uint8_t checksum_of(std::string_view bytes) {
  uint8_t sum = 0;
  for (const char c : bytes) sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(c));
  return sum;
}

bool has_taken_checksum(std::string_view frame) {
  if (frame.size() < TRAILER_SIZE) return false;
  const std::string_view summed = frame.substr(0, frame.size() - TRAILER_SIZE);
  const std::string_view trailer = frame.substr(summed.size());
  if (!trailer.starts_with(CHECKSUM_PREFIX)) return false;
  return lenient_int(trailer.substr(CHECKSUM_PREFIX.size(), 3)) == checksum_of(summed);
}

}  // namespace certify
