#include "tools/record/heard.h"

#include <algorithm>
#include <cstdio>

#include "quorl/client/errors.h"
#include "quorl/client/iex_tp.h"
#include "tools/capture/counted.h"

namespace client = quorl::client;

namespace tools {

void Heard::datagram(uint64_t time_ns, client::ByteView bytes) {
  if (packets_ == 0) first_ns_ = time_ns;
  last_ns_ = std::max(last_ns_, time_ns);
  ++packets_;
  try {
    const client::TpPacket packet = client::decode_tp_packet(bytes);
    messages_ += packet.header.message_count;
    if (packet.is_heartbeat()) ++heartbeats_;
    coverage_[packet.header.session_id].packet(packet.header);
  } catch (const client::WireError&) {
    ++foreign_;  // recorded all the same
  }
}

uint64_t Heard::holes() const {
  uint64_t holes = 0;
  for (const auto& [session, coverage] : coverage_) holes += coverage.holes();
  return holes;
}

std::string Heard::summary() const {
  std::string text = counted(packets_, "packet") + " (" + counted(heartbeats_, "heartbeat") +
                     "), " + counted(messages_, "message") + ", ";
  uint64_t missing = 0;
  for (const auto& [session, coverage] : coverage_) missing += coverage.missing_bytes();
  if (holes() == 0) {
    text += "no gaps";
  } else {
    text += counted(holes(), "gap") + " (" + counted(missing, "byte") + " of the stream not heard)";
  }
  if (coverage_.size() > 1) text += ", " + counted(coverage_.size(), "session");
  if (foreign_ > 0) text += ", " + counted(foreign_, "packet") + " not of the feed's format";
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, ", %.1f seconds",
                static_cast<double>(last_ns_ - first_ns_) / 1e9);
  return text + seconds;
}

}  // namespace tools
