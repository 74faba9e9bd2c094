#include "support/test_clock.h"

#include <utility>

#include "base/clocks.h"

namespace quorl {
namespace {

struct Clocks {
  uint64_t steady_ms = test::START_STEADY_MS;
  uint64_t system_ns = test::START_SYSTEM_NS;
  uint64_t system_step_ns = 0;
  uint64_t steady_readings = 0;
  uint64_t system_readings = 0;
  std::function<void()> at_each_system_reading;
};

Clocks clocks;

}  // namespace

uint64_t steady_ms() {
  ++clocks.steady_readings;
  return clocks.steady_ms;
}

uint64_t system_ns() {
  ++clocks.system_readings;
  const uint64_t reading = clocks.system_ns;
  clocks.system_ns += clocks.system_step_ns;
  if (const auto act = clocks.at_each_system_reading) act();  // a copy: it may put another there
  return reading;
}

namespace test {

void reset_clocks() { clocks = Clocks{}; }
void set_steady_ms(uint64_t ms) { clocks.steady_ms = ms; }
void set_system_ns(uint64_t ns) { clocks.system_ns = ns; }
void advance_ms(uint64_t ms) {
  clocks.steady_ms += ms;
  clocks.system_ns += ms * 1'000'000;
}
uint64_t steady_readings() { return clocks.steady_readings; }
uint64_t system_readings() { return clocks.system_readings; }
void step_system_clock_by(uint64_t ns) { clocks.system_step_ns = ns; }
void at_each_system_reading(std::function<void()> act) {
  clocks.at_each_system_reading = std::move(act);
}

}  // namespace test
}  // namespace quorl
