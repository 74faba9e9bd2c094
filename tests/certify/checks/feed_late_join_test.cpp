#include <gtest/gtest.h>

#include "tests/certify/checks/support/feed_run.h"

namespace certify::feed_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// 2000 messages have been sent when the client starts.
class FeedLateJoin : public ::testing::Test {
 protected:
  FeedLateJoin() {
    for (int i = 0; i < 50; ++i) run.hears(run.makes(40));
    run.at(0).starts();
    run.at(10).hears(run.makes(2));
  }

  void is_sent_from(uint64_t first, uint64_t end) {
    for (; first < end; first += 40) run.is_sent({first, std::min<uint64_t>(40, end - first)});
  }

  FeedRun run{"feed.late_join"};
};

TEST_F(FeedLateJoin, a_client_that_only_listens_is_not_seen) {
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedLateJoin, an_image_is_a_place) {
  run.at(100).takes_image();
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
  EXPECT_EQ(run.verdict().occasions, 1U);
}

TEST_F(FeedLateJoin, all_messages_by_gap_fill_are_a_place) {
  run.at(100).asks({{1, 1000}});
  is_sent_from(1, 1001);
  run.at(200).asks({{1001, 2000}});
  is_sent_from(1001, 2001);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, replies_that_overtake_each_other_are_a_place_too) {
  run.at(100).asks({{1, 1000}});
  run.at(200).asks({{1001, 2000}});
  is_sent_from(1001, 2001);
  is_sent_from(1, 1001);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, to_stop_half_way_is_a_fault) {
  run.at(100).asks({{1, 1000}});
  is_sent_from(1, 1001);
  run.runs_until(10'101);
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, failed_with("never got a place"));
  EXPECT_THAT(
      verdict.faults[0].evidence,
      Contains(HasSubstr("had brought it to 1000; when it started, the feed had come to 1999")));
}

TEST_F(FeedLateJoin, gap_fill_beyond_what_is_kept_and_then_an_image_is_good) {
  run.at(100).asks({{1, 1000}});
  run.at(5000).takes_image();
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, gap_fill_beyond_what_is_kept_and_nothing_else_is_a_fault) {
  run.at(100).asks({{1, 1000}});
  run.runs_until(10'101);
  EXPECT_THAT(run.verdict(), failed_with("never got a place"));
}

TEST_F(FeedLateJoin, an_image_broken_off_and_never_asked_for_again_is_a_fault) {
  run.at(100).asks_image();
  run.at(200).image_breaks_off();
  run.runs_until(10'201);
  EXPECT_THAT(run.verdict().faults[0].evidence,
              ElementsAre(HasSubstr("image asked for"), HasSubstr("broken off")));
  EXPECT_THAT(run.verdict(), failed_with("has not asked again for 10000 ms"));
}

TEST_F(FeedLateJoin, an_image_asked_for_again_is_good) {
  run.at(100).asks_image();
  run.at(200).image_breaks_off();
  run.at(10'000).asks_image();
  run.at(11'000).is_refused('R');
  run.at(20'000).takes_image();
  run.runs_until(40'000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, a_link_that_is_stalled_is_an_excuse) {
  run.at(100).asks_image();
  run.at(101).link_says("images: stalled for 20 s");
  run.runs_until(20'101);
  run.link_says("images: the stall is over");
  run.has_image();
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, malformed_requests_are_another_checks_matter) {
  run.at(100).asks_image_wrongly("its name is empty");
  run.is_refused('A');
  run.at(200).asks_wrongly("its version is 2, not 1");
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedLateJoin, a_minimum_that_a_number_one_too_high_suggests_is_borne) {
  run.at(100).asks_image(run.next() + 1);
  run.is_refused('R');
  run.at(1000).takes_image();
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, a_minimum_far_ahead_is_a_fault) {
  run.at(100).asks_image(run.next() + 2);
  run.is_refused('R');
  run.at(1000).takes_image();
  EXPECT_THAT(run.verdict(), failed_with("far ahead of the feed"));
}

TEST_F(FeedLateJoin, who_asks_only_for_a_loss_has_joined_by_listening) {
  const auto lost = run.at(2000).loses(2);
  run.hears(run.makes(2));
  run.asks(lost);
  run.runs_until(30'000);
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedLateJoin, ten_images_in_ten_seconds_are_borne) {
  for (int i = 0; i < 10; ++i) run.at(100 + i * 100).takes_image();
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, images_in_place_of_following_are_a_fault) {
  for (int i = 0; i < 11; ++i) run.at(100 + i * 100).takes_image();
  EXPECT_THAT(run.verdict(), failed_with("11 images"));
}

TEST_F(FeedLateJoin, images_in_place_of_what_was_lost_are_good) {
  for (int i = 0; i < 30; ++i) {
    run.at(100 + i * 100).loses(2);
    run.takes_image();
  }
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedLateJoin, too_short_a_run_blames_nobody) {
  run.at(100).asks_image();
  run.at(200).image_breaks_off();
  run.at(5000).closes();
  const Verdict verdict = run.verdict();
  EXPECT_THAT(verdict, passed());
  EXPECT_THAT(verdict.remarks, ElementsAre(HasSubstr("no place")));
}

}  // namespace
}  // namespace certify::feed_test
