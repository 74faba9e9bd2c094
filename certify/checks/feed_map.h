#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "certify/record/time.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/iex_tp.h"

namespace certify {

/// What is known of a message's number: it is one of low to high, both inclusive. On the multicast
/// feed the announced number is true or one too high, so they are mostly one apart at most.
struct SeqBounds {
  uint64_t low = 0;
  uint64_t high = 0;
};

/// A stretch of the feed that has not come, between two that have.
struct FeedHole {
  uint64_t offset = 0;  // where it begins
  uint64_t end_offset = 0;
  SeqBounds first;  // number missing
  SeqBounds last;
  TimeNs shown = 0;  // when something behind it came
};

/// Which messages of a feed have come. Keeps places by stream offset, which is always true, and
/// narrows their numbers down with all that comes. Memory grows with the holes, not the messages.
class FeedMap {
 public:
  /// A packet of the multicast feed; a heartbeat shows how far the feed has come, and its number is
  /// true. Returns how many messages are new.
  uint64_t heard(const quorl::client::TpPacket& packet, TimeNs at);
  /// A packet of gap fill, whose numbers are true. One without messages says nothing here: its
  /// number counts messages that no packet has taken along yet.
  uint64_t filled(const quorl::client::TpPacket& packet, TimeNs at);

  /// Those that nobody has settled, in order.
  std::vector<FeedHole> holes() const;
  /// Of the hole that ends at this offset nothing is told any more.
  void settle(uint64_t end_offset);

  /// Which of these numbers have certainly come, leaving one aside at each end of what has come,
  /// because an announced number can mislead by one. The lowest stretch of them, or nothing.
  std::optional<quorl::client::SeqRange> certainly_there(
      const quorl::client::SeqRange& range) const;

  /// The least number that the next message can have; 1 if nothing has come.
  uint64_t next_number() const;
  size_t stretches() const { return runs_.size(); }
  void clear();

 private:
  struct Run {  // messages without a hole between them
    uint64_t end_offset = 0;
    uint64_t count = 0;
    SeqBounds first;
    TimeNs shown = 0;      // the hole ahead of it
    bool settled = false;  // that hole
  };
  using Runs = std::map<uint64_t, Run>;  // by the offset of their beginning

  uint64_t add(const quorl::client::TpPacket& packet, SeqBounds first, TimeNs at);
  void add_piece(uint64_t offset, Run piece);
  void forget_what_is_settled();
  void forget_first();

  Runs runs_;
  uint64_t forgotten_ = 0;  // nothing below this offset is kept
};

}  // namespace certify
