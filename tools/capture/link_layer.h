#pragma once

#include <optional>
#include <string>

#include "quorl/client/bytes.h"

namespace tools {

/// Whether ip_packet() can look into frames of this link type (libpcap's DLT_ number): Ethernet,
/// Linux cooked v1 and v2, raw IP, BSD null and loopback.
bool is_readable_link(int link_type);

/// What the readable link types are, for a complaint.
std::string readable_links();

/// The IPv4 packet that a captured frame carries, perhaps with padding behind it, behind any number
/// of VLAN tags; nothing if it carries something else or is cut before the packet begins.
std::optional<quorl::client::ByteView> ip_packet(int link_type, quorl::client::ByteView frame);

}  // namespace tools
