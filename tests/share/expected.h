#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/deep.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/iex_tp.h"
#include "tests/share/tshark.h"

namespace client = quorl::client;

namespace share {

/// What the dissector must show of things that the client library has decoded, item by item. An
/// empty label stands for any.
using Items = std::vector<Shown>;

Items items_of(const client::TpHeader& header);

/// A block with its length. `seq` and `stream_offset` as far as the dissector can know them.
Items items_of(const client::DeepMessage& message, std::optional<uint64_t> seq,
               std::optional<uint64_t> stream_offset);

/// Bytes of a message of that type.
uint16_t size_of(const client::DeepMessage& message);

void append(Items& items, const Items& more);

/// Empty if the two agree, else the first difference.
std::string difference(const Items& expected, const std::vector<Shown>& shown);

}  // namespace share
