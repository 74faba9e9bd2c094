#include "day/day_clock.h"

#include "base/clocks.h"

namespace day {
namespace {

constexpr uint64_t START_STEADY_NS = 1'000'000 * NS_PER_MS;
constexpr uint64_t READING_NS = 7;

struct Clock {
  uint64_t steady_ns = START_STEADY_NS;
  uint64_t system_ahead_ns = 0;  // of the steady clock
  uint64_t readings = 0;         // of the system clock since time last passed
};

Clock the_clock;

}  // namespace

void reset_clock(uint64_t system_ns) {
  the_clock = Clock{};
  the_clock.system_ahead_ns = system_ns - START_STEADY_NS;
}

void pass_ns(uint64_t ns) {
  the_clock.steady_ns += ns;
  the_clock.readings = 0;
}

void step_system_clock(int64_t ns) { the_clock.system_ahead_ns += static_cast<uint64_t>(ns); }

uint64_t now_ms() { return the_clock.steady_ns / NS_PER_MS; }

uint64_t ns_until(uint64_t ms) {
  const uint64_t target = ms * NS_PER_MS;
  return target > the_clock.steady_ns ? target - the_clock.steady_ns : 0;
}

}  // namespace day

namespace quorl {

uint64_t steady_ms() { return day::now_ms(); }

uint64_t system_ns() {
  day::Clock& clock = day::the_clock;
  return clock.steady_ns + clock.system_ahead_ns + day::READING_NS * clock.readings++;
}

}  // namespace quorl
