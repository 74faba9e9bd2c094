#pragma once

#include <cstdint>
#include <string>

namespace quorl::client {

/// Where one simulator talks. UDP: feed, gap_fill, control. TCP: snap, fix.
struct Ports {
  std::string group;
  uint16_t feed = 0;
  uint16_t snap = 0;
  uint16_t gap_fill = 0;
  uint16_t fix = 0;
  uint16_t control = 0;
};

/// A block of ports and a multicast group that no other test process uses while this object lives:
/// the simulator shares its UDP ports with SO_REUSEADDR, so two runs on one port would not fail but
/// mix. The claim is a socket name that dies with the process, however it ends.
class PortSlot {
 public:
  /// Claims a slot all of whose ports are free right now. Throws SystemError if there is none.
  PortSlot();

  PortSlot(const PortSlot&) = delete;
  PortSlot& operator=(const PortSlot&) = delete;
  ~PortSlot();

  const Ports& ports() const { return ports_; }

 private:
  bool claim(unsigned number);

  int claim_fd_ = -1;
  Ports ports_;
};

/// A port that nobody listens on or is bound to at this moment.
bool tcp_port_is_free(uint16_t port);
bool udp_port_is_free(uint16_t port);

}  // namespace quorl::client
