#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace quorl {

/// A parsed gap-fill request. Ranges are inclusive, ascending and apart.
struct GapRequest {
  uint8_t kind = 0;  // 1 or 2; only 1 is served
  uint16_t protocol_id = 0;
  uint32_t channel_id = 0;
  uint32_t session_id = 0;
  std::vector<std::pair<uint64_t, uint64_t>> ranges;  // sequence numbers; none asks for the status
};

/// Reads one datagram of any size. False, with `out` in an unspecified state, if it is not well
/// formed: too short for its count of ranges, or with ranges out of order. Bytes behind the last
/// range are ignored.
bool parse_gap_request(const void* data, size_t size, GapRequest& out);

}  // namespace quorl
