#pragma once

#include <optional>

#include "quorl/client/bytes.h"
#include "tools/replay/round.h"

namespace tools {

/// The first frame of what a connection has sent, its length included, once it is whole. One of
/// length 0 never is.
std::optional<quorl::client::ByteView> whole_frame(quorl::client::ByteView inbound);

/// What is sent back for a request frame.
struct SnapAnswer {
  quorl::client::Bytes bytes;
  char error = 0;            // the code of a refusal; 0: it is an image
  uint64_t seq = 0;          // of the image
  uint64_t minimum_seq = 0;  // that was asked for
};

/// `frame` is whole. The image is the round's; before its first packet every request comes too
/// early (error R).
SnapAnswer answer_snap(quorl::client::ByteView frame, Round& round);

}  // namespace tools
