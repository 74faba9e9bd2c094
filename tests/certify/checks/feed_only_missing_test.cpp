#include <gtest/gtest.h>

#include "tests/certify/checks/support/feed_run.h"

namespace certify::feed_test {
namespace {

/// A client that took an image at 1000 ms and has heard the feed ever since. What comes from 3000
/// ms on counts as heard, and from a second later on it must not be asked for.
class FeedOnlyMissing : public ::testing::Test {
 protected:
  FeedOnlyMissing() {
    run.hears(run.makes(49));
    run.at(0).starts();
    run.at(1000).takes_image();
    run.runs_until(3000);
  }

  FeedRun run{"feed.only_missing"};
};

TEST_F(FeedOnlyMissing, a_hole_may_be_asked_for) {
  run.runs_until(4000);
  const auto lost = run.loses(3);
  run.runs_until(6000);
  run.fetches(lost);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, one_number_too_many_at_each_end_may_be_asked_for) {
  run.runs_until(4000);
  const auto lost = run.loses(3);
  run.runs_until(6000);
  run.asks({{lost.first - 1, lost.first + 3}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, what_came_by_multicast_must_not_be_asked_for) {
  const uint64_t first = run.at(3100).next();
  run.runs_until(3200);
  run.runs_until(6000);
  run.asks({{first + 10, first + 12}});
  EXPECT_THAT(run.verdict(), failed_with("which had arrived"));
}

TEST_F(FeedOnlyMissing, two_numbers_too_many_are_a_fault) {
  run.runs_until(4000);
  run.heartbeat();  // settles the numbers ahead of it
  const auto lost = run.loses(3);
  run.runs_until(6000);
  run.asks({{lost.first - 2, lost.first + 2}});
  EXPECT_THAT(run.verdict(), failed_with("which had arrived"));
}

TEST_F(FeedOnlyMissing, what_came_within_the_grace_may_be_asked_for) {
  run.runs_until(4000);
  const uint64_t first = run.next();
  run.runs_until(4900);
  run.asks({{first, first + 10}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, what_gap_fill_brought_must_not_be_asked_for_again) {
  run.runs_until(4000);
  const auto lost = run.loses(5);
  run.runs_until(4100);
  run.fetches(lost);
  run.runs_until(6000);
  run.asks(lost);
  EXPECT_THAT(run.verdict(), failed_with("which had arrived"));
}

TEST_F(FeedOnlyMissing, what_was_asked_for_and_did_not_come_may_be_asked_for_again) {
  run.runs_until(4000);
  const auto lost = run.loses(5);
  run.runs_until(4100);
  run.asks(lost);
  run.runs_until(8000);
  run.asks(lost);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, a_packet_that_is_late_may_have_been_asked_for) {
  run.runs_until(4000);
  const auto held = run.holds_back(4);
  run.hears(run.makes(2));
  run.at(4900).asks(held);
  run.at(4901).hears(held);
  run.is_sent(held);
  run.runs_until(9000);
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, behind_an_image_the_account_begins_anew) {
  run.runs_until(4000);
  const uint64_t first = run.next();
  run.runs_until(8000);
  run.takes_image();
  run.runs_until(9000);
  run.asks({{first, first + 500}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, a_client_that_begins_again_with_number_1_begins_anew) {
  run.runs_until(8000);
  run.asks({{1, 1000}});
  run.at(8001).is_sent({1, 40});
  run.at(9500).asks({{1001, 2000}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, a_client_that_begins_again_all_the_time_asks_for_all_there_is) {
  for (int i = 1; i <= 4; ++i) {
    run.fetches({1, 20});
    run.runs_until(3000 + 1500 * i);
  }
  EXPECT_THAT(run.verdict(), failed_with("which had arrived"));
}

TEST_F(FeedOnlyMissing, numbers_one_too_high_mislead_nobody) {
  run.runs_until(4000);
  run.hears_one_too_high(run.makes(40));
  const auto lost = run.loses(3);
  run.hears_one_too_high(run.makes(40));
  run.runs_until(6000);
  run.asks({{lost.first, lost.first + 3}});  // what the announced number makes of it
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, a_client_may_ask_for_what_has_not_been_sent) {
  run.runs_until(6000);
  run.asks({{run.next(), run.next() + 5}});
  EXPECT_THAT(run.verdict(), passed());
}

TEST_F(FeedOnlyMissing, the_status_and_what_is_malformed_are_no_occasion) {
  run.runs_until(6000);
  run.asks_status();
  run.asks_wrongly("its version is 2, not 1");
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST_F(FeedOnlyMissing, on_its_way_out_a_client_is_not_judged) {
  run.runs_until(6000);
  run.closes();
  run.asks({{run.next() - 3500, run.next() - 3400}});
  EXPECT_THAT(run.verdict(), not_seen());
}

TEST(FeedOnlyMissingJoining, a_client_that_joins_by_gap_fill_asks_for_all_of_it) {
  FeedRun run("feed.only_missing");
  for (int i = 0; i < 100; ++i) run.hears(run.makes(40));
  run.at(0).starts();
  run.runs_until(5000);
  for (uint64_t first = 1; first < 10'000; first += 1000) {
    run.asks({{first, first + 999}});
    for (uint64_t piece = 0; piece < 1000; piece += 40) run.is_sent({first + piece, 40});
    run.runs_until(5000 + static_cast<int64_t>(first) / 3);
  }
  EXPECT_THAT(run.verdict(), passed());
}

}  // namespace
}  // namespace certify::feed_test
