#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/bytes.h"
#include "quorl/client/deadline.h"
#include "quorl/client/deep.h"
#include "quorl/client/tcp.h"

namespace quorl::client {

/// A request frame; every field can be wrong.
struct SnapRequest {
  char type = 'r';
  std::string name = "client";  // cut to 40 bytes or padded
  char name_padding = ' ';
  uint32_t channel_id = 1;
  uint32_t session_id = 0;
  uint64_t minimum_seq = 0;
  Bytes trailing = {};  // behind the fixed part, inside the length
};
Bytes encode(const SnapRequest& request);

struct SnapError {
  char code = 0;  // 'U', 'A', 'C', 'S' or 'R'
};

/// A whole image: the market as the feed had shown it up to and including `seq`.
struct SnapImage {
  uint64_t seq = 0;            // last sequence number given out
  uint64_t stream_offset = 0;  // where the block of seq + 1 begins
  uint64_t send_time_ns = 0;
  uint64_t timestamp_ns = 0;  // of all messages
  std::vector<DeepMessage> messages;
  size_t total_bytes = 0;

  std::vector<std::string> symbols() const;  // in the order of the directory
  BookBuilder book() const;
};

using SnapReply = std::variant<SnapImage, SnapError>;

/// Decodes a whole reply: the announced total, every data frame with one and the same header, the
/// messages in their exact order (directory of all symbols; one System Event; then symbol by symbol
/// H, E, O, P, bids from the best, offers from the best, I), the end frame, and nothing behind it.
/// Throws WireError.
SnapReply decode_snap_reply(ByteView bytes, uint32_t session);

/// One connection, one request, one reply.
class SnapClient {
 public:
  SnapClient(uint16_t port, uint32_t session) : port_(port), session_(session) {}

  /// The image at `minimum_seq` or later. Throws WireError on an error reply, naming its code.
  SnapImage image(uint64_t minimum_seq = 0, std::chrono::milliseconds patience = PATIENCE);

  SnapReply request(const SnapRequest& request, std::chrono::milliseconds patience = PATIENCE);

  /// Sends any bytes and returns all that comes up to the server's close.
  Bytes exchange(ByteView bytes, std::chrono::milliseconds patience = PATIENCE);

 private:
  uint16_t port_;
  uint32_t session_;
};

}  // namespace quorl::client
