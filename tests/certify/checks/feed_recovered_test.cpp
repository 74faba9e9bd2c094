#include <gtest/gtest.h>

#include "tests/certify/checks/support/feed_run.h"

namespace certify::feed_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// A client that has joined by an image, one second after its start.
class FeedRecovered : public ::testing::Test {
 protected:
  FeedRecovered() {
    run.hears(run.makes(49));
    run.at(0).starts();
    run.at(500).hears(run.makes(2));
    run.at(1000).takes_image();
    run.at(1001).hears(run.makes(2));
  }

  FeedRun run{"feed.recovered"};
};

TEST_F(FeedRecovered, a_feed_that_loses_nothing_gives_no_occasion) {
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedRecovered, what_gap_fill_brought_in_time_is_good) {
  const auto lost = run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(11'999).fetches(lost);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
  EXPECT_EQ(run.verdict().occasions, 1U);
}

TEST_F(FeedRecovered, what_nothing_brought_is_a_fault) {
  run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.heartbeat();
  run.runs_until(12'002);
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, failed_with("The feed lost messages 54 to 56, "));
  EXPECT_THAT(verdict.faults[0].evidence,
              ElementsAre(HasSubstr("shows the hole"), HasSubstr("image asked for"),
                          HasSubstr("still missing")));
}

TEST_F(FeedRecovered, what_came_too_late_is_a_fault) {
  const auto lost = run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(12'100).hears(run.makes(2));
  run.fetches(lost);
  EXPECT_THAT(run.verdict(), failed_with("The feed lost"));
}

TEST_F(FeedRecovered, a_part_that_stays_away_is_a_fault) {
  run.at(2000).loses(5);  // 54 to 58
  run.at(2001).hears(run.makes(2));
  run.at(2100).fetches({54, 2});
  run.runs_until(12'200);
  EXPECT_THAT(run.verdict(), failed_with("messages 56 to 57"));  // 58 is not certain
}

TEST_F(FeedRecovered, an_image_behind_the_loss_replaces_it) {
  run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(9000).takes_image();
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedRecovered, an_image_taken_before_the_loss_showed_replaces_it) {
  run.at(2000).loses(3);
  run.takes_image();
  run.at(2001).hears(run.makes(2));
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedRecovered, an_image_ahead_of_the_loss_does_not) {
  run.at(2000).takes_image();
  run.loses(3);
  run.at(2001).hears(run.makes(2));
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), failed_with("The feed lost"));
}

TEST_F(FeedRecovered, the_last_packet_is_missed_by_the_heartbeat_behind_it) {
  run.at(2000).loses(1);
  run.at(3000).heartbeat();
  run.at(13'000).heartbeat();
  EXPECT_THAT(run.verdict(), failed_with("message 54,"));
}

TEST_F(FeedRecovered, a_packet_that_is_late_was_not_lost) {
  const auto held = run.at(2000).holds_back(2);
  run.at(2001).hears(run.makes(2));
  run.hears(held);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedRecovered, one_held_back_behind_another_is_lost) {
  run.at(2000).holds_back(2);
  const auto second = run.holds_back(2);
  run.at(2001).hears(run.makes(2));
  run.hears(second);
  run.runs_until(12'100);
  EXPECT_THAT(run.verdict(), failed_with("The feed lost message"));
}

TEST_F(FeedRecovered, numbers_one_too_high_are_no_loss) {
  run.at(2000).hears_one_too_high(run.makes(40));
  run.hears_one_too_high(run.makes(40));
  run.hears(run.makes(1));
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedRecovered, a_number_one_too_high_behind_a_loss_does_not_make_it_longer) {
  const auto lost = run.at(2000).loses(3);
  run.at(2001).hears_one_too_high(run.makes(40));
  run.fetches(lost);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedRecovered, what_comes_twice_is_no_loss) {
  const auto made = run.at(2000).makes(3);
  run.hears(made);
  run.hears(made);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedRecovered, what_the_exchange_did_not_drop_the_judge_lost_itself) {
  run.at(2000).makes(3);
  run.at(2001).hears(run.makes(2));
  run.runs_until(30'000);
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, not_seen());
  EXPECT_THAT(verdict.remarks, ElementsAre(HasSubstr("The judge itself did not hear")));
}

TEST_F(FeedRecovered, of_a_hole_that_is_partly_the_judges_own_nobody_is_blamed) {
  run.at(2000).makes(30);
  run.loses(3);
  run.makes(30);
  run.at(2001).hears(run.makes(2));
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedRecovered, many_packets_dropped_in_a_row_are_one_loss) {
  for (int i = 0; i < 20'000; ++i) run.at(2000).loses(25);
  run.at(2001).hears(run.makes(2));
  run.at(12'100).hears(run.makes(2));
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, failed_with("messages 54 to 500052"));
  EXPECT_EQ(verdict.occasions, 1U);
}

TEST_F(FeedRecovered, at_the_end_too_short_a_time_blames_nobody) {
  run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(9000).closes();
  run.at(20'000).hears(run.makes(2));
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, not_seen());
  EXPECT_THAT(verdict.remarks, ElementsAre(HasSubstr("1 losses were not repaired")));
}

TEST_F(FeedRecovered, the_end_of_the_run_finds_what_is_overdue) {
  run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(12'002).closes();
  EXPECT_THAT(run.verdict(), failed_with("The feed lost"));
}

TEST_F(FeedRecovered, through_a_link_in_trouble_the_time_begins_anew) {
  const auto lost = run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(2002).link_says("gap fill: stalled for 15 s");
  run.at(17'002).link_says("gap fill: the stall is over");
  run.at(27'000).fetches(lost);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedRecovered, trouble_on_the_fix_line_is_no_excuse) {
  run.at(2000).loses(3);
  run.at(2001).hears(run.makes(2));
  run.at(2002).link_says("FIX: stalled for 15 s");
  run.at(12'100).hears(run.makes(2));
  EXPECT_THAT(run.verdict(), failed_with("The feed lost"));
}

TEST(FeedRecoveredTime, is_what_the_plan_allows) {
  FeedRun run("feed.recovered", {.recovery = Milliseconds(500)});
  run.at(0).starts();
  run.at(10).hears(run.makes(2));
  run.takes_image();
  run.at(2000).hears(run.makes(2));
  const auto first = run.loses(2);
  run.hears(run.makes(2));
  run.at(2499).fetches(first);
  const auto second = run.at(3000).loses(2);
  run.hears(run.makes(2));
  run.at(3501).fetches(second);
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, failed_with("within 500 ms"));
  EXPECT_EQ(verdict.occasions, 2U);
}

TEST(FeedRecoveredJoining, what_was_lost_before_the_client_started_is_not_owed) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.loses(2);
  run.hears(run.makes(2));
  run.at(10).starts();
  run.at(100).takes_image();
  run.loses(0);
  run.runs_until(20'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST(FeedRecoveredJoining, a_slow_starter_owes_nothing_that_its_image_covers) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(3000).loses(2);
  run.at(3001).hears(run.makes(2));
  run.runs_until(20'000);
  run.takes_image();
  run.runs_until(40'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRecoveredJoining, a_client_that_never_asks_for_anything_fails) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(3000).loses(2);
  run.at(3001).hears(run.makes(2));
  run.runs_until(14'000);
  run.closes();
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, failed_with("The feed lost"));
  EXPECT_THAT(verdict.faults[0].evidence, testing::Contains("The client has asked for nothing."));
}

TEST(FeedRecoveredJoining, a_client_that_never_asks_may_not_have_listened_yet) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(1000).loses(2);
  run.at(1001).hears(run.makes(2));
  run.runs_until(14'000);
  run.closes();
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST(FeedRecoveredJoining, a_client_without_a_place_is_another_checks_matter) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(1000).asks_image();
  run.image_breaks_off();
  run.at(3000).loses(2);
  run.at(3001).hears(run.makes(2));
  run.runs_until(14'000);
  run.closes();
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST(FeedRecoveredJoining, a_client_whose_first_request_is_never_answered_owes_what_it_asked_for) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(1000).loses(2);  // it may not have listened yet
  run.at(1001).hears(run.makes(2));
  const auto lost = run.at(3000).loses(2);
  run.at(3001).hears(run.makes(2));
  run.at(3100).asks(lost);
  run.runs_until(14'000);
  run.closes();
  EXPECT_THAT(run.verdict(), failed_with("The feed lost messages 44 to 45"));
}

TEST(FeedRecoveredJoining, a_client_that_listens_owes_nothing_of_what_it_may_not_have_heard_yet) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(500).loses(2);
  run.at(501).hears(run.makes(2));
  const auto lost = run.at(3000).loses(2);
  run.at(3001).hears(run.makes(2));
  run.at(3100).fetches(lost);
  run.runs_until(20'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRecoveredJoining, a_question_for_the_status_asks_for_nothing) {
  FeedRun run("feed.recovered");
  run.hears(run.makes(40));
  run.at(10).starts();
  run.at(20).asks_status();
  run.at(3000).loses(2);
  run.at(3001).hears(run.makes(2));
  run.runs_until(14'000);
  run.closes();
  EXPECT_THAT(run.verdict(), failed_with("The feed lost"));
}

}  // namespace
}  // namespace certify::feed_test
