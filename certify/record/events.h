#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "certify/record/time.h"
#include "certify/record/wire_message.h"
#include "certify/tap/tap_listener.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/snap_client.h"

// What happened in a run, as the judge is told it: in order of time, but for decisions, which come
// in an order of their own up to a second late.

namespace certify {

// --- FIX ---

struct FixOpened {
  uint32_t connection = 0;  // number of its line
  bool reached = true;
};
/// Of the exchange's messages: when the client had it in its socket.
struct FixHeard {
  uint32_t connection = 0;
  Party from = Party::CLIENT;
  WireMessage message = {};
  TimeNs taken = 0;  // when its last byte was read from its sender
  // Its first five bytes, "8=FIX", did not come in one piece: the exchange may have thrown them
  // away, and the message with them.
  bool prefix_split = false;
};
/// Bytes between messages, or the beginning of one that never was completed.
struct FixGarbage {
  uint32_t connection = 0;
  Party from = Party::CLIENT;
  std::string bytes = {};  // at most 200 of them
  uint64_t size = 0;       // all
  bool at_end = false;     // half a message that the end of the connection cut
  // Then: the other party had ended the connection before, or the plan's link did: whoever was
  // sending could not finish.
  bool cut_short = false;
};
struct FixEnded {
  uint32_t connection = 0;
  Party by = Party::CLIENT;
  bool reset = false;
  bool by_link = false;
};

// --- The feed and what stands in for it ---

/// A packet as the judge's own receiver had it, heartbeats included.
struct FeedHeard {
  quorl::client::TpPacket packet = {};
};
/// A packet that the exchange made and that never was heard, or was late, told by its own line.
struct FeedFault {
  enum class Kind : uint8_t { DROPPED, HELD, DOUBLED } kind = Kind::DROPPED;
  uint64_t first_seq = 0;  // as announced
  uint64_t messages = 0;   // 0: not said
};
struct GapRequested {
  uint32_t line = 0;
  bool well_formed = false;                          // else the exchange does not answer
  std::string flaw = {};                             // why not, a sentence
  std::vector<quorl::client::SeqRange> ranges = {};  // none: a question for the status
};
struct GapReplied {
  uint32_t line = 0;
  quorl::client::TpPacket packet = {};  // true numbers; empty: the status
};
struct ImageRequested {
  uint32_t connection = 0;
  bool well_formed = false;
  std::string flaw = {};
  uint64_t minimum_seq = 0;
};
/// The whole reply has been handed to the client.
struct ImageReplied {
  uint32_t connection = 0;
  bool complete = false;  // false: it broke off, or is an error, named in `error`
  char error = 0;         // 'U', 'A', 'C', 'S', 'R', or 0
  uint64_t seq = 0;       // of the image: the last number in it
  uint64_t bytes = 0;     // handed over
  // Not a byte was answered, because the client ended its side or reset first: the exchange then
  // closes without a word.
  bool client_left = false;
};

// --- What was done, decided and said ---

struct Decision {  // a line of the order event file
  quorl::client::OrderEvent order = {};
};
struct Commanded {  // to the control port
  std::string command = {};
  std::string reply = {};
};
struct ExchangeSaid {
  std::string line = {};  // of its standard error
};
struct Counted {
  std::map<std::string, uint64_t> counters = {};  // a reply to `stats`, by the names of plans
};
struct LinkSaid {
  std::string what = {};
};
struct PlanSaid {
  std::string what = {};  // "step 2: disconnect", "end: logons >= 2 and quiet for 2s"
};
/// A mark at which belief files were copied to `folder`.
struct BeliefTaken {
  std::string mark = {};  // empty: the end of the run
  std::string folder =
      {};  // holds positions, events and book files as far as the client has written them
};
struct ClientStarted {};
struct ClientEnded {
  std::string how =
      {};  // "exit status 0", "signal 15", "killed: it did not end within 5 s of SIGTERM"
  bool by_itself = false;
};
/// The run is over: what the client does from here on is its way out, and not judged as trading.
struct Closing {
  std::string why = {};
};

using EventKind =
    std::variant<FixOpened, FixHeard, FixGarbage, FixEnded, FeedHeard, FeedFault, GapRequested,
                 GapReplied, ImageRequested, ImageReplied, Decision, Commanded, ExchangeSaid,
                 Counted, LinkSaid, PlanSaid, BeliefTaken, ClientStarted, ClientEnded, Closing>;

struct Event {
  TimeNs at = 0;
  EventKind what = {};
};

/// Takes events as they happen.
class EventListener {
 public:
  virtual ~EventListener() = default;
  virtual void on_event(const Event& event) = 0;
};

/// One line of timeline.txt without time and line end: "FIX 1 > 35=D|34=2|...", "FIX 1 < 35=8|...",
/// "feed   packet 145 to 148". '>' is the client's way, '<' the exchange's.
std::string describe(const Event& event);
/// "14:03:07.123456", UTC, as in timeline.txt.
std::string time_text(TimeNs at);

}  // namespace certify
