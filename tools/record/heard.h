#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "quorl/client/bytes.h"
#include "tools/capture/coverage.h"

namespace tools {

/// What a recording has heard so far, for its last line.
class Heard {
 public:
  void datagram(uint64_t time_ns, quorl::client::ByteView bytes);

  uint64_t packets() const { return packets_; }  // datagrams of any content
  uint64_t holes() const;                        // over all sessions

  /// "27 packets (2 heartbeats), 1034 messages, no gaps, 2.1 seconds".
  std::string summary() const;

 private:
  uint64_t packets_ = 0;
  uint64_t heartbeats_ = 0;
  uint64_t messages_ = 0;
  uint64_t foreign_ = 0;                   // datagrams that are no packets of a feed
  std::map<uint32_t, Coverage> coverage_;  // by session
  uint64_t first_ns_ = 0;
  uint64_t last_ns_ = 0;
};

}  // namespace tools
