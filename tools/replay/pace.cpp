#include "tools/replay/pace.h"

namespace tools {
namespace {

constexpr double LONGEST_WAIT_NS = 1e18;  // thirty years: kept clear of the clock's own range

}  // namespace

void Pace::begin(uint64_t time_ns, Moment now) {
  first_ns_ = time_ns;
  begin_ = now;
}

Pace::Moment Pace::due(uint64_t time_ns) const {
  if (!factor_ || time_ns <= first_ns_) return begin_;
  const double wait = static_cast<double>(time_ns - first_ns_) / *factor_;
  return begin_ + std::chrono::nanoseconds(
                      static_cast<int64_t>(wait < LONGEST_WAIT_NS ? wait : LONGEST_WAIT_NS));
}

}  // namespace tools
