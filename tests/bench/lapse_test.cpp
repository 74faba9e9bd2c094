#include "bench/lapse.h"

#include <gtest/gtest.h>

#include "support/test_clock.h"

namespace quorl::test {
namespace {

class ALapse : public testing::Test {
 protected:
  ALapse() { reset_clocks(); }

  Lapse lapse;
};

TEST_F(ALapse, is_not_there_at_first) {
  EXPECT_FALSE(lapse.is_silent());
  EXPECT_FALSE(lapse.announce_once());
  EXPECT_EQ(lapse.until_ms(), 0U);
}

TEST_F(ALapse, is_silent_up_to_its_last_millisecond) {
  lapse.start(100);
  EXPECT_EQ(lapse.until_ms(), START_STEADY_MS + 100);
  EXPECT_TRUE(lapse.is_silent());
  advance_ms(99);
  EXPECT_TRUE(lapse.is_silent());
  advance_ms(1);
  EXPECT_FALSE(lapse.is_silent());
}

TEST_F(ALapse, is_announced_once) {
  lapse.start(100);
  EXPECT_TRUE(lapse.announce_once());
  EXPECT_FALSE(lapse.announce_once());
  advance_ms(100);
  EXPECT_FALSE(lapse.announce_once());
}

TEST_F(ALapse, that_is_over_before_anyone_asks_is_not_announced) {
  lapse.start(100);
  advance_ms(100);
  EXPECT_FALSE(lapse.announce_once());
}

TEST_F(ALapse, is_replaced_by_the_next_one_and_announced_anew) {
  lapse.start(100);
  EXPECT_TRUE(lapse.announce_once());
  lapse.start(50);
  EXPECT_TRUE(lapse.announce_once());
  advance_ms(50);
  EXPECT_FALSE(lapse.is_silent());
}

TEST_F(ALapse, of_0_ends_the_one_that_runs) {
  lapse.start(100);
  lapse.start(0);
  EXPECT_FALSE(lapse.is_silent());
  EXPECT_FALSE(lapse.announce_once());
}

}  // namespace
}  // namespace quorl::test
