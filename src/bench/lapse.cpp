#include "bench/lapse.h"

#include "base/clocks.h"

namespace quorl {

void Lapse::start(uint64_t ms) {
  until_ms_ = steady_ms() + ms;
  announced_ = false;
}

/// Before the first one the clock need not be asked: it is, with every message that is sent.
bool Lapse::is_silent() const { return until_ms_ != 0 && steady_ms() < until_ms_; }

bool Lapse::announce_once() {
  if (announced_ || !is_silent()) return false;
  announced_ = true;
  return true;
}

}  // namespace quorl
