#include "quorl/client/stream_index.h"

#include <algorithm>
#include <string>
#include <vector>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

struct Narrowing {
  uint64_t offset;
  uint64_t low;
  uint64_t high;
};

uint64_t sum_or_most(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }

/// Numbers begin at 1.
uint64_t difference_or_one(uint64_t a, uint64_t b) { return a <= b ? 1 : a - b; }

}  // namespace

void StreamIndex::anchor(uint64_t offset, uint64_t seq) { narrow(offset, seq, seq); }

void StreamIndex::packet(uint64_t offset, uint64_t end_offset, uint64_t announced_seq,
                         uint64_t count) {
  Node& begin = nodes_[offset];
  if (begin.count_ahead && (*begin.count_ahead != count || begin.end_ahead != end_offset)) {
    throw WireError("two different packets at stream offset " + std::to_string(offset));
  }
  begin.count_ahead = count;
  begin.end_ahead = end_offset;
  Node& end = nodes_[end_offset];
  end.count_behind = count;
  end.begin_behind = offset;
  narrow(offset, std::max<uint64_t>(announced_seq, 2) - 1, announced_seq);
  // What was known of either end before this packet joined them has to pass through it once.
  const Node from_begin = nodes_[offset];
  narrow(end_offset, sum_or_most(from_begin.low, count), sum_or_most(from_begin.high, count));
  const Node from_end = nodes_[end_offset];
  narrow(offset, difference_or_one(from_end.low, count),
         from_end.high == UINT64_MAX ? UINT64_MAX : from_end.high - count);
}

std::optional<uint64_t> StreamIndex::seq_at(uint64_t offset) const {
  const auto found = nodes_.find(offset);
  if (found == nodes_.end() || found->second.low != found->second.high) return std::nullopt;
  return found->second.low;
}

void StreamIndex::narrow(uint64_t offset, uint64_t low, uint64_t high) {
  std::vector<Narrowing> work{{offset, low, high}};
  while (!work.empty()) {
    const Narrowing now = work.back();
    work.pop_back();
    Node& node = nodes_[now.offset];
    const uint64_t new_low = std::max(node.low, now.low);
    const uint64_t new_high = std::min(node.high, now.high);
    if (new_low > new_high) {
      throw WireError("stream offset " + std::to_string(now.offset) + " should begin number " +
                      std::to_string(node.low) + ".." + std::to_string(node.high) +
                      ", yet what arrived says " + std::to_string(now.low) + ".." +
                      std::to_string(now.high));
    }
    if (new_low == node.low && new_high == node.high) continue;
    node.low = new_low;
    node.high = new_high;
    if (node.count_ahead) {
      work.push_back({node.end_ahead, sum_or_most(new_low, *node.count_ahead),
                      sum_or_most(new_high, *node.count_ahead)});
    }
    if (node.count_behind && new_high != UINT64_MAX) {
      if (new_high <= *node.count_behind) {
        throw WireError("a packet at stream offset " + std::to_string(node.begin_behind) +
                        " would begin below number 1");
      }
      work.push_back({node.begin_behind, difference_or_one(new_low, *node.count_behind),
                      new_high - *node.count_behind});
    }
  }
}

}  // namespace quorl::client
