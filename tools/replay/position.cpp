#include "tools/replay/position.h"

#include <algorithm>

namespace tools {

void Position::pass(const RecordedPacket& packet) {
  time_ns_ = std::max(time_ns_, packet.header.send_time_ns);
  if (!at_the_start() && packet.end_offset() <= next_offset_) return;
  next_offset_ = packet.end_offset();
  next_seq_ = stream_.first_seq(packet) + packet.header.message_count;
  messages_ = stream_.count_before(next_offset_);
}

}  // namespace tools
