#include "certify/run/feed_fault.h"

#include <cinttypes>
#include <cstdio>

namespace certify {

std::optional<FeedFault> feed_fault_in(const std::string& line) {
  const char* const text = line.c_str();
  uint64_t seq = 0;
  uint64_t packet = 0;
  uint64_t messages = 0;
  const int read =
      std::sscanf(text, "quorl fault: dropped seq %" SCNu64 " (packet %" SCNu64 ", %" SCNu64 " me",
                  &seq, &packet, &messages);
  if (read == 3) {
    return FeedFault{.kind = FeedFault::Kind::DROPPED, .first_seq = seq, .messages = messages};
  }
  if (std::sscanf(text, "quorl fault: duplicated seq %" SCNu64, &seq) == 1) {
    return FeedFault{.kind = FeedFault::Kind::DOUBLED, .first_seq = seq};
  }
  if (std::sscanf(text, "quorl fault: reordered seq %" SCNu64, &seq) == 1) {
    return FeedFault{.kind = FeedFault::Kind::HELD, .first_seq = seq};
  }
  return std::nullopt;
}

}  // namespace certify
