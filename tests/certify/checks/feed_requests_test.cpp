#include <gtest/gtest.h>

#include "tests/certify/checks/support/feed_run.h"

namespace certify::feed_test {
namespace {

std::vector<quorl::client::SeqRange> many_ranges(uint64_t count, uint64_t size = 1) {
  std::vector<quorl::client::SeqRange> ranges;
  for (uint64_t i = 0; i < count; ++i) ranges.push_back({1 + 100 * i, 100 * i + size});
  return ranges;
}

TEST(FeedRequestsFormed, good_requests_pass) {
  FeedRun run("feed.requests_formed");
  run.asks({{1, 5}, {7, 9}});
  run.asks_status();
  run.takes_image();
  EXPECT_THAT(run.verdict(), passed());
  EXPECT_EQ(run.verdict().occasions, 3U);
}

TEST(FeedRequestsFormed, a_client_that_asks_for_nothing_is_not_seen) {
  FeedRun run("feed.requests_formed");
  run.hears(run.makes(3));
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST(FeedRequestsFormed, gap_fill_that_is_not_answered_is_a_fault) {
  FeedRun run("feed.requests_formed");
  run.asks_wrongly("its session is 8, not 7");
  EXPECT_THAT(run.verdict(), failed_with("its session is 8, not 7"));
}

TEST(FeedRequestsFormed, too_many_ranges_are_another_checks_matter) {
  FeedRun run("feed.requests_formed");
  run.asks(many_ranges(128));
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST(FeedRequestsFormed, an_image_refused_is_one_fault) {
  FeedRun run("feed.requests_formed");
  run.asks_image_wrongly("its name is empty");
  run.is_refused('A');
  EXPECT_THAT(run.verdict(), failed_with("its name is empty"));
}

TEST(FeedRequestsFormed, a_refusal_that_was_not_foreseen_is_a_fault) {
  FeedRun run("feed.requests_formed");
  run.asks_image();
  run.is_refused('S');
  EXPECT_THAT(run.verdict(), failed_with("refused: S"));
}

TEST(FeedRequestsFormed, r_asks_for_patience_and_gets_it) {
  FeedRun run("feed.requests_formed");
  run.at(0).asks_image(60);
  run.is_refused('R');
  run.at(50).asks_image(60);
  run.is_refused('R');
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestsFormed, r_twice_at_once_is_a_fault) {
  FeedRun run("feed.requests_formed");
  run.at(0).asks_image(60);
  run.is_refused('R');
  run.at(49).asks_image(60);
  run.is_refused('R');
  EXPECT_THAT(run.verdict(), failed_with("asked for again at once"));
}

TEST(FeedRequestsFormed, an_image_that_comes_after_r_is_good_however_soon) {
  FeedRun run("feed.requests_formed");
  run.at(0).asks_image(60);
  run.is_refused('R');
  run.at(1).takes_image();
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestsFormed, a_side_closed_behind_the_request_is_a_fault) {
  FeedRun run("feed.requests_formed");
  run.at(0).asks_image();
  run.at(1).image_is_left();
  EXPECT_THAT(run.verdict(), failed_with("ended its side"));
}

TEST(FeedRequestsFormed, a_client_that_gives_up_waiting_may_close) {
  FeedRun run("feed.requests_formed");
  run.at(0).asks_image();
  run.at(1000).image_is_left();
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestLimits, all_that_is_allowed_at_once_is_good) {
  FeedRun run("feed.request_limits");
  run.asks(many_ranges(127, 7));  // 889
  run.asks({{1, 1000}});
  run.asks({{1, 500}, {502, 1001}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestLimits, a_message_too_many_is_a_fault) {
  FeedRun run("feed.request_limits");
  run.asks({{1, 500}, {502, 1002}});
  EXPECT_THAT(run.verdict(), failed_with("more than 1000 messages"));
}

TEST(FeedRequestLimits, all_numbers_there_can_be_are_too_many) {
  FeedRun run("feed.request_limits");
  run.asks({{0, UINT64_MAX}});
  EXPECT_THAT(run.verdict(), failed_with("more than 1000 messages"));
}

TEST(FeedRequestLimits, a_range_too_many_is_a_fault) {
  FeedRun run("feed.request_limits");
  run.asks(many_ranges(128));
  EXPECT_THAT(run.verdict(), failed_with("has 128 ranges"));
}

TEST(FeedRequestLimits, what_does_not_come_may_be_asked_for_three_times) {
  FeedRun run("feed.request_limits");
  for (int i = 0; i < 3; ++i) run.at(i * 1000).asks({{5, 9}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestLimits, without_end_is_a_fault_once) {
  FeedRun run("feed.request_limits");
  for (int i = 0; i < 40; ++i) run.at(i * 500).asks({{5, static_cast<uint64_t>(9 + i)}});
  EXPECT_THAT(run.verdict(), failed_with("asked for 4 times"));
}

TEST(FeedRequestLimits, two_holes_in_turns_are_no_excuse) {
  FeedRun run("feed.request_limits");
  for (int i = 0; i < 4; ++i) {
    run.at(i * 500).asks({{5, 9}});
    if (i < 3) run.asks({{15, 19}});
  }
  EXPECT_THAT(run.verdict(), failed_with("asked for 4 times"));
}

TEST(FeedRequestLimits, haste_within_the_grace_is_borne) {
  FeedRun run("feed.request_limits");
  for (int i = 0; i < 20; ++i) run.at(i * 40).asks({{5, 9}});
  run.is_sent({5, 5});
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestLimits, an_answer_begins_the_count_anew) {
  FeedRun run("feed.request_limits");
  for (int i = 0; i < 10; ++i) {
    run.at(i * 1000).asks({{5, 9}});
    run.is_sent({5, 5});
  }
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestLimits, a_link_that_loses_requests_is_an_excuse) {
  FeedRun run("feed.request_limits");
  for (int i = 0; i < 10; ++i) {
    run.at(i * 1000).asks({{5, 9}});
    run.link_says("gap fill 1: 1 request lost");
  }
  EXPECT_THAT(run.verdict(), passed());
}

TEST(FeedRequestLimits, malformed_requests_and_the_status_are_no_occasion) {
  FeedRun run("feed.request_limits");
  run.asks_wrongly("its version is 2, not 1");
  for (int i = 0; i < 10; ++i) run.at(i * 1000).asks_status();
  EXPECT_THAT(run.verdict(), not_seen());
}

}  // namespace
}  // namespace certify::feed_test
