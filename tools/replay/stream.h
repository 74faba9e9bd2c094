#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "quorl/client/bytes.h"
#include "tools/replay/recording.h"

namespace tools {

/// A message at its place in the stream.
struct StreamMessage {
  uint64_t seq = 0;               // the true number
  uint64_t stream_offset = 0;     // of its block
  quorl::client::ByteView bytes;  // without the length prefix

  uint64_t end_offset() const { return stream_offset + bytes.size() + 2; }
};

/// What a recording knows of the stream: every message once, in order, with its true number,
/// whatever order the packets have in the capture and however often they come.
class Stream {
 public:
  /// The feed must outlive the stream, and stay as it is. Throws client::WireError if its packets
  /// contradict each other.
  explicit Stream(const RecordedFeed& feed);

  const std::vector<StreamMessage>& messages() const { return messages_; }

  /// The number of messages that lie before a stream offset.
  size_t count_before(uint64_t stream_offset) const;

  /// The true number of the message at which one of the feed's packets begins, or of the next one,
  /// for a heartbeat.
  uint64_t first_seq(const RecordedPacket& packet) const;

  /// Whether message `index` + 1 follows on from message `index`.
  bool follows_on(size_t index) const {
    return messages_[index + 1].stream_offset == messages_[index].end_offset();
  }

  bool begins_with_the_run() const { return !messages_.empty() && messages_.front().seq == 1; }

 private:
  std::vector<StreamMessage> messages_;
};

}  // namespace tools
