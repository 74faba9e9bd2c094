#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "feed/fault_plan.h"
#include "feed/tp_header.h"

namespace quorl {

constexpr size_t MAX_RETAINED_MESSAGES = 400000;

/// One message kept for gap fill.
struct RetainedMessage {
  uint64_t seq = 0;
  uint64_t stream_offset = 0;  // where the message's block begins in the stream
  std::vector<uint8_t> bytes;  // the message without its 2-byte length
};

/// Numbers each DEEP message, packs messages into IEX-TP packets, sends them on the multicast
/// group and keeps the latest messages for gap fill. Owns both UDP sockets of the feed. Results of
/// sends and of socket options are not looked at.
class TpPublisher {
 public:
  /// `group` and `interface_address` are dotted quads; a bad one leaves the zero address.
  /// `gap_port` 0 means no gap fill; so does a port that cannot be bound, which is said on
  /// standard error.
  TpPublisher(const std::string& group, uint16_t port, const std::string& interface_address,
              uint16_t gap_port, uint32_t session_id);
  ~TpPublisher();
  TpPublisher(const TpPublisher&) = delete;
  TpPublisher& operator=(const TpPublisher&) = delete;

  /// Numbers, retains and packs one message; sends the packet under assembly first if the message
  /// does not fit. One that fits no packet at all is numbered and retained and never sent.
  void append(const void* message, size_t size);

  /// Stamps and sends the packet under assembly, faults permitting. Does not test for emptiness:
  /// the caller has seen that header.message_count is not 0.
  void flush();
  /// flush() if a message waits.
  void flush_if_pending();
  /// flush() if a message waits and a batch of message blocks of this size would not fit behind it.
  void flush_unless_fits(size_t batch_size);

  /// Sends the header-only packet that says the feed is alive, outside the faults and the counts.
  /// What waits in the packet under assembly is flushed ahead of it.
  void send_heartbeat();

  /// Answers every gap-fill request that waits. Does nothing without a gap-fill socket.
  void serve_gap_fill();

  /// The stream position at which the next block would begin.
  uint64_t next_block_offset() const { return stream_offset + fill - TP_HEADER_SIZE; }

  int fd = -1;      // sends to the group; stays blocking
  int gap_fd = -1;  // -1 if there is no gap fill
  sockaddr_in dest{};
  uint32_t session_id = 0;
  TpHeader header;                    // of the packet under assembly
  std::array<uint8_t, 65536> packet;  // header space, then blocks; only `limit` bytes are used
  uint64_t fill = TP_HEADER_SIZE;     // bytes used in `packet`, header included
  uint64_t limit = MAX_PACKET_SIZE;
  uint64_t next_seq = 1;
  uint64_t stream_offset = 0;  // payload bytes of all flushed packets
  uint64_t messages = 0;       // given to append
  uint64_t packets = 0;        // flushed, dropped ones too; numbers the packets for the faults
  uint64_t dropped = 0;        // by fault
  uint64_t duplicated = 0;     // by fault
  uint64_t reordered = 0;      // by fault
  uint64_t last_flush_ms = 0;  // steady clock, of the last flush or heartbeat
  uint64_t gap_requests = 0;   // valid ones
  uint64_t gap_messages = 0;   // replayed
  uint64_t gap_rejects = 0;    // refused datagrams
  FaultPlan faults;
  std::vector<uint8_t> held;             // packet held back by a fault; empty when none is
  std::deque<RetainedMessage> retained;  // consecutive seq, oldest first

 private:
  bool fits(size_t size) const;
  void place(const void* message, size_t size);
  void stamp();
  void carry_out(const PacketFate& fate);
  void begin_packet();
  void replay(uint64_t first, uint64_t last, uint64_t& budget, const sockaddr_in& to);
  void answer_gap_request(const uint8_t* datagram, size_t size, const sockaddr_in& from);
};

}  // namespace quorl
