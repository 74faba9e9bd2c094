#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/iex_tp.h"

namespace tools {

/// A number of which only the bounds are known; settled when they meet. Both bounds are included.
struct Between {
  uint64_t low = 0;
  uint64_t high = 0;

  bool settled() const { return low == high; }
  std::string text() const;  // "8", "7 or 8", "7 to 12"
};

/// "1 message", "8 messages".
std::string counted(uint64_t count, const std::string& noun);
std::string counted(const Between& count, const std::string& noun);

/// What has come since the start, over all sessions.
struct FeedCounts {
  uint64_t packets = 0;     // all that are IEX-TP, heartbeats too
  uint64_t heartbeats = 0;  // of these
  uint64_t messages = 0;    // duplicates too
  uint64_t gaps = 0;        // times that a packet came too early
  uint64_t duplicates = 0;
  uint64_t out_of_order = 0;
  uint64_t sessions = 0;
};

/// What a packet says about the stream, given all packets before it.
struct Judgement {
  std::vector<std::string> findings;  // a line each; none for a packet in its place
  std::optional<uint64_t> first_seq;  // true number of its first message, if that is settled
};

/// Follows the packets of a feed in the order of their arrival. The stream offset is what tells a
/// gap: it is always true, while the announced first number may be one too high, which is no gap.
/// Each session is followed for itself, so that two exchanges on one group are not taken for gaps.
/// What is kept is bounded: of sessions the latest 16 begun, of gaps the latest 4096 of each; a
/// packet that comes later than that is called a duplicate.
class FeedTracker {
 public:
  Judgement follow(const quorl::client::TpPacket& packet);

  const FeedCounts& counts() const { return counts_; }
  /// Messages in gaps that nothing has filled.
  Between missing() const;

 private:
  struct Gap {
    uint64_t begin;  // stream offsets
    uint64_t end;
    Between first;     // number of its first message
    Between messages;  // how many
  };
  struct Stream {
    uint64_t first_offset = 0;      // where we came in
    uint64_t next_offset = 0;       // behind the furthest packet
    Between next_seq;               // number of the message there
    std::deque<Gap> gaps;           // nothing has filled them; in order of their discovery
    Between forgotten;              // messages of gaps that are no longer kept
    bool shares_the_group = false;  // that has been said
  };

  Stream& stream_of(uint32_t session, std::vector<std::string>& findings);
  void come_in(Stream& stream, const quorl::client::TpPacket& packet);
  Judgement in_its_place(Stream& stream, const quorl::client::TpPacket& packet);
  Judgement too_early(Stream& stream, const quorl::client::TpPacket& packet);
  Judgement too_late(Stream& stream, const quorl::client::TpPacket& packet);
  void fill(Stream& stream, size_t index, const quorl::client::TpPacket& packet);

  std::map<uint32_t, Stream> streams_;
  std::deque<uint32_t> begun_;  // their keys, the oldest first
  std::optional<uint32_t> latest_session_;
  FeedCounts counts_;
};

}  // namespace tools
