#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "quorl/client/bytes.h"
#include "tools/replay/feed_sender.h"
#include "tools/replay/gap_fill_service.h"
#include "tools/replay/options.h"
#include "tools/replay/pace.h"
#include "tools/replay/recording.h"
#include "tools/replay/round.h"
#include "tools/replay/snap_service.h"
#include "tools/replay/steps.h"
#include "tools/replay/stream.h"
#include "tools/stop_signal.h"

namespace tools {

/// Sends a recorded feed and answers for it.
class Replayer {
 public:
  struct Counters {
    uint64_t rounds = 0;   // begun
    uint64_t packets = 0;  // sent, heartbeats of the recording included
    uint64_t messages = 0;
    uint64_t dropped = 0;  // packets
  };

  /// All three must outlive the replayer, and the feed has a packet. Throws client::SystemError if
  /// a port or the interface is not to be had: nothing has been sent then.
  Replayer(const ReplayOptions& options, const RecordedFeed& feed, const Stream& stream);

  /// Returns when all rounds are done, the steps or a signal say so. Throws client::SystemError if
  /// the group cannot be sent to.
  void run();

  const Counters& counters() const { return counters_; }
  const std::optional<GapFillService>& gap_fill() const { return gap_fill_; }
  const std::optional<SnapService>& snap() const { return snap_; }
  uint32_t session_of_round(uint64_t round) const;  // counted from 0

 private:
  using Clock = std::chrono::steady_clock;

  bool play(uint64_t round);
  bool step(size_t index);
  void send(const RecordedPacket& packet);
  void stay();
  void wait(std::optional<Clock::time_point> until, bool for_a_step);
  bool wait_until(Clock::time_point moment);

  const ReplayOptions& options_;
  const RecordedFeed& feed_;
  const Stream& stream_;
  StopSignal signal_;
  FeedSender sender_;
  std::optional<GapFillService> gap_fill_;
  std::optional<SnapService> snap_;
  Steps steps_;
  std::unique_ptr<Round> round_;  // the one that is answered for
  uint64_t number_ = 0;           // of the latest packet of this round, without heartbeats
  Counters counters_;
};

}  // namespace tools
