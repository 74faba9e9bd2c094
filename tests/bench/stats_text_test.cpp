#include "bench/stats_text.h"

#include <gtest/gtest.h>

#include <string>

#include "bench/scenario.h"
#include "fix/stream_records.h"
#include "support/exchange.h"
#include "support/fix_wire_gateway.h"
#include "support/inside.h"

namespace quorl::test {
namespace {

TEST(BenchStatsText, has_18_pairs_of_0_at_start) {
  Exchange exchange("AAPL:190.00");
  EXPECT_EQ(bench_stats_text(exchange.scenario),
            "orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 "
            "replace_rejects=0 cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 "
            "stale_cancels=0 logins=0 logons=0 resend_requests=0 replays=0 replayed=0");
}

TEST(BenchStatsText, shows_each_counter_behind_its_key_and_the_logons_twice) {
  Exchange exchange("AAPL:190.00");
  exchange.scenario.counters = {.orders = 1,
                                .accepts = 2,
                                .fills = 3,
                                .partials = 4,
                                .cancels = 5,
                                .replaces = 6,
                                .rejects = 7,
                                .replace_rejects = 8,
                                .cancel_rejects = 9,
                                .unsolicited_cancels = 10,
                                .race_fills = 11,
                                .cancel_requests = 91,
                                .replace_requests = 92,
                                .late_cancels = 12,
                                .stale_cancels = 13,
                                .logons = 14,
                                .resend_requests = 15,
                                .replays = 16,
                                .replayed = 18446744073709551615U,
                                .partial_candidates = 93};
  EXPECT_EQ(bench_stats_text(exchange.scenario),
            "orders=1 accepts=2 fills=3 partials=4 cancels=5 replaces=6 rejects=7 "
            "replace_rejects=8 cancel_rejects=9 unsolicited_cancels=10 race_fills=11 "
            "late_cancels=12 stale_cancels=13 logins=14 logons=14 resend_requests=15 replays=16 "
            "replayed=18446744073709551615");
}

TEST(BenchStatsText, shows_an_accepted_logon_under_both_keys) {
  WireGateway gateway;
  standard_error_of([&] { gateway.logs_on("ALPHA"); });
  EXPECT_EQ(bench_stats_text(gateway.exchange.scenario),
            "orders=0 accepts=0 fills=0 partials=0 cancels=0 replaces=0 rejects=0 "
            "replace_rejects=0 cancel_rejects=0 unsolicited_cancels=0 race_fills=0 late_cancels=0 "
            "stale_cancels=0 logins=1 logons=1 resend_requests=0 replays=0 replayed=0");
}

TEST(BenchStatsText, does_not_move_for_an_order_that_the_ladder_refuses) {
  Exchange exchange("AAPL:190.00");
  const std::string before = bench_stats_text(exchange.scenario);
  FixPeer alpha = exchange.logs_on("ALPHA");
  alpha.says("35=D|11=a1|55=NOPE|54=1|38=100|40=2|44=190|18=i");
  alpha.hears("35=8|150=8|55=NOPE|58=UnknownSymbol");
  EXPECT_EQ(bench_stats_text(exchange.scenario), before);
}

TEST(BenchStatsText, counts_a_lost_race_as_a_fill_and_a_refused_cancel_and_not_as_a_cancel) {
  Exchange exchange("AAPL:190.00");
  exchange.scenario.fills_on_cancel.next = 1;
  FixPeer alpha = exchange.logs_on("ALPHA");
  alpha.says("35=D|11=a1|55=AAPL|54=1|38=100|40=2|44=190|18=i");
  standard_error_of([&] { alpha.says("35=F|11=c1|41=a1"); });
  EXPECT_EQ(bench_stats_text(exchange.scenario),
            "orders=1 accepts=1 fills=1 partials=0 cancels=0 replaces=0 rejects=0 "
            "replace_rejects=0 cancel_rejects=1 unsolicited_cancels=0 race_fills=1 late_cancels=0 "
            "stale_cancels=0 logins=0 logons=0 resend_requests=0 replays=0 replayed=0");
}

TEST(FaultStatsText, counts_as_sent_what_was_not_dropped) {
  Exchange exchange("AAPL:190.00");
  EXPECT_EQ(fault_stats_text(exchange.publisher),
            "quorl faults: sent 0 dropped 0 duplicated 0 reordered 0");
  standard_error_of([&] {
    flush_up_to(exchange.publisher,
                {.packets = 100, .dropped = 7, .duplicated = 5, .reordered = 3});
  });
  EXPECT_EQ(fault_stats_text(exchange.publisher),
            "quorl faults: sent 93 dropped 7 duplicated 5 reordered 3");
}

TEST(FaultStatsText, shows_half_of_ten_packets_with_every_second_one_dropped) {
  Exchange exchange("AAPL:190.00");
  exchange.publisher.faults.drop_every = 2;
  standard_error_of([&] {
    for (int i = 0; i < 10; ++i) {
      exchange.publisher.append("x", 1);
      exchange.publisher.flush();
    }
    exchange.publisher.send_heartbeat();  // counts nowhere
  });
  EXPECT_EQ(fault_stats_text(exchange.publisher),
            "quorl faults: sent 5 dropped 5 duplicated 0 reordered 0");
}

TEST(FaultStatsText, counts_a_packet_held_back_and_one_sent_twice_once_each) {
  Exchange exchange("AAPL:190.00");
  exchange.publisher.faults.reorder_next = 1;
  standard_error_of([&] {
    for (int i = 0; i < 3; ++i) {
      if (i == 2) exchange.publisher.faults.dup_next = 1;
      exchange.publisher.append("x", 1);
      exchange.publisher.flush();
    }
  });
  EXPECT_EQ(fault_stats_text(exchange.publisher),
            "quorl faults: sent 3 dropped 0 duplicated 1 reordered 1");
}

TEST(SessionText, says_up_or_down_behind_a_space) {
  EXPECT_EQ(session_text(false), " session=down");
  EXPECT_EQ(session_text(true), " session=up");
}

}  // namespace
}  // namespace quorl::test
