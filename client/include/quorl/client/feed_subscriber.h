#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"
#include "quorl/client/deep.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/multicast_receiver.h"
#include "quorl/client/stream_index.h"

namespace quorl::client {

struct FeedPacket {
  RawPacket raw;
  TpPacket packet;
};

struct FeedMessage {
  size_t packet = 0;           // index into packets()
  uint64_t stream_offset = 0;  // of its block
  uint64_t seq = 0;            // true number; 0 while a hole leaves it in doubt
  Bytes bytes;
  DeepMessage message;
};

/// Records the feed as it comes: every packet and every message, duplicates too, in order of
/// arrival, each decoded strictly. It does not repair anything: see RecoveringSubscriber for that.
class FeedSubscriber {
 public:
  FeedSubscriber(const std::string& group, uint16_t port);

  /// Names the run's session. Packets of others ahead of its first are passed over (a run that
  /// failed to get its ports and was started again); behind it they are errors. Without this call
  /// the first packet sets the session. Throws WireError if it has set another one.
  void expect_session(uint32_t session);

  /// Takes over what has arrived. Returns the number of new packets. Throws WireError on the first
  /// bad one.
  size_t pump();

  /// Pumps until `done()`, at most until the deadline. Returns whether it is done.
  bool wait_until(const std::function<bool()>& done, std::chrono::milliseconds patience = PATIENCE);

  /// As above; throws Timeout naming `sought`.
  void await(const std::function<bool()>& done, const std::string& sought,
             std::chrono::milliseconds patience = PATIENCE);

  /// Waits until the message with this true sequence number has come.
  void await_seq(uint64_t seq, std::chrono::milliseconds patience = PATIENCE);

  /// Index of the first message at or after index `from` that satisfies `wanted`; throws Timeout.
  size_t await_message(const std::function<bool(const DeepMessage&)>& wanted,
                       const std::string& sought, size_t from = 0,
                       std::chrono::milliseconds patience = PATIENCE);

  /// Waits for a heartbeat that arrives after this call and returns its index in packets().
  size_t await_heartbeat(std::chrono::milliseconds patience = PATIENCE);

  const std::vector<FeedPacket>& packets() const { return packets_; }  // heartbeats included
  const std::vector<FeedMessage>& messages() const { return messages_; }

  /// Descriptions of the messages from index `from` on, one per line of describe().
  std::vector<std::string> described(size_t from = 0) const;

  /// The highest true sequence number seen so far; 0 if none.
  uint64_t last_seq() const { return last_seq_; }

  /// The true number of the packet's first message (of the next message, for a heartbeat).
  std::optional<uint64_t> true_first_seq(const FeedPacket& packet) const;

 private:
  void record(RawPacket raw);
  void settle_numbers();

  MulticastReceiver receiver_;
  std::optional<uint32_t> session_;
  std::vector<RawPacket> early_;  // taken from the receiver, not yet decoded
  std::vector<FeedPacket> packets_;
  std::vector<FeedMessage> messages_;
  std::vector<size_t> unsettled_;  // messages whose number is in doubt
  StreamIndex index_;
  uint64_t last_seq_ = 0;
};

}  // namespace quorl::client
