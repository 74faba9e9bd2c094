#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/message_log.h"
#include "base/sockets.h"
#include "feed/fault_plan.h"
#include "feed/tp_packet.h"

namespace quorl {

constexpr size_t MAX_RETAINED_MESSAGES = 400000;

/// One message kept for gap fill; the bytes are borrowed.
struct RetainedMessage {
  uint64_t stream_offset = 0;  // where the message's block begins in the stream
  std::string_view bytes;      // the message without its 2-byte length
};

/// What the publisher has done. Raised only, never reset.
struct FeedCounts {
  uint64_t messages = 0;    // given to append
  uint64_t packets = 0;     // flushed, dropped ones too; numbers the packets for the faults
  uint64_t dropped = 0;     // by fault, as the next two
  uint64_t duplicated = 0;  // sent twice
  uint64_t reordered = 0;   // held back
};

/// Numbers each DEEP message, packs messages into IEX-TP packets, sends them on the multicast
/// group and keeps the latest messages for gap fill. Owns the socket that sends. Results of sends
/// and of socket options are not looked at.
class TpPublisher {
 public:
  /// `group` and `interface_address` are dotted quads; a bad one leaves the zero address.
  TpPublisher(const std::string& group, uint16_t port, const std::string& interface_address,
              uint32_t session_id);
  TpPublisher(const TpPublisher&) = delete;
  TpPublisher& operator=(const TpPublisher&) = delete;

  /// Numbers, retains and packs one message; sends the packet under assembly first if the message
  /// does not fit. One that fits no packet at all is numbered and retained and never sent.
  void append(const void* message, size_t size);

  /// Stamps and sends the packet under assembly, faults permitting. Does not test for emptiness:
  /// the caller has seen that a message waits.
  void flush();
  /// flush() if a message waits.
  void flush_if_pending();
  /// flush() if a message waits and a batch of message blocks of this size would not fit behind it.
  void flush_unless_fits(size_t batch_size);

  /// Sends the header-only packet that says the feed is alive, outside the faults and the counts.
  /// What waits in the packet under assembly is flushed ahead of it.
  void send_heartbeat();

  uint32_t session_id() const { return session_id_; }
  /// The sequence number that the next message will get; the first one is 1.
  uint64_t next_seq() const { return next_seq_; }
  /// The last sequence number given out, 0 before the first.
  uint64_t last_seq() const { return next_seq_ - 1; }
  /// Payload bytes of all flushed packets.
  uint64_t stream_offset() const { return stream_offset_; }
  /// The stream position at which the next block would begin.
  uint64_t next_block_offset() const { return stream_offset_ + packet_.payload_size(); }
  /// Messages in the packet under assembly.
  uint16_t pending() const { return packet_.message_count(); }
  /// Steady clock, of the last flush or heartbeat; 0 before the first.
  uint64_t last_flush_ms() const { return last_flush_ms_; }
  const FeedCounts& counts() const { return counts_; }

  /// The oldest message that is still kept; next_seq() if none is.
  uint64_t oldest_retained_seq() const { return next_seq_ - retained_.size(); }
  /// Good until the next append. REQUIRES: oldest_retained_seq() <= seq < next_seq().
  RetainedMessage retained(uint64_t seq) const;

  FaultPlan faults;  // set and changed from outside at any time

 private:
  void carry_out(const PacketFate& fate, std::span<const uint8_t> packet);
  void send(std::span<const uint8_t> packet) const;

  const uint32_t session_id_;
  const OwnedSocket socket_;  // stays blocking
  sockaddr_in group_{};
  TpPacket packet_;  // under assembly
  uint64_t next_seq_ = 1;
  uint64_t stream_offset_ = 0;
  uint64_t last_flush_ms_ = 0;
  FeedCounts counts_;
  std::vector<uint8_t> held_;      // packet held back by a fault; empty when none is
  MessageLog<uint64_t> retained_;  // each with its stream offset; the last one is last_seq()
};

}  // namespace quorl
