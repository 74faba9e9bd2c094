#include "tools/capture/coverage.h"

#include <algorithm>
#include <iterator>

namespace tools {

void Coverage::packet(const quorl::client::TpHeader& header) {
  uint64_t begin = header.stream_offset;
  uint64_t end = begin + header.payload_length;  // a heartbeat: a stretch of no length
  auto at = heard_.upper_bound(begin);
  if (at != heard_.begin() && std::prev(at)->second >= begin) --at;
  while (at != heard_.end() && at->first <= end) {
    begin = std::min(begin, at->first);
    end = std::max(end, at->second);
    at = heard_.erase(at);
  }
  heard_.emplace(begin, end);
}

uint64_t Coverage::holes() const { return heard_.empty() ? 0 : heard_.size() - 1; }

uint64_t Coverage::missing_bytes() const {
  uint64_t missing = 0;
  for (auto at = heard_.begin(); at != heard_.end(); ++at) {
    const auto next = std::next(at);
    if (next != heard_.end()) missing += next->first - at->second;
  }
  return missing;
}

}  // namespace tools
