#include "base/clocks.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <map>

// The real clocks, on a clock of the system that stands in front of the C library's own in this
// program. For the test's own thread alone, and only while it says so: others read the time too.

namespace {

thread_local std::map<clockid_t, timespec>* set_to = nullptr;

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (set_to == nullptr) return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  const auto entry = set_to->find(clock);
  *time = entry == set_to->end() ? timespec{.tv_sec = 99, .tv_nsec = 99} : entry->second;
  return 0;
}

namespace quorl {
namespace {

struct Readings {
  uint64_t steady;  // ms
  uint64_t system;  // ns

  bool operator==(const Readings&) const = default;
};

Readings readings_at(timespec monotonic, timespec real) {
  std::map<clockid_t, timespec> clocks = {{CLOCK_MONOTONIC, monotonic}, {CLOCK_REALTIME, real}};
  set_to = &clocks;
  const Readings readings{.steady = steady_ms(), .system = system_ns()};
  set_to = nullptr;
  return readings;
}

TEST(Clocks, the_steady_one_is_the_monotonic_clock_and_the_system_one_that_of_the_day) {
  EXPECT_EQ(readings_at({.tv_sec = 12, .tv_nsec = 345'678'901},
                        {.tv_sec = 1'700'000'000, .tv_nsec = 123'456'789}),
            (Readings{.steady = 12'345, .system = 1'700'000'000'123'456'789}));
}

TEST(Clocks, a_step_of_the_system_clock_does_not_move_the_steady_one) {
  const timespec monotonic{.tv_sec = 12, .tv_nsec = 0};
  for (const time_t day_s : {0, 1, 1'700'000'000, 1'699'996'400, 1'700'003'600}) {
    EXPECT_EQ(readings_at(monotonic, {.tv_sec = day_s, .tv_nsec = 0}),
              (Readings{.steady = 12'000, .system = static_cast<uint64_t>(day_s) * 1'000'000'000}));
  }
}

TEST(Clocks, milliseconds_are_cut_and_not_rounded) {
  EXPECT_EQ(readings_at({.tv_sec = 0, .tv_nsec = 999'999}, {}).steady, 0U);
  EXPECT_EQ(readings_at({.tv_sec = 0, .tv_nsec = 1'000'000}, {}).steady, 1U);
  EXPECT_EQ(readings_at({.tv_sec = 7, .tv_nsec = 999'999'999}, {}).steady, 7'999U);
}

TEST(Clocks, hold_a_machine_that_has_been_up_for_long) {
  constexpr time_t HUNDRED_YEARS_S = 3'155'760'000;
  EXPECT_EQ(readings_at({.tv_sec = HUNDRED_YEARS_S, .tv_nsec = 0}, {}).steady, 3'155'760'000'000U);
}

}  // namespace
}  // namespace quorl
