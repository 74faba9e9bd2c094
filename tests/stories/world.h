#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quorl/client/deep.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/stats_text.h"
#include "stories/story.h"

namespace client = quorl::client;

namespace stories {

/// One thing done to the exchange.
struct Act {
  Kind kind = Kind::SEND;       // CONNECT, DISCONNECT, RESET, RAW, CONTROL
  std::string connection = {};  // of the first four
  std::string bytes = {};       // of the last two
};

/// An exchange that runs and the other ends of its wires: in memory, or the real program. It passes
/// on what comes as it comes and judges nothing.
class World {
 public:
  virtual ~World() = default;

  /// Does all this for one turn of the exchange and returns when it has acted upon it, and when all
  /// that has come of it can be taken below.
  virtual void act(const std::vector<Act>& acts) = 0;
  /// Lets time pass; likewise.
  virtual void pass(uint64_t ms) = 0;

  // What has come since it was last taken. With `wait`, if nothing has come: waits for something,
  // as long as that can be on its way.
  virtual std::string take_bytes(const std::string& connection, bool wait) = 0;
  virtual bool closed(const std::string& connection, bool wait) = 0;  // by the exchange
  virtual std::vector<std::string> take_replies() = 0;                // of the control port
  virtual std::vector<client::DeepMessage> take_feed(bool wait) = 0;
  virtual std::vector<std::string> take_lines() = 0;  // of standard error, without periodic ones
  virtual std::vector<client::OrderEvent> take_events() = 0;

  virtual client::ControlStats stats() = 0;

  /// The story is over: the clients close their ends, and whatever is still on its way to them
  /// comes ahead of the exchange's own close.
  virtual void end() = 0;

  /// Time passes by itself, not in pass() alone. Then a stray Heartbeat may come behind the report
  /// of a fill, when the steady clock's milliseconds change within a turn.
  virtual bool time_passes() const = 0;
};

/// Lines that come by the clock alone.
inline bool is_periodic(const std::string& line) {
  return line.starts_with("bench: stats ") || line.starts_with("[quorl] deep msgs ") ||
         line.starts_with("quorl faults: ");
}

}  // namespace stories
