#pragma once

#include <cstdint>
#include <map>
#include <optional>

namespace quorl::client {

/// Finds the true sequence numbers of a feed. The stream offset of a packet is always true, its
/// announced first number is true or one too high. Each stream offset at which a message begins has
/// one true number; this index keeps what is known of it, and narrows it down with every packet.
class StreamIndex {
 public:
  /// The block at `offset` has the number `seq`, without doubt: the beginning of the run, a
  /// heartbeat, a gap-fill reply, an image.
  void anchor(uint64_t offset, uint64_t seq);

  /// A packet of the feed whose blocks lie from `offset` to `end_offset`. Throws WireError if its
  /// announced number is neither true nor one too high.
  void packet(uint64_t offset, uint64_t end_offset, uint64_t announced_seq, uint64_t count);

  /// The true number of the block at `offset`, if packets or anchors that touch it settle it.
  std::optional<uint64_t> seq_at(uint64_t offset) const;

 private:
  struct Node {
    uint64_t low = 1;
    uint64_t high = UINT64_MAX;
    std::optional<uint64_t> count_ahead;   // messages of the packet that begins here
    uint64_t end_ahead = 0;                // and where it ends
    std::optional<uint64_t> count_behind;  // messages of the packet that ends here
    uint64_t begin_behind = 0;             // and where it begins
  };

  void narrow(uint64_t offset, uint64_t low, uint64_t high);

  std::map<uint64_t, Node> nodes_;  // by stream offset
};

}  // namespace quorl::client
