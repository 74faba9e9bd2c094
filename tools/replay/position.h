#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/replay/stream.h"

namespace tools {

/// How far a replay has come: what its services may know of. A dropped packet counts as sent, as
/// with the exchange.
class Position {
 public:
  explicit Position(const Stream& stream) : stream_(stream) {}

  /// Behind this packet of the stream's feed, unless further already.
  void pass(const RecordedPacket& packet);

  bool at_the_start() const { return next_seq_ == 0; }
  size_t messages() const { return messages_; }    // of the stream, that lie behind us
  uint64_t next_seq() const { return next_seq_; }  // 0 at the start
  uint64_t next_offset() const { return next_offset_; }
  uint64_t time_ns() const { return time_ns_; }  // the latest send time; 0 at the start

 private:
  const Stream& stream_;
  size_t messages_ = 0;
  uint64_t next_seq_ = 0;
  uint64_t next_offset_ = 0;
  uint64_t time_ns_ = 0;
};

}  // namespace tools
