#include "market/scheduled_cancels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace quorl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// "ALPHA a1 at 300" each.
std::vector<std::string> words_of(const std::vector<ScheduledCancel>& cancels) {
  std::vector<std::string> words;
  for (const ScheduledCancel& cancel : cancels) {
    words.push_back(cancel.owner + " " + cancel.cl_ord_id + " at " + std::to_string(cancel.due_ms));
  }
  return words;
}

TEST(ScheduledCancels, begin_with_none) {
  ScheduledCancels cancels;
  EXPECT_TRUE(cancels.empty());
  EXPECT_EQ(cancels.size(), 0U);
  EXPECT_THAT(cancels.all(), IsEmpty());
  EXPECT_THAT(cancels.take_due(std::numeric_limits<int64_t>::max()), IsEmpty());
}

TEST(ScheduledCancels, are_due_at_their_millisecond_and_taken_once) {
  ScheduledCancels cancels;
  cancels.schedule({"ALPHA", "a1", 300});
  EXPECT_FALSE(cancels.empty());
  EXPECT_THAT(cancels.take_due(299), IsEmpty());
  EXPECT_EQ(cancels.size(), 1U);
  EXPECT_THAT(words_of(cancels.take_due(300)), ElementsAre("ALPHA a1 at 300"));
  EXPECT_TRUE(cancels.empty());
  EXPECT_THAT(cancels.take_due(300), IsEmpty());
}

TEST(ScheduledCancels, that_are_overdue_are_taken_too) {
  ScheduledCancels cancels;
  cancels.schedule({"ALPHA", "a1", -5});
  cancels.schedule({"ALPHA", "a2", 0});
  EXPECT_THAT(words_of(cancels.take_due(1000)), ElementsAre("ALPHA a1 at -5", "ALPHA a2 at 0"));
}

TEST(ScheduledCancels, are_taken_in_the_order_of_their_scheduling_whatever_their_times_are) {
  ScheduledCancels cancels;
  cancels.schedule({"ALPHA", "a1", 300});
  cancels.schedule({"BETA", "b1", 100});
  cancels.schedule({"ALPHA", "a2", 400});
  cancels.schedule({"ALPHA", "a3", 200});
  cancels.schedule({"BETA", "b2", 100});
  EXPECT_THAT(words_of(cancels.take_due(300)), ElementsAre("ALPHA a1 at 300", "BETA b1 at 100",
                                                           "ALPHA a3 at 200", "BETA b2 at 100"));
  EXPECT_THAT(words_of(cancels.take_due(400)), ElementsAre("ALPHA a2 at 400"));
}

TEST(ScheduledCancels, of_one_millisecond_are_taken_in_the_order_of_their_scheduling) {
  ScheduledCancels cancels;
  std::vector<std::string> expected;
  for (int i = 0; i < 20; ++i) {
    cancels.schedule({"ALPHA", "a" + std::to_string(i), 300});
    expected.push_back("ALPHA a" + std::to_string(i) + " at 300");
  }
  EXPECT_EQ(words_of(cancels.take_due(300)), expected);
}

TEST(ScheduledCancels, may_name_one_order_several_times) {
  ScheduledCancels cancels;
  cancels.schedule({"ALPHA", "a1", 300});
  cancels.schedule({"ALPHA", "a1", 300});
  cancels.schedule({"ALPHA", "a1", 301});
  EXPECT_EQ(cancels.take_due(300).size(), 2U);
  EXPECT_EQ(cancels.size(), 1U);
}

TEST(ScheduledCancels, are_all_listed_in_the_order_of_their_scheduling_and_stay) {
  ScheduledCancels cancels;
  cancels.schedule({"ALPHA", "a1", 300});
  cancels.schedule({"BETA", "b1", 100});
  cancels.schedule({"ALPHA", "a2", 200});
  EXPECT_THAT(words_of(cancels.all()),
              ElementsAre("ALPHA a1 at 300", "BETA b1 at 100", "ALPHA a2 at 200"));
  cancels.take_due(100);
  cancels.schedule({"BETA", "b2", 50});
  EXPECT_THAT(words_of(cancels.all()),
              ElementsAre("ALPHA a1 at 300", "ALPHA a2 at 200", "BETA b2 at 50"));
  EXPECT_EQ(cancels.size(), 3U);
}

TEST(ScheduledCancels, are_taken_as_by_a_look_at_each_after_any_history) {
  for (uint64_t seed = 1; seed <= 5; ++seed) {
    std::mt19937_64 rng(seed);
    ScheduledCancels cancels;
    std::vector<ScheduledCancel> naive;
    int64_t now_ms = 0;
    for (int step = 0; step < 300; ++step) {
      for (uint64_t i = rng() % 5; i-- != 0;) {
        const ScheduledCancel cancel{"ALPHA", "a" + std::to_string(rng() % 10),
                                     now_ms + static_cast<int64_t>(rng() % 40) - 5};
        cancels.schedule(cancel);
        naive.push_back(cancel);
      }
      ASSERT_EQ(words_of(cancels.all()), words_of(naive)) << "seed " << seed << ", step " << step;
      now_ms += static_cast<int64_t>(rng() % 8);
      std::vector<ScheduledCancel> due;
      std::vector<ScheduledCancel> waiting;
      for (const ScheduledCancel& cancel : naive) {
        (cancel.due_ms <= now_ms ? due : waiting).push_back(cancel);
      }
      naive = waiting;
      ASSERT_EQ(words_of(cancels.take_due(now_ms)), words_of(due))
          << "seed " << seed << ", step " << step;
      ASSERT_EQ(cancels.size(), naive.size());
      ASSERT_EQ(cancels.empty(), naive.empty());
    }
  }
}

}  // namespace
}  // namespace quorl
