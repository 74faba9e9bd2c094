#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "feed/tp_header.h"

namespace quorl {

struct Engine;

/// One connection of the DEEP SNAP service: one request, one reply, closed.
struct SnapConnection {
  int fd = -1;                   // -1 once closed
  std::vector<uint8_t> inbound;  // received and not yet used
  int64_t accepted_ms = 0;       // steady clock
};

/// Accepts until accept fails. Any failure ends the accepting of this turn.
void accept_snap_connections(int listen_fd, std::vector<SnapConnection>& snaps);

/// Reads every connection and answers those whose request is complete; closes those that have sent
/// none for over 10 s. A peer that stops reading its reply holds up the process, which is accepted.
void serve_snap_connections(Engine& engine, std::vector<SnapConnection>& snaps,
                            std::span<char> scratch);

/// The whole reply to one request frame (its 2-byte length included): the image, or a 4-byte error
/// frame. REQUIRES: the frame is complete and its length is not 0.
std::vector<uint8_t> answer_snap_request(Engine& engine, std::span<const uint8_t> frame);

/// The bytes of a success reply: all that the feed shows, as of the last sequence number given out.
/// Counts one image served.
std::vector<uint8_t> build_snap_image(Engine& engine);

/// Appends one data frame to `out`: the segment header of the image, and one message.
void snap_frame(const TpHeader& header, const void* message, size_t size,
                std::vector<uint8_t>& out);

}  // namespace quorl
