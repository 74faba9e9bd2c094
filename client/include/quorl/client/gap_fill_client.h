#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/udp.h"

namespace quorl::client {

struct SeqRange {
  uint64_t first = 0;
  uint64_t last = 0;  // inclusive
};

/// A request datagram; every field can be wrong.
struct GapFillRequest {
  uint8_t version = 1;
  uint8_t kind = 1;
  uint16_t protocol_id = DEEP_PROTOCOL_ID;
  uint32_t channel_id = DEEP_CHANNEL_ID;
  uint32_t session_id = 0;
  std::vector<SeqRange> ranges = {};
  std::optional<uint32_t> range_count = {};  // in place of the number of ranges
  Bytes trailing = {};                       // behind the last range
};
Bytes encode(const GapFillRequest& request);

/// What one request brought.
struct GapFillAnswer {
  std::vector<TpPacket> packets;           // in order of arrival, without the closing status packet
  std::map<uint64_t, TpMessage> messages;  // by true sequence number
  uint64_t next_seq = 0;                   // of the status packet
  uint64_t stream_offset = 0;              // of the status packet
};

/// Asks for lost messages from one socket.
class GapFillClient {
 public:
  GapFillClient(uint16_t port, uint32_t session);

  /// Sends the request and behind it a status query, whose empty packet ends the answer, so nothing
  /// has to be timed. (The query counts as a request of its own in the simulator's "gapfill".)
  /// Replies are held to the request: only numbers of its ranges, ascending, at most 1000, offsets
  /// that follow on from each other, packets as full as they can be. Throws WireError, and Timeout
  /// if the status packet does not come.
  GapFillAnswer fetch(const std::vector<SeqRange>& ranges,
                      std::chrono::milliseconds patience = PATIENCE);

  /// All of first to last that the history still holds, by as many requests as it takes.
  std::map<uint64_t, TpMessage> fetch_all(uint64_t first, uint64_t last,
                                          std::chrono::milliseconds patience = PATIENCE);

  /// The packets that come in answer to these bytes, up to the answer of a status query sent behind
  /// them: nothing else may come if the bytes are to be refused.
  GapFillAnswer fetch_raw(ByteView request, std::chrono::milliseconds patience = PATIENCE);

  /// Only the status query.
  GapFillAnswer status(std::chrono::milliseconds patience = PATIENCE);

  void send(ByteView datagram);
  std::optional<TpPacket> receive(std::chrono::milliseconds patience);

  uint32_t session() const { return session_; }

 private:
  GapFillAnswer collect(Deadline deadline);

  uint16_t port_;
  uint32_t session_;
  UdpSocket socket_;
};

}  // namespace quorl::client
