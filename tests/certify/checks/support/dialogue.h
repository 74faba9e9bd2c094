#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "certify/record/events.h"

namespace certify {

/// Events of a run, made by hand. Each is a millisecond behind the one before; wait() lets time
/// pass. Messages are written "35=D|34=2|11=o1": 8, 9, 10 are put around them, and 49, 56 and 52
/// behind 35, unless the text names these itself; "52=-" leaves one out.
class Dialogue {
 public:
  /// The next connection, on which everything then is said.
  Dialogue& connects(bool reached = true);
  /// Goes on with an older one.
  Dialogue& on(uint32_t connection);
  /// The SenderCompID from here on; at first TRADER.
  Dialogue& as(std::string comp_id);

  Dialogue& client(std::string_view text);
  Dialogue& exchange(std::string_view text);
  /// As it stands, '|' for the separator; one frame, good or not.
  Dialogue& client_frame(std::string_view text);
  Dialogue& client_garbage(std::string_view bytes, bool at_end = false);

  Dialogue& closes();           // the client, in order
  Dialogue& resets();           // the client
  Dialogue& exchange_closes();  // in order
  Dialogue& cut();              // by the link
  Dialogue& wait(std::chrono::milliseconds time);
  /// Any other event, now.
  Dialogue& happens(EventKind what);

  /// Connects, logs on with 34=`number` and is answered with 34=`answer`.
  Dialogue& logs_on(uint64_t number = 1, uint64_t answer = 1, unsigned heartbeat_s = 30);

  TimeNs now() const { return now_; }
  /// Now and some time from it, as 52 has it: "20261121-12:17:15.929".
  std::string fix_time(std::chrono::milliseconds from_now = {}) const;
  const std::vector<Event>& events() const { return events_; }

 private:
  Dialogue& hears(Party from, std::string frame);
  Dialogue& ends(Party by, bool reset, bool by_link);

  // 2026-11-21 12:00:00 UTC
  TimeNs now_ = 1'795'262'400 * SECOND;
  uint32_t connection_ = 0;  // in use
  uint32_t connections_ = 0;
  std::string comp_id_ = "TRADER";
  std::vector<Event> events_;
};

/// A frame of these fields, '|' for the separator, with 8, 9 and 10 around them.
std::string framed(std::string_view fields);

}  // namespace certify
