#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "quorl/client/recovering_subscriber.h"

namespace ladder {

/// How well the feed is followed.
enum class FeedState {
  WAITING,     // nothing has been heard
  JOINING,     // packets come; a place among them is being sought
  IN_STEP,     // everything known to have been sent is shown
  RECOVERING,  // something is missing and being fetched
};

struct Health {
  FeedState state = FeedState::WAITING;
  std::optional<uint32_t> session = {};
  uint64_t next_seq = 0;                                        // of the next message to be shown
  quorl::client::RecoveringSubscriber::Counters counters = {};  // of this session
  std::optional<std::chrono::steady_clock::time_point> last_heard = {};
  unsigned sessions = 0;     // followed so far, this one included
  std::string trouble = {};  // why following began anew, or cannot begin; empty if all is well
};

/// A heartbeat is due every second: after this much without a packet the exchange is gone, or the
/// way from it.
constexpr std::chrono::milliseconds SILENCE{2500};

/// Packets have come, but none within SILENCE.
bool is_silent(const Health& health, std::chrono::steady_clock::time_point now);

/// "IN STEP", "RECOVERING", "SILENT 12 s": what is the matter, in a word.
std::string state_text(const Health& health, std::chrono::steady_clock::time_point now);

/// Of two subscribers, one behind the other, on the same session.
quorl::client::RecoveringSubscriber::Counters sum(
    const quorl::client::RecoveringSubscriber::Counters& a,
    const quorl::client::RecoveringSubscriber::Counters& b);

}  // namespace ladder
