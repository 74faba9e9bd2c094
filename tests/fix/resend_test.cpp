#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include "fix/outbox.h"
#include "fix/reports.h"
#include "fix/session.h"
#include "market/engine.h"
#include "support/fix_wire.h"
#include "support/fix_wire_gateway.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

using testing::ElementsAre;

class Resend : public testing::Test {
 protected:
  SessionMemory stream() { return {gateway.exchange.engine, "ALPHA"}; }
  BenchCounters& counters() { return gateway.exchange.scenario.counters; }
  std::string said_on(WirePeer& peer, const std::string& body) {
    return standard_error_of([&] { peer.says(body); });
  }

  /// Logon reply 1, reports 2 and 3, Heartbeat 4; next_out is 5 and next_in 5.
  WirePeer with_two_reports_between_session_messages() {
    WirePeer alpha = gateway.logs_on("ALPHA");
    alpha.says("35=D|34=2|11=a1|55=AAPL|54=1|38=100|40=2|44=100|18=i");
    reports.push_back(alpha.next_message());
    alpha.says("35=D|34=3|11=a2|55=NOPE|54=1|38=100|40=2|44=100|18=i");
    reports.push_back(alpha.next_message());
    alpha.says("35=1|34=4");
    alpha.hears("35=0|34=4");
    EXPECT_EQ(stream().next_out(), 5U);
    return alpha;
  }

  /// Puts so many reports into the store, numbered from `first` up. None of them is sent.
  void stores(uint32_t first, int count = 1) {
    stream().set_next_out(first);
    Engine& engine = gateway.exchange.engine;
    FixStream& alpha = engine.stream_named("ALPHA");
    for (int i = 0; i < count; ++i) {
      Outbox unsent;
      build_new_report({engine, alpha, unsent}, Order{}, "AAPL");
    }
  }

  /// What one ResendRequest brings: "R3" for the replay of 3, "G4-6" for a gap fill from 4 whose
  /// next number is 6.
  std::vector<std::string> brought_by(WirePeer& peer, const std::string& range) {
    peer.writes(framed("35=2|34=" + std::to_string(stream().next_in()) + range));
    log = standard_error_of([&] { gateway.serves(); });
    std::vector<std::string> brought;
    const size_t end = log.find(" application message(s), ");
    const size_t counts_begin = log.find("replayed ") + 9;
    const int messages = std::stoi(log.substr(counts_begin)) + std::stoi(log.substr(end + 25));
    for (int i = 0; i < messages; ++i) {
      const FixFields fields = fields_of(peer.next_message());
      EXPECT_EQ(value_of(fields, 43), "Y");
      const std::string seq = value_of(fields, 34);
      if (value_of(fields, 35) == "4") {
        EXPECT_EQ(value_of(fields, 123), "Y");
        EXPECT_EQ(value_of(fields, 122), "(absent)");
        brought.push_back("G" + seq + "-" + value_of(fields, 36));
      } else {
        brought.push_back("R" + seq);
      }
    }
    peer.hears_nothing();
    return brought;
  }

  WireGateway gateway;
  std::vector<std::string> reports;  // as they were first sent
  std::string log;                   // of the last brought_by
};

/// The message with the fields of those tags taken out.
std::string without(const std::string& message, std::initializer_list<int> tags) {
  std::string rest;
  for (const auto& [tag, value] : fields_of(message)) {
    if (std::find(tags.begin(), tags.end(), tag) == tags.end()) {
      rest += std::to_string(tag) + "=" + value + "|";
    }
  }
  return rest;
}

// --- Serving ---

TEST_F(Resend, writes_a_gap_fill_byte_for_byte) {
  WirePeer alpha = with_two_reports_between_session_messages();
  advance_ms(1000);
  alpha.says("35=2|34=5|7=1|16=1");
  alpha.hears_exactly(
      "8=FIX.4.2|9=68|35=4|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:21.123|43=Y|123=Y|36=2|10=098|");
}

TEST_F(Resend, writes_a_replay_byte_for_byte) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  alpha.says("35=D|34=2|11=a1|55=AAPL|54=1|38=100|40=2|44=100|18=i");
  alpha.hears_exactly(
      "8=FIX.4.2|9=187|35=8|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|17=E1|20="
      "0|"
      "150=0|39=0|55=AAPL|54=1|38=100|18=i|40=2|47=P|59=0|44=100|32=0|31=0|151=100|14=0|6=0|"
      "60=20231114-22:13:20.123|10=004|");
  advance_ms(1000);
  alpha.says("35=2|34=3|7=2|16=2");
  alpha.hears_exactly(
      "8=FIX.4.2|9=218|35=8|34=2|49=IEXG|56=ALPHA|52=20231114-22:13:21.123|43=Y|"
      "122=20231114-22:13:20.123|37=1000|11=a1|17=E1|20=0|150=0|39=0|55=AAPL|54=1|38=100|18=i|40=2|"
      "47=P|59=0|44=100|32=0|31=0|151=100|14=0|6=0|60=20231114-22:13:20.123|10=238|");
}

TEST_F(Resend, changes_nothing_of_a_report_but_its_marks_time_and_sums) {
  WirePeer alpha = with_two_reports_between_session_messages();
  alpha.says("35=F|34=5|11=c1|41=nope");
  reports.push_back(alpha.next_message());
  advance_ms(60'000);
  alpha.says("35=2|34=6|7=2|16=3");
  alpha.says("35=2|34=7|7=5|16=5");
  for (const std::string& report : reports) {
    const std::string replay = alpha.next_message();
    EXPECT_NE(replay, report);
    EXPECT_EQ(without(replay, {43, 122, 52, 9, 10}), without(report, {52, 9, 10}));
    const FixFields fields = fields_of(replay);
    EXPECT_EQ(value_of(fields, 122), "20231114-22:13:20.123");
    EXPECT_EQ(value_of(fields, 52), "20231114-22:14:20.123");
  }
}

TEST_F(Resend, serves_each_range_of_the_table) {
  WirePeer alpha = with_two_reports_between_session_messages();
  struct Range {
    std::string asked;
    std::string told;  // behind "from ALPHA "
    std::vector<std::string> brought;
  };
  const std::vector<Range> ranges = {
      {"|7=2|16=2", "7=2 16=2 -> serving 2..2", {"R2"}},
      {"|7=1|16=3", "7=1 16=3 -> serving 1..3", {"G1-2", "R2", "R3"}},
      {"|7=3|16=100", "7=3 16=100 -> serving 3..4", {"R3", "G4-5"}},
      {"|7=3|16=4", "7=3 16=4 -> serving 3..4", {"R3", "G4-5"}},
      {"|7=3|16=5", "7=3 16=5 -> serving 3..4", {"R3", "G4-5"}},
      {"|7=4|16=0", "7=4 16=0 -> serving 4..4", {"G4-5"}},
      {"|7=1|16=1", "7=1 16=1 -> serving 1..1", {"G1-2"}},
      {"|7=9|16=0", "7=9 16=0 -> serving 9..4", {}},
      {"|7=5|16=0", "7=5 16=0 -> serving 5..4", {}},
      {"|7=3|16=2", "7=3 16=2 -> serving 3..2", {}},
      {"|7=0|16=0", "7=0 16=0 -> serving 0..4", {"G0-2", "R2", "R3", "G4-5"}},
      {"|7=0|16=1", "7=0 16=1 -> serving 0..1", {"G0-2"}},
      {"|7=3", "7=3 16=0 -> serving 3..4", {"R3", "G4-5"}},
      {"|16=2", "7=0 16=2 -> serving 0..2", {"G0-2", "R2"}},
      {"", "7=0 16=0 -> serving 0..4", {"G0-2", "R2", "R3", "G4-5"}},
      {"|7=abc|16=xyz", "7=0 16=0 -> serving 0..4", {"G0-2", "R2", "R3", "G4-5"}},
      {"|7=4294967298|16=2", "7=2 16=2 -> serving 2..2", {"R2"}},
      {"|7=2|16=-1", "7=2 16=4294967295 -> serving 2..4", {"R2", "R3", "G4-5"}},
      {"|7=-1|16=0", "7=4294967295 16=0 -> serving 4294967295..4", {}},
      {"|7=2|16=999999", "7=2 16=999999 -> serving 2..4", {"R2", "R3", "G4-5"}},
  };
  for (const Range& range : ranges) {
    SCOPED_TRACE(range.asked);
    EXPECT_EQ(brought_by(alpha, range.asked), range.brought);
    const size_t replayed = static_cast<size_t>(
        std::count_if(range.brought.begin(), range.brought.end(),
                      [](const std::string& message) { return message.front() == 'R'; }));
    EXPECT_EQ(log, "bench: ResendRequest from ALPHA " + range.told +
                       "\nbench: resend done: replayed " + std::to_string(replayed) +
                       " application message(s), " +
                       std::to_string(range.brought.size() - replayed) + " GapFill(s)\n");
  }
  EXPECT_EQ(stream().next_out(), 5U);
}

TEST_F(Resend, covers_each_run_of_missing_numbers_by_one_gap_fill) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  for (const uint32_t seq : {4U, 5U, 9U}) stores(seq);
  stream().set_next_out(21);
  EXPECT_THAT(brought_by(alpha, "|7=1|16=0"),
              ElementsAre("G1-4", "R4", "R5", "G6-9", "R9", "G10-21"));
  EXPECT_THAT(brought_by(alpha, "|7=2|16=7"), ElementsAre("G2-4", "R4", "R5", "G6-8"));
  EXPECT_THAT(brought_by(alpha, "|7=5|16=8"), ElementsAre("R5", "G6-9"));
  EXPECT_THAT(brought_by(alpha, "|7=6|16=8"), ElementsAre("G6-9"));
  EXPECT_THAT(brought_by(alpha, "|7=10|16=15"), ElementsAre("G10-16"));
}

TEST_F(Resend, gap_fills_what_has_left_the_store_and_walks_a_full_one_in_one_go) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  stores(1, 200001);
  EXPECT_THAT(brought_by(alpha, "|7=1|16=3"), ElementsAre("G1-2", "R2", "R3"));

  // The whole range, in a lapse: what is asked here is the cost of finding, not of sending.
  gateway.is_silent_for(1);
  EXPECT_EQ(said_on(alpha, "35=2|34=" + std::to_string(stream().next_in()) + "|7=1|16=0"),
            "bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..200001\n"
            "bench: resend done: replayed 200000 application message(s), 1 GapFill(s)\n");
}

TEST_F(Resend, comes_to_an_end_at_the_highest_number_there_is) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  stores(4294967290);
  stream().set_next_out(0);  // the next one wraps
  EXPECT_EQ(said_on(alpha, "35=2|34=2|7=4294967289|16=0"),
            "bench: ResendRequest from ALPHA 7=4294967289 16=0 -> serving 4294967289..4294967295\n"
            "bench: resend done: replayed 1 application message(s), 2 GapFill(s)\n");
  alpha.hears("35=4|34=4294967289|36=4294967290");
  alpha.hears("35=8|34=4294967290");
  alpha.hears("35=4|34=4294967291");
}

TEST_F(Resend, in_a_lapse_runs_counts_and_is_spent) {
  WirePeer alpha = with_two_reports_between_session_messages();
  gateway.is_silent_for(100);
  EXPECT_EQ(said_on(alpha, "35=2|34=5|7=1|16=0"),
            "bench: ResendRequest from ALPHA 7=1 16=0 -> serving 1..4\n"
            "bench: resend done: replayed 2 application message(s), 2 GapFill(s)\n");
  alpha.hears_nothing();
  EXPECT_EQ(counters().replays, 1U);
  EXPECT_EQ(counters().replayed, 2U);
  advance_ms(100);
  gateway.serves();
  alpha.hears_nothing();
  EXPECT_THAT(brought_by(alpha, "|7=1|16=0"), ElementsAre("G1-2", "R2", "R3", "G4-5"));
}

TEST_F(Resend, after_a_lapse_brings_the_reports_and_covers_the_session_messages) {
  WirePeer alpha = gateway.logs_on("ALPHA");
  gateway.is_silent_for(100);
  alpha.says("35=1|34=2|112=x");
  alpha.says("35=D|34=3|11=a1|55=AAPL|54=1|38=100|40=2|44=100|18=i");
  alpha.hears_nothing();
  advance_ms(100);
  EXPECT_THAT(brought_by(alpha, "|7=2|16=0"), ElementsAre("G2-3", "R3"));
}

TEST_F(Resend, counts_as_a_send_of_ours) {
  WirePeer alpha = with_two_reports_between_session_messages();
  advance_ms(250);
  alpha.says("35=2|34=5|7=4|16=4");
  EXPECT_EQ(alpha.client().last_tx_ms, static_cast<int64_t>(START_STEADY_MS + 250));
}

}  // namespace
}  // namespace quorl::test
