#include "feed/fault_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace quorl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The numbers among first..last that the plan drops.
std::vector<uint64_t> dropped(FaultPlan& plan, uint64_t first, uint64_t last) {
  std::vector<uint64_t> numbers;
  for (uint64_t number = first; number <= last; ++number) {
    if (decide_fate(plan, number).drop) numbers.push_back(number);
  }
  return numbers;
}

TEST(FaultPlan, a_plan_of_zeros_sends_everything) {
  FaultPlan plan;
  for (uint64_t number = 1; number <= 100; ++number) {
    const PacketFate fate = decide_fate(plan, number);
    EXPECT_FALSE(fate.drop || fate.duplicate || fate.reorder) << number;
  }
}

TEST(FaultPlan, drop_every_hits_each_multiple) {
  FaultPlan plan{.drop_every = 10};
  EXPECT_THAT(dropped(plan, 1, 35), ElementsAre(10, 20, 30));
}

TEST(FaultPlan, dup_every_and_reorder_every_hit_each_multiple) {
  FaultPlan plan{.dup_every = 2, .reorder_every = 3};
  std::vector<uint64_t> duplicated;
  std::vector<uint64_t> reordered;
  for (uint64_t number = 1; number <= 7; ++number) {
    const PacketFate fate = decide_fate(plan, number);
    if (fate.duplicate) duplicated.push_back(number);
    if (fate.reorder) reordered.push_back(number);
  }
  EXPECT_THAT(duplicated, ElementsAre(2, 4, 6));
  EXPECT_THAT(reordered, ElementsAre(3, 6));
}

TEST(FaultPlan, a_burst_drops_its_length_from_its_start_and_fires_once) {
  FaultPlan plan{.burst_len = 5, .burst_start = 100};
  EXPECT_THAT(dropped(plan, 1, 1000), ElementsAre(100, 101, 102, 103, 104));
}

TEST(FaultPlan, a_burst_from_packet_0_loses_one_of_its_length_as_there_is_no_packet_0) {
  FaultPlan plan{.burst_len = 5, .burst_start = 0};
  EXPECT_THAT(dropped(plan, 1, 20), ElementsAre(1, 2, 3, 4));
}

TEST(FaultPlan, a_burst_of_length_0_is_off) {
  FaultPlan plan{.burst_len = 0, .burst_start = 3};
  EXPECT_THAT(dropped(plan, 1, 10), IsEmpty());
}

TEST(FaultPlan, a_burst_is_reckoned_in_64_bits) {
  FaultPlan plan{.burst_len = 0xFFFFFFFF, .burst_start = 0xFFFFFFFF};
  EXPECT_FALSE(decide_fate(plan, 0xFFFFFFFE).drop);
  EXPECT_TRUE(decide_fate(plan, 0xFFFFFFFF).drop);
  EXPECT_TRUE(decide_fate(plan, 0x1FFFFFFFD).drop);
  EXPECT_FALSE(decide_fate(plan, 0x1FFFFFFFE).drop);
}

TEST(FaultPlan, a_burst_that_would_end_behind_the_last_number_wraps_and_hits_nothing) {
  FaultPlan plan{.burst_len = 5, .burst_start = UINT64_MAX - 1};
  EXPECT_FALSE(decide_fate(plan, UINT64_MAX).drop);
  EXPECT_FALSE(decide_fate(plan, 1).drop);
}

TEST(FaultPlan, one_shots_fall_to_0_and_stay_there) {
  FaultPlan plan{.drop_next = 2};
  EXPECT_THAT(dropped(plan, 7, 12), ElementsAre(7, 8));
  EXPECT_EQ(plan.drop_next, 0u);
}

TEST(FaultPlan, a_one_shot_drop_is_used_up_where_drop_every_drops_anyway) {
  FaultPlan plan{.drop_every = 10, .drop_next = 2};
  EXPECT_THAT(dropped(plan, 10, 12), ElementsAre(10, 11));
}

TEST(FaultPlan, a_one_shot_drop_is_used_up_inside_a_burst) {
  FaultPlan plan{.burst_len = 2, .drop_next = 3, .burst_start = 5};
  EXPECT_THAT(dropped(plan, 5, 9), ElementsAre(5, 6, 7));
}

TEST(FaultPlan, one_shots_of_duplication_and_reordering_are_used_up_where_a_rule_fires_anyway) {
  FaultPlan plan{.dup_every = 4, .reorder_every = 4, .dup_next = 1, .reorder_next = 1};
  const PacketFate fate = decide_fate(plan, 4);
  EXPECT_TRUE(fate.duplicate);
  EXPECT_TRUE(fate.reorder);
  EXPECT_EQ(plan.dup_next, 0u);
  EXPECT_EQ(plan.reorder_next, 0u);
}

TEST(FaultPlan, a_dropped_packet_leaves_the_other_one_shots_for_the_next) {
  FaultPlan plan{.drop_every = 3, .dup_next = 1, .reorder_next = 1};
  const PacketFate dropped_one = decide_fate(plan, 3);
  EXPECT_TRUE(dropped_one.drop);
  EXPECT_FALSE(dropped_one.duplicate);
  EXPECT_FALSE(dropped_one.reorder);
  EXPECT_EQ(plan.dup_next, 1u);
  EXPECT_EQ(plan.reorder_next, 1u);

  const PacketFate next = decide_fate(plan, 4);
  EXPECT_FALSE(next.drop);
  EXPECT_TRUE(next.duplicate);
  EXPECT_TRUE(next.reorder);
}

TEST(FaultPlan, a_dropped_packet_takes_no_recurring_duplicate_either) {
  FaultPlan plan{.drop_every = 2, .dup_every = 2, .reorder_every = 2};
  const PacketFate fate = decide_fate(plan, 2);
  EXPECT_TRUE(fate.drop);
  EXPECT_FALSE(fate.duplicate);
  EXPECT_FALSE(fate.reorder);
}

}  // namespace
}  // namespace quorl
