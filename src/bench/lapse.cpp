#include "bench/lapse.h"

#include "base/clocks.h"

namespace quorl {

void Lapse::start(uint64_t ms) {
  until_ms_ = steady_ms() + ms;
  announced_ = false;
}

/// Asked with every message that is sent: without a lapse that costs no reading of the clock.
bool Lapse::is_silent() const { return until_ms_ != 0 && steady_ms() < until_ms_; }

bool Lapse::announce_once() {
  if (announced_ || !is_silent()) return false;
  announced_ = true;
  return true;
}

}  // namespace quorl
