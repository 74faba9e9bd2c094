#pragma once

#include <optional>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/gap_fill_client.h"
#include "tools/replay/position.h"
#include "tools/replay/stream.h"

namespace tools {

/// What a gap-fill datagram asks for; nothing if it breaks a rule or asks for another session, and
/// so gets no answer. No ranges: it asks for the status.
std::optional<std::vector<quorl::client::SeqRange>> read_gap_fill_request(
    quorl::client::ByteView datagram, uint32_t session);

/// The packets that answer it, in order: at most 1000 messages, of the latest 400000 that lie
/// before the position. Each range is answered from the first message at hand to the first that the
/// recording lacks. Before the first packet of a replay nothing is answered, not even for the
/// status.
std::vector<quorl::client::Bytes> answer_gap_fill(
    const std::vector<quorl::client::SeqRange>& ranges, const Stream& stream,
    const Position& position, uint32_t session);

}  // namespace tools
