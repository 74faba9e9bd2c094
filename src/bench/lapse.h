#pragma once

#include <cstdint>

namespace quorl {

/// A silence of the FIX side, of all its sessions together: while it lasts nothing is sent to any
/// client but the Logout of a refused Logon. Market data goes on. Every question reads the steady
/// clock afresh, once there has been a lapse at all.
class Lapse {
 public:
  /// From now on for `ms`, in place of one that runs, and to be announced anew; 0 ends the one that
  /// runs.
  void start(uint64_t ms);

  bool is_silent() const;

  /// Whether the line that announces it is still to be said: true once for each start, if anyone
  /// asks while it lasts.
  bool announce_once();

  /// Steady clock: when it ends, or has ended; 0 before the first one.
  uint64_t until_ms() const { return until_ms_; }

 private:
  uint64_t until_ms_ = 0;
  bool announced_ = false;
};

}  // namespace quorl
