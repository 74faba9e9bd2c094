#include "quorl/client/stats_text.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/replaced.h"

namespace quorl::client {
namespace {

const std::string BENCH =
    "orders=1 accepts=2 fills=3 partials=4 cancels=5 replaces=6 rejects=7 replace_rejects=8 "
    "cancel_rejects=9 unsolicited_cancels=10 race_fills=11 late_cancels=12 stale_cancels=13 "
    "logins=14 logons=14 resend_requests=15 replays=16 replayed=17";
const std::string FAULTS = "quorl faults: sent 18 dropped 19 duplicated 20 reordered 21";

TEST(StatsText, the_bench_text_has_eighteen_counters_in_order) {
  const BenchStats stats = parse_bench_stats(BENCH);
  EXPECT_EQ(stats.size(), 18u);
  EXPECT_EQ(stats.at("orders"), 1u);
  EXPECT_EQ(stats.at("replayed"), 17u);
}

TEST(StatsText, a_bench_text_that_differs_anywhere_is_refused) {
  EXPECT_THROW(parse_bench_stats(with(BENCH, "orders=1 ", "")), WireError);
  EXPECT_THROW(parse_bench_stats(with(BENCH, "orders=1 accepts=2", "accepts=2 orders=1")),
               WireError);
  EXPECT_THROW(parse_bench_stats(with(BENCH, "fills=3", "fills=03")), WireError);
  EXPECT_THROW(parse_bench_stats(with(BENCH, "fills=3", "fills=")), WireError);
  EXPECT_THROW(parse_bench_stats(with(BENCH, " fills=3", "  fills=3")), WireError);
  EXPECT_THROW(parse_bench_stats(with(BENCH, "logins=14", "logins=13")), WireError);
  EXPECT_THROW(parse_bench_stats(BENCH + " "), WireError);
  EXPECT_THROW(parse_bench_stats(" " + BENCH), WireError);
}

TEST(StatsText, the_fault_text_has_four_counters) {
  EXPECT_EQ(parse_fault_stats(FAULTS), (FaultStats{18, 19, 20, 21}));
  EXPECT_THROW(parse_fault_stats(FAULTS + "\n"), WireError);
  EXPECT_THROW(parse_fault_stats(with(FAULTS, "dropped", "lost")), WireError);
}

TEST(StatsText, the_control_text_joins_both_with_the_next_number_and_the_session) {
  const ControlStats up = parse_control_stats(BENCH + " next_seq=142 " + FAULTS + " session=up");
  EXPECT_EQ(up["fills"], 3u);
  EXPECT_EQ(up.next_seq, 142u);
  EXPECT_EQ(up.faults.reordered, 21u);
  EXPECT_TRUE(up.session_up);
  EXPECT_FALSE(parse_control_stats(BENCH + " next_seq=142 " + FAULTS + " session=down").session_up);
  EXPECT_THROW(parse_control_stats(BENCH + " next_seq=142 " + FAULTS), WireError);
  EXPECT_THROW(parse_control_stats(BENCH + " next_seq=142 " + FAULTS + " session=upper"),
               WireError);
  EXPECT_THROW(parse_control_stats(BENCH + " " + FAULTS + " session=up"), WireError);
}

TEST(StatsText, the_feed_line_has_seven_counters) {
  const DeepStats stats = parse_deep_stats_line(
      "[quorl] deep msgs 1 packets 2 dropped 3 gapfill 4 snapshots 5 resting 6 clients 7");
  EXPECT_EQ(stats.messages, 1u);
  EXPECT_EQ(stats.gap_fills, 4u);
  EXPECT_EQ(stats.clients, 7u);
  EXPECT_THROW(parse_deep_stats_line("[quorl] deep msgs 1 packets 2"), WireError);
}

}  // namespace
}  // namespace quorl::client
