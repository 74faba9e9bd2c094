#pragma once

#include <poll.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "certify/record/time.h"
#include "certify/tap/tap_listener.h"

namespace certify {

/// The three services of one exchange, on 127.0.0.1.
struct ServicePorts {
  uint16_t fix = 0;       // TCP
  uint16_t images = 0;    // TCP
  uint16_t gap_fill = 0;  // UDP
};

/// What a plan can do to the link, said in one line: "delay 80ms jitter 20ms", "stall 5s", "trickle
/// 1", "cut", "clear", each optionally followed by "fix", "images", "gapfill" (any of them; default
/// all) and by "to exchange" or "to client" (default both ways).
struct LinkOrder;
/// What is wrong with it, or nothing: a sentence that names the word.
std::optional<std::string> flaw_of_link_order(std::string_view text);

/// Relays between a client and an exchange that change nothing: half frames, resets and half closes
/// pass as they come, a side that does not read is not read for, so that pressure is felt through.
/// Driven by the caller's loop: collect, poll, serve. Nothing blocks and nothing throws but the
/// constructor.
class Taps {
 public:
  /// Listens on ports of its own; those given as not 0 are taken as they are. Throws
  /// quorl::client::SystemError if one cannot be had. `seed` decides the jitter.
  Taps(const ServicePorts& exchange, const ServicePorts& wanted, TapListener& listener,
       uint64_t seed);
  ~Taps();
  Taps(const Taps&) = delete;
  Taps& operator=(const Taps&) = delete;

  const ServicePorts& ports() const { return ports_; }

  /// Appends what to wait for.
  void collect(std::vector<pollfd>& set) const;
  /// When serve() is due even if nothing is ready: a delayed piece, the end of a stall.
  std::optional<TimeNs> due() const;
  /// Moves what can be moved.
  void serve(TimeNs now);

  /// At the plan's word; the text has been checked.
  void order_link(std::string_view text, TimeNs now);

  /// All connections are ended, with what is on its way lost.
  void close();

  /// What the taps have added to a piece or datagram, from reading to handing over, without what
  /// the link was told to add and what the receiver did not take.
  struct Delay {
    TimeNs median = 0;
    TimeNs most = 0;
  };
  Delay delay() const;

 private:
  struct Parts;
  ServicePorts ports_;
  std::unique_ptr<Parts> parts_;
};

}  // namespace certify
