#pragma once

#include "quorl/client/bytes.h"
#include "tools/capture/endpoint.h"

namespace tools {

/// A datagram to a multicast group as a capture on the wire would show it: Ethernet, IPv4 and UDP
/// headers with their lengths and checksums. What a socket does not tell is filled in: no source
/// address on the Ethernet, a time to live of 1 as the exchange sends with, identification 0. A
/// datagram above 1472 bytes stands in one frame all the same, as on the loopback interface. At
/// most 65507 bytes of payload.
quorl::client::Bytes ethernet_frame(const Endpoint& from, const Endpoint& group,
                                    quorl::client::ByteView payload);

/// The Internet checksum, the complement of the ones' complement sum; `sum` is what came before.
uint16_t internet_checksum(quorl::client::ByteView bytes, uint32_t sum = 0);

}  // namespace tools
