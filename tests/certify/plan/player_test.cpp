#include "certify/plan/player.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace certify {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

/// A plan of these lines and a clock in the hand.
class Player {
 public:
  explicit Player(const std::string& lines)
      : plan_(read_plan("p.plan", "title T\n" + lines, {})), player_(plan_) {}

  Moment moment;

  /// The actions due at so many milliseconds.
  std::vector<std::string> at(int now) {
    moment.now = Milliseconds(now);
    std::vector<std::string> actions;
    for (const Step* const step : player_.due(moment)) actions.push_back(step->action);
    return actions;
  }
  std::string ended() const { return player_.ended(moment).value_or(""); }
  std::optional<Milliseconds> look_at() const { return player_.look_at(moment); }
  const PlanPlayer& player() const { return player_; }

 private:
  Plan plan_;
  PlanPlayer player_;
};

TEST(PlanPlayer, does_steps_without_a_condition_at_once_and_in_order) {
  Player run("step drop 1\nstep pause\nstep at 1s resume");
  EXPECT_THAT(run.at(0), ElementsAre("drop 1", "pause"));
  EXPECT_THAT(run.at(0), IsEmpty());
  EXPECT_THAT(run.at(999), IsEmpty());
  EXPECT_THAT(run.at(1000), ElementsAre("resume"));
  EXPECT_THAT(run.at(2000), IsEmpty());
}

TEST(PlanPlayer, counts_after_from_the_start_before_any_step) {
  Player run("step after 1s drop 1");
  EXPECT_THAT(run.at(999), IsEmpty());
  EXPECT_THAT(run.at(1000), ElementsAre("drop 1"));
}

TEST(PlanPlayer, counts_after_from_when_the_last_step_was_done) {
  Player run("step at 1s drop 1\nstep after 500ms dup 1\nstep after 0s pause");
  EXPECT_THAT(run.at(1300), ElementsAre("drop 1"));  // seen late
  EXPECT_THAT(run.at(1799), IsEmpty());
  EXPECT_THAT(run.at(1800), ElementsAre("dup 1", "pause"));
}

TEST(PlanPlayer, keeps_steps_apart_that_are_seen_late_together) {
  Player run("step after 1s drop 1\nstep after 1s dup 1");
  EXPECT_THAT(run.at(5000), ElementsAre("drop 1"));
  EXPECT_THAT(run.at(5999), IsEmpty());
  EXPECT_THAT(run.at(6000), ElementsAre("dup 1"));
}

TEST(PlanPlayer, counts_at_from_the_clients_start) {
  Player run("step at 2s drop 1\nstep at 1s dup 1");
  EXPECT_THAT(run.at(1999), IsEmpty()) << "the second waits for the first";
  EXPECT_THAT(run.at(2000), ElementsAre("drop 1", "dup 1"));
}

struct Comparison {
  std::string condition;
  std::vector<uint64_t> held_by;  // of 2, 3 and 4
};

TEST(PlanPlayer, compares_counters) {
  const Comparison comparisons[] = {
      {"orders >= 3", {3, 4}}, {"orders > 3", {4}},     {"orders = 3", {3}},
      {"orders < 3", {2}},     {"orders <= 3", {2, 3}},
  };
  for (const Comparison& comparison : comparisons) {
    std::vector<uint64_t> held_by;
    for (const uint64_t orders : {2U, 3U, 4U}) {
      Player run("step when " + comparison.condition + " pause");
      run.moment.counters["orders"] = orders;
      if (!run.at(0).empty()) held_by.push_back(orders);
    }
    EXPECT_EQ(held_by, comparison.held_by) << comparison.condition;
  }
}

TEST(PlanPlayer, takes_a_counter_that_is_not_there_for_0) {
  Player run("step when orders = 0 pause\nstep when orders >= 1 resume");
  EXPECT_THAT(run.at(0), ElementsAre("pause"));
}

TEST(PlanPlayer, wants_all_terms) {
  Player run("step when orders >= 3 and fills >= 1 and at 1s pause");
  run.moment.counters = {{"orders", 3}, {"fills", 0}};
  EXPECT_THAT(run.at(1000), IsEmpty());
  run.moment.counters["fills"] = 1;
  EXPECT_THAT(run.at(999), IsEmpty());
  EXPECT_THAT(run.at(1000), ElementsAre("pause"));
}

TEST(PlanPlayer, knows_quiet_by_the_last_activity) {
  Player run("step when quiet for 2s pause");
  run.moment.last_activity = Milliseconds(1500);
  EXPECT_THAT(run.at(3499), IsEmpty());
  run.moment.last_activity = Milliseconds(1600);
  EXPECT_THAT(run.at(3500), IsEmpty());
  EXPECT_THAT(run.at(3599), IsEmpty());
  EXPECT_THAT(run.at(3600), ElementsAre("pause"));
}

TEST(PlanPlayer, knows_that_the_client_ended) {
  Player run("step when client ended mark gone\nend when client ended");
  EXPECT_THAT(run.at(0), IsEmpty());
  EXPECT_EQ(run.ended(), "");
  run.moment.client_ended = true;
  EXPECT_THAT(run.at(0), ElementsAre("mark gone"));
  EXPECT_EQ(run.ended(), "the plan: client ended");
}

TEST(PlanPlayer, ends_by_the_plan_behind_its_last_step_only) {
  Player run("step when orders >= 3 drop 1\nend when logons >= 1 and after 2s");
  run.moment.counters["logons"] = 1;
  EXPECT_THAT(run.at(5000), IsEmpty());
  EXPECT_EQ(run.ended(), "");
  run.moment.counters["orders"] = 3;
  EXPECT_THAT(run.at(6000), ElementsAre("drop 1"));
  EXPECT_EQ(run.ended(), "");
  EXPECT_THAT(run.at(7999), IsEmpty());
  EXPECT_EQ(run.ended(), "");
  EXPECT_THAT(run.at(8000), IsEmpty());
  EXPECT_EQ(run.ended(), "the plan: logons >= 1 and after 2s");
}

TEST(PlanPlayer, ends_by_the_client_and_by_the_limit) {
  Player run("end when orders >= 1\nlimit 1500ms");
  (void)run.at(1499);
  EXPECT_EQ(run.ended(), "");
  (void)run.at(1500);
  EXPECT_EQ(run.ended(), "the limit of 1500ms");
  run.moment.client_ended = true;
  EXPECT_EQ(run.ended(), "the client ended");
  run.moment.counters["orders"] = 1;
  EXPECT_EQ(run.ended(), "the plan: orders >= 1");
}

TEST(PlanPlayer, goes_on_without_an_end) {
  Player run("step drop 1");
  EXPECT_THAT(run.at(59999), ElementsAre("drop 1"));
  EXPECT_EQ(run.ended(), "");
  (void)run.at(60000);
  EXPECT_EQ(run.ended(), "the limit of 60s");
}

TEST(PlanPlayer, says_when_a_time_passes_next) {
  Player run("step at 5s drop 1\nstep after 2s dup 1\nend when quiet for 3s\nlimit 30s");
  (void)run.at(100);
  EXPECT_THAT(run.look_at(), Optional(Milliseconds(5000)));
  (void)run.at(5000);
  EXPECT_THAT(run.look_at(), Optional(Milliseconds(7000)));
  run.moment.last_activity = Milliseconds(6500);
  (void)run.at(7000);
  EXPECT_THAT(run.look_at(), Optional(Milliseconds(9500)));
  (void)run.at(9500);
  EXPECT_THAT(run.look_at(), Optional(Milliseconds(30000)));
  (void)run.at(30000);
  EXPECT_EQ(run.look_at(), std::nullopt);
}

TEST(PlanPlayer, names_requirements_with_their_values) {
  Player run("require race_fills >= 2\nrequire logons = 1 and rejects > 0\nrequire orders > 0");
  EXPECT_THAT(run.player().unmet({{"race_fills", 1}, {"logons", 1}, {"orders", 1}}),
              ElementsAre("race_fills >= 2 (race_fills is 1)",
                          "logons = 1 and rejects > 0 (logons is 1, rejects is 0)"));
  EXPECT_THAT(run.player().unmet({{"race_fills", 2}, {"logons", 1}, {"rejects", 1}, {"orders", 9}}),
              IsEmpty());
}

TEST(PlanPlayer, names_the_steps_that_never_came) {
  Player run("step drop 1\nstep when orders >= 3 disconnect\nstep pause");
  (void)run.at(0);
  EXPECT_THAT(run.player().not_done(),
              ElementsAre("line 3: step when orders >= 3, disconnect", "line 4: step pause"));
  run.moment.counters["orders"] = 3;
  (void)run.at(0);
  EXPECT_THAT(run.player().not_done(), IsEmpty());
}

}  // namespace
}  // namespace certify
