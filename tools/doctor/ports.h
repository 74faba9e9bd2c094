#pragma once

#include <cstdint>
#include <string>

#include "tools/doctor/finding.h"

namespace tools::doctor {

struct Start;

/// What the exchange will meet when it binds a port, as it does, with SO_REUSEADDR.
struct PortUse {
  enum Kind {
    FREE,
    SHARED,   // bound by another that shares it: UDP alone
    REFUSED,  // by `error`
  };
  Kind kind = FREE;
  int error = 0;        // errno
  std::string by = {};  // who has it, in words; empty if nobody has
};

// Each binds for a moment at most, listens never, and takes nobody's datagrams.
PortUse look_at_tcp_port(uint16_t port);
/// `address` in host byte order: INADDR_ANY or INADDR_LOOPBACK.
PortUse look_at_udp_port(uint32_t address, uint16_t port);

// Rules.
Findings ports_of_zero(const Start& start);
Findings ports_used_twice(const Start& start);
Findings taken_tcp_ports(const Start& start);
Findings taken_udp_ports(const Start& start);

}  // namespace tools::doctor
