#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "certify/record/time.h"

namespace certify {

enum class Party : uint8_t { CLIENT, EXCHANGE };
constexpr size_t index_of(Party party) { return static_cast<size_t>(party); }

enum class Service : uint8_t { FIX, IMAGES, GAP_FILL };

/// One way through a tap: a TCP connection of the client, or for gap fill one socket of it, known
/// by its port. Numbered from 1 within each service, in order of their coming.
struct Line {
  Service service = Service::FIX;
  uint32_t number = 0;
  bool operator==(const Line&) const = default;
};

/// Bytes on their way. What the client sends is told when the tap has taken it; what the exchange
/// sends is told when it has been handed to the client's socket, which is when the client can know
/// it. Of a stream a piece of any size, of gap fill one whole datagram.
struct Passed {
  Line line;
  Party from = Party::CLIENT;
  std::string_view bytes;  // good during the call
  TimeNs taken = 0;        // read from the sender
  TimeNs told = 0;  // now: the same for the client's, the time of handing over for the exchange's
};

/// The end of one direction of a stream: the client's when the tap has noticed it, the exchange's
/// when it has been passed on. A reset ends both directions and is told once, of who sent it; it
/// may follow that party's orderly end. There is none of gap fill.
struct Ended {
  Line line;
  Party by = Party::CLIENT;  // whose sending has ended
  bool reset = false;        // else an orderly end of stream
  bool by_link = false;      // the link was cut, or the taps closed: neither did it; a reset, `by`
                             // says nothing
  uint64_t lost = 0;         // bytes of the exchange that were taken and never handed over
  TimeNs at = 0;
};

/// Hears what passes a tap, in order of time. Calls come from within Tap's own functions and must
/// not call back.
class TapListener {
 public:
  virtual ~TapListener() = default;
  /// `reached` false: nobody took the connection on the exchange's side; the client's is reset.
  virtual void on_opened(Line line, bool reached, TimeNs at) = 0;
  virtual void on_passed(const Passed& passed) = 0;
  virtual void on_ended(const Ended& ended) = 0;
  /// The tap and the link at the plan's word: "FIX 2: stalled for 5 s", "gap fill: reply delayed by
  /// 83 ms".
  virtual void on_link(std::string_view what, TimeNs at) = 0;
};

}  // namespace certify
