#include "certify/plan/judge_counters.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "certify/plan/plan.h"

namespace certify {
namespace {

/// Events of one connection, and what was counted.
class Counting {
 public:
  void event(EventKind what) { counters_.on_event({.at = 0, .what = std::move(what)}); }
  void sent(const std::string& fields) { message(Party::CLIENT, fields); }
  void received(const std::string& fields) { message(Party::EXCHANGE, fields); }
  void said(const std::string& line) { event(ExchangeSaid{.line = line}); }
  uint64_t operator[](const std::string& name) const { return counters_.values().at(name); }
  uint64_t sum() const {
    uint64_t sum = 0;
    for (const auto& [name, value] : counters_.values()) sum += value;
    return sum;
  }

 private:
  void message(Party from, std::string fields) {
    std::replace(fields.begin(), fields.end(), '|', '\x01');
    event(FixHeard{.connection = 1,
                   .from = from,
                   .message = WireMessage::read("8=FIX.4.2\x01" + fields + "\x01"),
                   .taken = 0});
  }

  JudgeCounters counters_;
};

TEST(JudgeCounters, stand_among_the_names_of_counters_once) {
  const auto& names = counter_names();
  const JudgeCounters counters;
  for (const auto& [name, value] : counters.values()) {
    EXPECT_EQ(std::count(names.begin(), names.end(), name), 1) << name;
    EXPECT_EQ(value, 0u);
  }
}

TEST(JudgeCounters, count_what_the_client_sent_for_the_first_time) {
  Counting run;
  run.sent("35=D|34=2");
  run.sent("35=D|34=2|43=Y");
  run.sent("35=F|34=3");
  run.sent("35=G|34=4");
  run.sent("35=0|34=5");
  EXPECT_EQ(run["orders_sent"], 1u);
  EXPECT_EQ(run["cancels_sent"], 1u);
  EXPECT_EQ(run["replaces_sent"], 1u);
  EXPECT_EQ(run.sum(), 3u);
}

TEST(JudgeCounters, know_a_replaced_that_overtook_its_fills) {
  Counting run;
  run.received("35=8|34=6|150=5");
  run.received("35=8|34=3|150=1");
  run.received("35=8|34=4|150=1");
  EXPECT_EQ(run["crossing_replaces"], 1u) << "once, whatever the number of fills";
  run.received("35=8|34=7|150=5");
  run.received("35=8|34=3|150=1|43=Y");
  run.received("35=8|34=8|150=1");
  run.received("35=8|34=9|150=5");
  run.event(FixEnded{.connection = 1, .by = Party::CLIENT, .reset = false, .by_link = false});
  run.received("35=8|34=1|150=0");
  EXPECT_EQ(run["crossing_replaces"], 1u);
}

TEST(JudgeCounters, count_connections_that_reached_the_exchange_and_those_cut) {
  Counting run;
  run.event(FixOpened{.connection = 1, .reached = true});
  run.event(FixOpened{.connection = 2, .reached = false});
  EXPECT_EQ(run["connects"], 1u);
  run.event(FixEnded{.connection = 1, .by = Party::CLIENT, .reset = true, .by_link = true});
  run.event(FixEnded{.connection = 1, .by = Party::EXCHANGE, .reset = true, .by_link = true});
  run.event(FixEnded{.connection = 2, .by = Party::CLIENT, .reset = true, .by_link = false});
  EXPECT_EQ(run["link_cuts"], 1u);
}

TEST(JudgeCounters, count_what_replaces_the_feed) {
  Counting run;
  run.event(GapRequested{.line = 1, .well_formed = true, .flaw = "", .ranges = {{1, 5}}});
  run.event(GapRequested{.line = 1, .well_formed = true, .flaw = "", .ranges = {}});
  run.event(GapReplied{});
  GapReplied filled;
  filled.packet.messages.resize(1);
  run.event(filled);
  run.event(ImageRequested{});
  run.event(ImageReplied{.connection = 1, .complete = true, .error = 0, .seq = 5});
  run.event(ImageReplied{.connection = 2, .complete = false, .error = 0, .seq = 0});
  run.event(ImageReplied{.connection = 3, .complete = true, .error = 'S', .seq = 0});
  EXPECT_EQ(run["gap_requests"], 1u);
  EXPECT_EQ(run["gap_replies"], 1u);
  EXPECT_EQ(run["image_requests"], 1u);
  EXPECT_EQ(run["image_replies"], 1u);
}

TEST(JudgeCounters, read_the_exchanges_lines) {
  Counting run;
  run.said("bench: logon TRADER 34=1 141=Y (stream expected 1, next out 1)");
  EXPECT_EQ(run["logons_reset"], 1u);
  run.said(
      "bench: logon TRADER 34=9 141=N (stream expected 5, next out 7) — the client's sequence "
      "is ahead of ours: ResendRequest sent");
  EXPECT_EQ(run["logons_ahead"], 1u);
  run.said("bench: logon of TRADER rejected (MsgSeqNum too low, expecting 5 but received 1)");
  EXPECT_EQ(run["logons_refused"], 1u);
  run.said("bench: dropping the connection of TRADER (driven); 1 resting order(s) kept — …");
  EXPECT_EQ(run["disconnects"], 1u);
  run.said("bench: going silent for 1500 ms (…)");
  EXPECT_EQ(run["lapses"], 1u);
  run.said("bench: client TRADER seq gap expected 3 got 5 (D) — ResendRequest sent");
  EXPECT_EQ(run["seq_gaps"], 1u);
  run.said("bench: scripted replace reject for o1 -> o2 (the order stands as it was)");
  EXPECT_EQ(run["scripted_replace_rejects"], 1u);
  run.said("bench: logon TRADER 34=9 141=N (stream expected 9, next out 7)");
  run.said("bench: client TRADER logged out (0 resting order(s) kept)");
  EXPECT_EQ(run.sum(), 7u);
}

}  // namespace
}  // namespace certify
