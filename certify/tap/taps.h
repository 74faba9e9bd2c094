#pragma once

#include <poll.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "certify/record/time.h"
#include "certify/tap/link_order.h"
#include "certify/tap/tap_listener.h"

namespace certify {

/// The three services of one exchange, on 127.0.0.1.
struct ServicePorts {
  uint16_t fix = 0;       // TCP
  uint16_t images = 0;    // TCP
  uint16_t gap_fill = 0;  // UDP
};

/// Relays between a client and an exchange that change nothing: half frames, resets and half closes
/// pass as they come, a side that does not read is not read for, so that pressure is felt through.
/// Driven by the caller's loop: collect, poll until due(), serve. Nothing blocks and nothing throws
/// but the constructor. At most 256 kB of each direction of a connection are held here. Two
/// descriptors for each connection: where these run out, connections wait, which is told once.
///
/// What no relay can hide: the client is connected before the exchange is asked, so that a refusal
/// comes to it as a reset; and that a gap-fill port is closed is not told to it.
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

  /// At the plan's word (link_order.h); a text with a flaw is ignored, it should have been checked.
  void order_link(std::string_view text, TimeNs now);

  /// All connections are ended by resets and told so as by the link, with what is on its way lost;
  /// nothing is listened to any more.
  void close();

  /// What the taps have added to a piece or datagram: from its arrival, as the kernel stamped it,
  /// to its handing over, the caller's own work between two serves included. Without what the link
  /// was told to add, what the receiver did not take and what came before there was a connection.
  struct Delay {
    TimeNs median = 0;  // to one part in 16
    TimeNs most = 0;
  };
  Delay delay() const;

 private:
  struct Parts;
  ServicePorts ports_;
  std::unique_ptr<Parts> parts_;
};

}  // namespace certify
