#include "base/clocks.h"

#include <ctime>

namespace quorl {
namespace {

constexpr uint64_t NS_PER_S = 1'000'000'000;
constexpr uint64_t NS_PER_MS = 1'000'000;

uint64_t nanoseconds_of(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<uint64_t>(time.tv_sec) * NS_PER_S + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace

uint64_t steady_ms() { return nanoseconds_of(CLOCK_MONOTONIC) / NS_PER_MS; }

uint64_t system_ns() { return nanoseconds_of(CLOCK_REALTIME); }

}  // namespace quorl
