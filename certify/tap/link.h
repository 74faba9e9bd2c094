#pragma once

#include <cstdint>
#include <optional>
#include <random>

#include "certify/record/time.h"
#include "certify/tap/link_order.h"

namespace certify {

/// What the plan has made of the link of one service in one direction. Plain at first.
class Link {
 public:
  /// Everything but a cut both ways, which is a deed and no state.
  void order(const LinkOrder& order, TimeNs now);

  bool plain(TimeNs now) const;
  /// Nothing goes on at this moment: a stall, or this way is cut.
  bool holds(TimeNs now) const { return cut_ || now < stalled_until_; }
  /// When it will go on again; nothing if only an order can make it.
  std::optional<TimeNs> holds_until() const;
  /// This way is cut: datagrams are lost.
  bool loses() const { return cut_; }
  uint32_t trickle() const { return trickle_; }  // bytes at a time, 0: no limit

  /// For the next piece, with its jitter.
  TimeNs draw_delay(std::mt19937_64& random) const;

  /// When a stall ends that has not been said to have ended.
  std::optional<TimeNs> stall_end() const;
  /// A stall has ended since the last call that said so.
  bool stall_just_ended(TimeNs now);

 private:
  TimeNs delay_ = 0;
  TimeNs jitter_ = 0;
  TimeNs stalled_until_ = 0;
  uint32_t trickle_ = 0;
  bool cut_ = false;
  bool stalling_ = false;
};

/// Both directions of one service.
struct Links {
  std::optional<TimeNs> stall_end() const;  // the earlier one
  bool stall_just_ended(TimeNs now);        // either

  Link to_exchange;
  Link to_client;
};

}  // namespace certify
