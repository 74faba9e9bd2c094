#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "quorl/client/bytes.h"
#include "tools/replay/market.h"
#include "tools/replay/position.h"
#include "tools/replay/recording.h"
#include "tools/replay/stream.h"

namespace tools {

/// The market behind message `seq`, as an image shows it.
struct MarketImage {
  uint64_t seq = 0;
  uint64_t next_offset = 0;  // where the stream goes on
  uint64_t time_ns = 0;      // of the recording
  std::vector<quorl::client::Bytes> messages;
};

/// One pass through a recording, under one session: how far it has come, and what those who ask
/// may be told.
class Round {
 public:
  /// The stream must outlive the round.
  Round(const Stream& stream, uint32_t session);

  /// The packet goes out, or is dropped.
  void pass(const RecordedPacket& packet) { position_.pass(packet); }

  /// The packet's bytes under the round's session. Nothing else changes.
  quorl::client::Bytes wire_bytes(const RecordedPacket& packet) const;

  /// A heartbeat of the present position, `later_ns` behind the latest packet.
  quorl::client::Bytes heartbeat(uint64_t later_ns) const;

  /// The image at the present position, or, if that lies inside an event, at the event's end: the
  /// exchange's images stand between events too. Not at the start.
  MarketImage image();

  uint32_t session() const { return session_; }
  const Stream& stream() const { return stream_; }
  const Position& position() const { return position_; }

 private:
  void apply_next();

  const Stream& stream_;
  uint32_t session_;
  Position position_;
  Market market_;
  size_t applied_ = 0;  // messages of the stream that the market has taken
};

}  // namespace tools
