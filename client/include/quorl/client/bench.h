#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorl/client/control_client.h"
#include "quorl/client/feed_subscriber.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/simulator.h"
#include "quorl/client/snap_client.h"

namespace quorl::client {

/// A running simulator with a subscriber that has been there since its first packet, and the other
/// ends at hand: what most tests begin with.
class Bench {
 public:
  /// Starts the simulator; the options must leave it its ports and its control port.
  explicit Bench(SimulatorOptions options);

  Simulator& simulator() { return simulator_; }
  FeedSubscriber& feed() { return feed_; }
  ControlClient& control() { return control_; }
  const Ports& ports() const { return simulator_.ports(); }
  uint32_t session() const { return simulator_.session(); }

  /// A session that has logged on with next numbers 1.
  std::unique_ptr<FixSession> logs_on(const std::string& comp_id, const LogonOptions& options = {});

  GapFillClient gap_fill() const { return {ports().gap_fill, session()}; }
  SnapClient snap() const { return {ports().snap, session()}; }

 private:
  Simulator simulator_;
  FeedSubscriber feed_;
  ControlClient control_;
};

}  // namespace quorl::client
