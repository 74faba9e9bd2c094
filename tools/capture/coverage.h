#pragma once

#include <cstdint>
#include <map>

#include "quorl/client/iex_tp.h"

namespace tools {

/// Which stretches of one session's stream have been heard, by stream offset; what came late fills
/// its hole. What was lost before the first packet or behind the last is not known of.
class Coverage {
 public:
  void packet(const quorl::client::TpHeader& header);

  uint64_t holes() const;
  uint64_t missing_bytes() const;  // of all holes

 private:
  std::map<uint64_t, uint64_t> heard_;  // begin and end of each stretch, apart from each other
};

}  // namespace tools
