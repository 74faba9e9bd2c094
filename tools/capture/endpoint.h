#pragma once

#include <netinet/in.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace tools {

/// One end of a UDP conversation, or a multicast group and its port.
struct Endpoint {
  uint32_t address = 0;  // in the machine's byte order: 127.0.0.1 is 0x7f000001
  uint16_t port = 0;

  auto operator<=>(const Endpoint&) const = default;
};

/// "233.54.26.111:25477".
std::string text_of(const Endpoint& endpoint);

/// The opposite; nothing if the text is no dotted quad, a colon and a port of 1 to 65535.
std::optional<Endpoint> parse_endpoint(const std::string& text);

/// `address` is a dotted quad. Throws std::invalid_argument if it is none.
Endpoint endpoint_of(const std::string& address, uint16_t port);

Endpoint endpoint_of(const sockaddr_in& address);
sockaddr_in socket_address(const Endpoint& endpoint);

}  // namespace tools
