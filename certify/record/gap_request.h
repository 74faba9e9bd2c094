#pragma once

#include <cstdint>

#include "certify/record/events.h"
#include "quorl/client/bytes.h"

namespace certify {

/// A datagram to the gap-fill port, judged as the exchange judges it, docs/gap-fill.md. `line` is
/// left to the caller.
GapRequested read_gap_request(quorl::client::ByteView datagram, uint32_t session);

}  // namespace certify
