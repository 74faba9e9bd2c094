#include <gtest/gtest.h>

#include "tests/certify/checks/support/order_talk.h"

namespace certify {
namespace {

using namespace std::chrono_literals;
using Names = std::set<std::string>;

Verdict belief_of(const OrderTalk& talk, const char* check) { return talk.verdicts().at(check); }

/// An order filled, one that rests partly filled, one replaced and one refused.
void trades(OrderTalk& talk) {
  talk.order("o1").accepts("o1").fills("o1", 100);
  talk.order("o2", 300).accepts("o2").fills("o2", 100);
  talk.order("o3").accepts("o3").replace("o4", "o3", 200).replaces("o3", "o4", 200);
  talk.order("o5").refuses("o5").wait(2s);
}

Names failures_of(const std::string& file, const std::string& content) {
  OrderTalk talk;
  trades(talk);
  talk.believes(file, content).closing().ends();
  return talk.failures();
}

Names positions(const std::string& content) { return failures_of("positions.csv", content); }

constexpr const char* RIGHT =
    "cl_ord_id,state,cum,leaves,avg_px\n"
    "o1,filled,100,0,185\n"
    "o2,partially filled,100,200,185.0000\n"
    "o4,open,0,200,0\n"
    "o5,rejected,0,0,\n";

TEST(BeliefPositions, the_truth_passes_in_whatever_words) {
  EXPECT_EQ(positions(RIGHT), Names{});
  EXPECT_EQ(positions("o1,2,100,0,185\r\no2,1,100,200,185\r\no4,5,0,200,0\r\n"), Names{});
  EXPECT_EQ(positions("# mine\n\no1,DONE,100,0,185\no2,Partially_Filled,100,200,\no4,New,0,200,0"),
            Names{});
  // By the name that a replace has retired, too.
  EXPECT_EQ(positions("o1,closed,100,0,185\no2,live,100,200,185\no3,open,0,200,0\n"), Names{});
  EXPECT_EQ(positions("o1,filled,100,0,\no2,open,100,200,\no3,replaced,0,0,\no4,open,0,200,\n"),
            Names{});
}

struct Change {
  const char* from;
  const char* to;
};
class WrongPositions : public testing::TestWithParam<Change> {};

TEST_P(WrongPositions, are_a_fault_of_this_check_alone) {
  std::string content = RIGHT;
  const std::string from = GetParam().from;
  content.replace(content.find(from), from.size(), GetParam().to);
  EXPECT_EQ(positions(content), Names{"belief.positions"});
}

INSTANTIATE_TEST_SUITE_P(
    OneChange, WrongPositions,
    testing::Values(Change{"o1,filled", "o1,cancelled"}, Change{"o1,filled,100", "o1,filled,101"},
                    Change{"100,0,185", "100,0,186"}, Change{"o2,partially filled", "o2,filled"},
                    Change{"100,200,", "100,100,"}, Change{"o4,open", "o4,partial"},
                    Change{"o4,open,0,200,0\n", ""}, Change{"o1,filled,100,0,185\n", ""},
                    Change{"o5,rejected,0,0", "o5,open,0,100"}, Change{"o5,", "o9,"},
                    // Malformed
                    Change{"o1,filled", "o1,fulfilled"}, Change{"100,0,185", "100,0,1l5"},
                    Change{"100,0,185", "100,-1,185"}, Change{"100,0,185", "100,0"},
                    Change{"o1,filled", ",filled"}));

TEST(BeliefPositions, a_malformed_line_is_named_with_its_word) {
  OrderTalk talk;
  talk.believes("positions.csv", "cl_ord_id,state,cum,leaves,avg_px\no1,open,many,0,0\n");
  talk.closing().ends();
  const Verdict verdict = belief_of(talk, "belief.positions");
  ASSERT_EQ(verdict.faults.size(), 1U);
  EXPECT_EQ(verdict.faults[0].what, "positions.csv, line 2: 'many' is no number of shares");
}

TEST(BeliefPositions, every_difference_is_counted_and_ten_are_quoted) {
  OrderTalk talk;
  std::string content;
  for (int i = 0; i < 12; ++i) content += "x" + std::to_string(i) + ",open,0,100,0\n";
  talk.believes("positions.csv", content).closing().ends();
  EXPECT_EQ(belief_of(talk, "belief.positions").fault_count, 12U);
  EXPECT_EQ(belief_of(talk, "belief.positions").faults.size(), 10U);
}

TEST(BeliefPositions, what_was_true_within_the_grace_may_still_be_believed) {
  for (const auto& [pause, fails] : {std::pair{990ms, false}, std::pair{1010ms, true}}) {
    OrderTalk talk;
    talk.order("o1").accepts("o1").wait(5s).fills("o1", 100).wait(pause);
    talk.believes("positions.csv", "o1,open,0,100,0\n").ends();
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.positions"} : Names{}) << pause.count();
  }
}

TEST(BeliefPositions, what_the_client_was_never_told_is_not_its_belief_s_fault) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").wait(2s).loses().fills("o1", 100);
  talk.dialogue.exchange_closes().closes();
  talk.wait(20s).believes("positions.csv", "o1,open,0,100,0\n").closing().ends();
  EXPECT_EQ(talk.failures(), Names{"recovery.reports"});
  EXPECT_EQ(belief_of(talk, "belief.positions").remarks.size(), 1U);
}

TEST(BeliefPositions, what_reached_the_client_behind_the_file_is_not_in_it) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").wait(2s).loses().fills("o1", 100).loses(false).wait(2s);
  talk.believes("positions.csv", "o1,open,0,100,0\n").ends();
  talk.replays(3).wait(2s).closing();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(belief_of(talk, "belief.positions").remarks.size(), 1U);
}

TEST(BeliefPositions, a_replay_has_the_grace_like_any_other_message) {
  for (const auto& [pause, fails] : {std::pair{990ms, false}, std::pair{1010ms, true}}) {
    OrderTalk talk;
    talk.order("o1").accepts("o1").wait(2s).loses().fills("o1", 100).loses(false).wait(2s);
    talk.replays(3).wait(pause).believes("positions.csv", "o1,open,0,100,0\n").closing().ends();
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.positions"} : Names{}) << pause.count();
  }
}

TEST(BeliefPositions, an_order_first_told_behind_the_file_is_not_in_it) {
  OrderTalk talk;
  talk.order("o1").loses().accepts("o1").fills("o1", 50).loses(false).wait(2s);
  talk.believes("positions.csv", "").ends();
  talk.replays(2).replays(3).wait(2s).closing();
  EXPECT_EQ(talk.failures(), Names{});
}

TEST(BeliefPositions, an_order_that_the_exchange_never_had_is_pending_or_given_up) {
  for (const auto& [line, fails] :
       {std::pair{"o1,pending,0,100,0\n", false}, std::pair{"o1,cancelled,0,0,0\n", false},
        std::pair{"o1,open,0,100,0\n", true}}) {
    OrderTalk talk;
    talk.order("o1").wait(2s).believes("positions.csv", line).ends();
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.positions"} : Names{}) << line;
  }
}

TEST(BeliefPositions, an_unread_file_and_no_file_are_not_seen) {
  OrderTalk talk;
  trades(talk);
  talk.closing().ends();
  for (const char* name : {"belief.positions", "belief.events", "belief.book"}) {
    EXPECT_EQ(belief_of(talk, name).outcome, Outcome::NOT_SEEN);
  }
}

// --- belief.events ---

constexpr const char* EVENTS =
    R"({"t":1,"ev":"fill","cl":"o1","oid":1000,"symbol":"AAPL","side":"B","qty":100,"px":185,"cum":100,"leaves":0,"last_qty":100,"text":""}
{"t":2,"ev":"new","cl":"o1","oid":1000,"symbol":"AAPL","side":"B","qty":100,"px":185,"cum":0,"leaves":100,"last_qty":0,"text":""}
)";

TEST(BeliefEvents, the_same_events_pass_in_any_order_and_at_any_time) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").fills("o1", 100).wait(2s);
  talk.believes("events.jsonl", EVENTS).closing().ends();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(belief_of(talk, "belief.events").outcome, Outcome::PASSED);
}

TEST(BeliefEvents, what_differs_is_missing_and_too_many) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").fills("o1", 100).wait(2s);
  std::string content = EVENTS;
  content.replace(content.find("\"last_qty\":100"), 14, "\"last_qty\":50");
  talk.believes("events.jsonl", content).closing().ends();
  EXPECT_EQ(talk.failures(), Names{"belief.events"});
  const Verdict verdict = belief_of(talk, "belief.events");
  ASSERT_EQ(verdict.faults.size(), 1U);
  EXPECT_EQ(verdict.faults[0].evidence.size(), 2U);
}

TEST(BeliefEvents, a_malformed_line_is_a_fault) {
  OrderTalk talk;
  talk.believes("events.jsonl", "{\"t\":1}\n").closing().ends();
  EXPECT_EQ(talk.failures(), Names{"belief.events"});
}

TEST(BeliefEvents, what_is_decided_within_the_grace_may_be_missing) {
  for (const auto& [pause, fails] : {std::pair{990ms, false}, std::pair{1010ms, true}}) {
    OrderTalk talk;
    talk.order("o1").accepts("o1").fills("o1", 100).order("o2").accepts("o2").wait(pause);
    talk.believes("events.jsonl", EVENTS).ends();
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.events"} : Names{}) << pause.count();
  }
}

TEST(BeliefEvents, what_reached_the_client_behind_the_file_is_not_in_it) {
  for (const auto& [pause, fails] : {std::pair{990ms, false}, std::pair{1010ms, true}}) {
    OrderTalk talk;
    talk.order("o1").accepts("o1").loses().fills("o1", 100).loses(false).wait(2s);
    const std::string accepted = std::string(EVENTS).substr(std::string(EVENTS).find('\n') + 1);
    talk.believes("events.jsonl", accepted).ends().replays(3).wait(pause).ends().wait(2s);
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.events"} : Names{}) << pause.count();
  }
}

// --- session.duplicates ---

TEST(Duplicates, a_fill_that_comes_again_is_not_booked_again) {
  for (const auto& [cum, fails] : {std::pair{"100,200", false}, std::pair{"200,100", true}}) {
    OrderTalk talk;
    talk.order("o1", 300).accepts("o1").fills("o1", 100).wait(1s).replays(2).replays(3).wait(2s);
    talk.believes("positions.csv", "o1,open," + std::string(cum) + ",185\n").closing().ends();
    EXPECT_EQ(talk.failures(), fails ? Names{"session.duplicates"} : Names{});
    EXPECT_EQ(belief_of(talk, "session.duplicates").occasions, 1U);
  }
}

TEST(Duplicates, too_much_by_anything_else_is_belief_s_fault) {
  OrderTalk talk;
  talk.order("o1", 300).accepts("o1").fills("o1", 100).wait(1s).replays(3).wait(2s);
  talk.believes("positions.csv", "o1,open,150,150,185\n").closing().ends();
  EXPECT_EQ(talk.failures(), Names{"belief.positions"});
}

TEST(Duplicates, a_fill_that_first_came_as_a_replay_was_no_repetition) {
  OrderTalk talk;
  talk.order("o1", 300).accepts("o1").loses().fills("o1", 100).loses(false).replays(3).wait(2s);
  talk.believes("positions.csv", "o1,open,100,200,185\n").closing().ends();
  EXPECT_EQ(talk.failures(), Names{});
  EXPECT_EQ(belief_of(talk, "session.duplicates").outcome, Outcome::NOT_SEEN);
}

TEST(Duplicates, an_event_taken_twice_shows_in_the_events) {
  OrderTalk talk;
  talk.order("o1").accepts("o1").fills("o1", 100).replays(3).wait(2s);
  const std::string fill = std::string(EVENTS).substr(0, std::string(EVENTS).find('\n') + 1);
  talk.believes("events.jsonl", EVENTS + fill).closing().ends();
  EXPECT_EQ(talk.failures(), Names{"session.duplicates"});
  talk.believes("events.jsonl", EVENTS + fill + fill);
  EXPECT_EQ(talk.failures(), Names{"belief.events"});
}

// --- belief.book ---

std::string book(const std::string& bid) {
  return R"({"ts_ns":1,"symbols":{"AAPL":{"bid":[[)" + bid +
         R"(,300]],"ask":[[190,500]],"last":190,"volume":1200}}})" + "\n";
}

TEST(BeliefBook, the_levels_are_those_of_the_exchange_s_own_file) {
  for (const auto& [bid, fails] : {std::pair{"189.99", false}, std::pair{"189.98", true}}) {
    OrderTalk talk;
    talk.believes("truth-book.json", book("189.99")).believes("book.json", book(bid));
    talk.closing().ends();
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.book"} : Names{});
  }
}

TEST(BeliefBook, a_malformed_file_or_an_unknown_symbol_is_a_fault) {
  std::string other = book("189.99");
  other.replace(other.find("AAPL"), 4, "MSFT");
  for (const std::string& content : {std::string("{}\n"), other}) {
    OrderTalk talk;
    talk.believes("truth-book.json", book("189.99")).believes("book.json", content);
    talk.closing().ends();
    EXPECT_EQ(talk.failures(), Names{"belief.book"});
  }
}

TEST(BeliefBook, at_a_mark_what_the_market_truth_had_within_the_grace_counts) {
  struct Case {
    const char* bid;
    bool fails;
  };
  // 10 was shown before the grace began and until within it, 11 in it, 12 behind the mark.
  for (const auto& [bid, fails] :
       {Case{"189.96", true}, Case{"189.97", false}, Case{"189.98", false}, Case{"189.99", true}}) {
    OrderTalk talk;
    talk.believes("book.json", book(bid));
    talk.believes(
        "market.jsonl",
        R"({"seq":9,"secid":1,"symbol":"AAPL","bid":[[189.9600,300]],"ask":[[190.0000,500]]}
{"seq":10,"secid":1,"symbol":"AAPL","bid":[[189.9700,300]],"ask":[[190.0000,500]]}
{"seq":11,"secid":1,"symbol":"AAPL","bid":[[189.9800,300]],"ask":[[190.0000,500]]}
{"mark":"noon","seq":11}
{"seq":12,"secid":1,"symbol":"AAPL","bid":[[189.9900,300]],"ask":[[190.0000,500]]}
)");
    FeedHeard ten;
    ten.packet.header.first_seq = 9;
    ten.packet.header.message_count = 2;
    talk.dialogue.happens(ten);
    talk.wait(2s);
    FeedHeard eleven;
    eleven.packet.header.first_seq = 11;
    eleven.packet.header.message_count = 1;
    talk.dialogue.happens(eleven);
    talk.ends();
    talk.market_truth =
        std::get<BeliefTaken>(talk.dialogue.events().back().what).folder + "/market.jsonl";
    EXPECT_EQ(talk.failures(), fails ? Names{"belief.book"} : Names{}) << bid;
  }
}

}  // namespace
}  // namespace certify
