#include <gmock/gmock.h>

#include <ostream>
#include <set>
#include <string>

#include "certify/plan/condition.h"
#include "certify/plan/plan.h"

namespace certify {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

const std::set<std::string> CHECKS = {"session.frames", "feed.recovered", "orders.names_live"};

Plan read(const std::string& text) { return read_plan("plans/some.plan", text, CHECKS); }

/// What is said of it, one line for each mistake.
std::string mistakes(const std::string& text) {
  try {
    (void)read(text);
  } catch (const PlanError& error) {
    return error.what();
  }
  return "";
}

/// What is said of one line in a plan that is else good, without the place.
std::string mistake(const std::string& line) {
  const std::string all = mistakes("title T\n" + line + "\n");
  constexpr std::string_view PLACE = "plans/some.plan:2: ";
  EXPECT_TRUE(all.empty() || all.starts_with(PLACE)) << all;
  return all.empty() ? "" : all.substr(PLACE.size());
}

TEST(ReadPlan, keeps_what_each_word_says) {
  const Plan plan = read(
      "# A good client books the fill,\n"
      "#\n"
      "# and logs on again.\n"
      "\n"
      "# Not of the head.\n"
      "title   Two cancels lose the race  # said so\n"
      "market  --symbols AAPL:190.00 --seed 7\n"
      "market  --touch-hit 0.5\n"
      "scenario lapse_ms=1500,reject_every=3\n"
      "step    when orders >= 3     fill_on_cancel 2\n"
      "step    after 1s             drop\n"
      "step    mark here\n"
      "step    at 10s and client ended  link delay 80ms jitter 20ms\n"
      "end     when logons >= 2 and quiet for 2s\n"
      "limit   1.5min\n"
      "require race_fills >= 2\n"
      "require logons>1 and dropped = 0\n"
      "skip    feed.recovered       # this client takes no feed\n"
      "expect  orders.names_live session.frames\n"
      "belief  positions {run}/p.csv at here\n"
      "belief  book \"{run}/my book.json\"\r\n"
      "allow   grace 500ms\n"
      "allow   recovery 5s\n"
      "allow   answer 2.25s\n"
      "allow   connects 5\n"
      "allow   asks 4\n"
      "allow   repetitions 0");
  EXPECT_EQ(plan.path, "plans/some.plan");
  EXPECT_EQ(plan.name, "some");
  EXPECT_EQ(plan.title, "Two cancels lose the race");
  EXPECT_EQ(plan.purpose, "A good client books the fill,\n\nand logs on again.");
  EXPECT_THAT(plan.market,
              ElementsAre("--symbols", "AAPL:190.00", "--seed", "7", "--touch-hit", "0.5"));
  EXPECT_EQ(plan.scenario, "lapse_ms=1500,reject_every=3");
  ASSERT_THAT(plan.steps, SizeIs(4));
  EXPECT_EQ(plan.steps[0].line, 10u);
  EXPECT_EQ(plan.steps[0].action, "fill_on_cancel 2");
  EXPECT_EQ(condition_text(plan.steps[0].when), "orders >= 3");
  EXPECT_EQ(condition_text(plan.steps[1].when), "after 1s");
  EXPECT_EQ(plan.steps[1].action, "drop");
  EXPECT_THAT(plan.steps[2].when, SizeIs(0));
  EXPECT_EQ(plan.steps[2].action, "mark here");
  EXPECT_EQ(condition_text(plan.steps[3].when), "at 10s and client ended");
  EXPECT_EQ(plan.steps[3].action, "link delay 80ms jitter 20ms");
  EXPECT_EQ(condition_text(plan.end), "logons >= 2 and quiet for 2s");
  EXPECT_EQ(plan.limit, Milliseconds(90000));
  ASSERT_THAT(plan.require, SizeIs(2));
  EXPECT_EQ(condition_text(plan.require[1]), "logons > 1 and dropped = 0");
  EXPECT_THAT(plan.skip, ElementsAre("feed.recovered"));
  EXPECT_THAT(plan.expect, ElementsAre("orders.names_live", "session.frames"));
  ASSERT_THAT(plan.belief, SizeIs(2));
  EXPECT_EQ(plan.belief[0].kind, Belief::Kind::POSITIONS);
  EXPECT_EQ(plan.belief[0].path, "{run}/p.csv");
  EXPECT_EQ(plan.belief[0].mark, "here");
  EXPECT_EQ(plan.belief[1].kind, Belief::Kind::BOOK);
  EXPECT_EQ(plan.belief[1].path, "{run}/my book.json");
  EXPECT_EQ(plan.belief[1].mark, "");
  EXPECT_EQ(plan.allow.grace, Milliseconds(500));
  EXPECT_EQ(plan.allow.recovery, Milliseconds(5000));
  EXPECT_EQ(plan.allow.answer, Milliseconds(2250));
  EXPECT_EQ(plan.allow.connects, 5u);
  EXPECT_EQ(plan.allow.asks, 4u);
  EXPECT_EQ(plan.allow.repetitions, 0u);
}

TEST(ReadPlan, needs_a_title_and_nothing_else) {
  const Plan plan = read("title Calm");
  EXPECT_THAT(plan.steps, SizeIs(0));
  EXPECT_THAT(plan.end, SizeIs(0));
  EXPECT_EQ(plan.limit, Milliseconds(60000));
  EXPECT_EQ(mistakes(""), "plans/some.plan:1: a plan needs one, 'title'");
}

TEST(ReadPlan, names_all_mistakes_in_order_of_lines) {
  EXPECT_EQ(mistakes("market --seed 7\n"
                     "stepp after 1s drop\n"
                     "title T\n"
                     "step mark a\n"
                     "belief book b at c\n"
                     "step mark a\n"
                     "title U\n"
                     "limit soon\n"),
            "plans/some.plan:2: unknown word (the nearest is 'step'), 'stepp'\n"
            "plans/some.plan:5: no step sets the mark, 'c'\n"
            "plans/some.plan:6: the mark is set twice, 'a'\n"
            "plans/some.plan:7: stands twice, 'title'\n"
            "plans/some.plan:8: is no time such as 60s or 500ms, 'soon'");
}

struct Wrong {
  std::string line;
  std::string said;
};

void PrintTo(const Wrong& wrong, std::ostream* out) { *out << wrong.line; }

class Mistakes : public testing::TestWithParam<Wrong> {};

TEST_P(Mistakes, are_named) { EXPECT_EQ(mistake(GetParam().line), GetParam().said); }

INSTANTIATE_TEST_SUITE_P(
    Words, Mistakes,
    testing::Values(
        Wrong{"whatever 1", "unknown word, 'whatever'"},
        Wrong{"Step drop 1", "unknown word (the nearest is 'step'), 'Step'"},
        Wrong{"limit", "a time such as 60s is missing behind, 'limit'"},
        Wrong{"limit 60", "is no time such as 60s or 500ms, '60'"},
        Wrong{"limit 0s", "is no time such as 60s or 500ms, '0s'"},
        Wrong{"limit -1s", "is no time such as 60s or 500ms, '-1s'"},
        Wrong{"limit 1.5ms", "is no time such as 60s or 500ms, '1.5ms'"},
        Wrong{"limit 86401s", "is no time such as 60s or 500ms, '86401s'"},
        Wrong{"limit 99999999999999999999s",
              "is no time such as 60s or 500ms, '99999999999999999999s'"},
        Wrong{"limit 60s 5s", "nothing may stand here any more, '5s'"},
        Wrong{"skip", "the name of a check is missing behind, 'skip'"},
        Wrong{"skip feed.recoverd",
              "unknown check (the nearest is 'feed.recovered'), 'feed.recoverd'"},
        Wrong{"expect orders", "unknown check, 'orders'"},
        Wrong{"skip session.frames session.frames", "stands twice, 'session.frames'"},
        Wrong{"belief", "positions, events or book is missing behind, 'belief'"},
        Wrong{"belief position p", "unknown belief (the nearest is 'positions'), 'position'"},
        Wrong{"belief book", "the path of a file is missing behind, 'book'"},
        Wrong{"belief book {run}/{plan}.json", "only {run} is filled in here, '{plan}.json'"},
        Wrong{"belief book b at", "the name of a mark is missing behind, 'at'"},
        Wrong{"belief book b now", "nothing may stand here any more, 'now'"},
        Wrong{"allow", "what is allowed is missing behind, 'allow'"},
        Wrong{"allow patience 2s", "unknown allowance, 'patience'"},
        Wrong{"allow ask 2", "unknown allowance (the nearest is 'asks'), 'ask'"},
        Wrong{"allow asks", "a whole number is missing behind, 'asks'"},
        Wrong{"allow asks 2s", "is no whole number up to 1000000, '2s'"},
        Wrong{"allow asks 1000001", "is no whole number up to 1000000, '1000001'"},
        Wrong{"allow grace 2", "is no time such as 60s or 500ms, '2'"},
        Wrong{"belief book \"b", "a quote is opened and not closed, 'b'"}));

INSTANTIATE_TEST_SUITE_P(
    Steps, Mistakes,
    testing::Values(
        Wrong{"step", "an action is missing behind, 'step'"},
        Wrong{"step when orders >= 3", "an action is missing behind, 'step'"},
        Wrong{"step after 1s", "an action is missing behind, 'step'"},
        Wrong{"step orders >= 3 drop", "'when' is missing before a counter, 'orders'"},
        Wrong{"step when order >= 3 drop", "unknown counter (the nearest is 'orders'), 'order'"},
        Wrong{"step when drop 3", "unknown counter, 'drop'"},
        Wrong{"step when orders 3 drop", "is no comparison (>= > = < <=), '3'"},
        Wrong{"step when orders => 3 drop", "is no comparison (>= > = < <=), '=>'"},
        Wrong{"step when orders != 3 drop", "is no comparison (>= > = < <=), '!='"},
        Wrong{"step when orders >= many drop", "is no whole number, 'many'"},
        Wrong{"step when orders >= -1 drop", "is no whole number, '-1'"},
        Wrong{"step when orders >= 18446744073709551616 drop",
              "is no whole number, '18446744073709551616'"},
        Wrong{"step when orders >=", "a whole number is missing, '>='"},
        Wrong{"step when orders", "a comparison (>= > = < <=) is missing, 'orders'"},
        Wrong{"step when", "a condition is missing, 'when'"},
        Wrong{"step when orders >= 3 and", "a condition is missing, 'and'"},
        Wrong{"step when quiet 2s drop", "'for' is missing behind, 'quiet'"},
        Wrong{"step when quiet for drop", "is no time such as 2s or 500ms, 'drop'"},
        Wrong{"step after soon drop", "is no time such as 2s or 500ms, 'soon'"},
        Wrong{"step at", "a time such as 2s or 500ms is missing, 'at'"},
        Wrong{"step client left drop", "'ended' is missing behind, 'client'"},
        Wrong{"step dorp 3", "unknown action (the nearest is 'drop'), 'dorp'"},
        Wrong{"step explode", "unknown action, 'explode'"},
        Wrong{"step stats", "is no action: conditions know the counters, 'stats'"},
        Wrong{"step drop x", "is no whole number of 32 bits, 'x'"},
        Wrong{"step drop 4294967296", "is no whole number of 32 bits, '4294967296'"},
        Wrong{"step drop when orders >= 3",
              "a condition stands before the action, not behind it, 'when'"},
        Wrong{"step drop 3 when orders >= 3",
              "a condition stands before the action, not behind it, 'when'"},
        Wrong{"step drop 1 2", "nothing may stand here any more, '2'"},
        Wrong{"step pause 1", "nothing may stand here any more, '1'"},
        Wrong{"step drop_every", "a whole number is missing behind, 'drop_every'"},
        Wrong{"step lapse", "a whole number is missing behind, 'lapse'"},
        Wrong{"step lapse 2s", "is no whole number of 32 bits, '2s'"},
        Wrong{"step intrude", "a whole number is missing behind, 'intrude'"},
        Wrong{"step mark", "a name is missing behind, 'mark'"},
        Wrong{"step mark ../a", "a mark has up to 40 letters, digits, '_' and '-', '../a'"},
        Wrong{"step link", "what the link is to do is missing behind, 'link'"},
        Wrong{"end", "'when' is missing behind, 'end'"},
        Wrong{"end logons >= 2", "'when' is missing behind, 'end'"},
        Wrong{"end when", "a condition is missing, 'when'"},
        Wrong{"end after 2s drop", "nothing may stand here any more, 'drop'"},
        Wrong{"require", "a condition is missing, 'require'"},
        Wrong{"require race_fills", "a comparison (>= > = < <=) is missing, 'race_fills'"},
        Wrong{"require after 2s", "only counters can be required, 'after'"},
        Wrong{"require orders > 2 and quiet for 2s",
              "only counters can be required, 'quiet for 2s'"}));

INSTANTIATE_TEST_SUITE_P(
    Market, Mistakes,
    testing::Values(
        Wrong{"market", "an option is missing behind, 'market'"},
        Wrong{"market --sed 7", "is no option of the exchange (the nearest is '--seed'), '--sed'"},
        Wrong{"market seed 7", "is no option of the exchange (the nearest is '--seed'), 'seed'"},
        Wrong{"market --seed", "a value is missing behind, '--seed'"},
        Wrong{"market --seed --symbols A", "a value is missing behind, '--seed'"},
        Wrong{"market --seed 1 --seed 2", "stands twice, '--seed'"},
        Wrong{"market --seed x", "is no number: the exchange ends by an abort (stoul), '--seed x'"},
        Wrong{"market --seed 7a", "is read as 7: 'a' behind it is passed over, '--seed 7a'"},
        Wrong{"market --touch-hit 1.5",
              "is no probability: the touch is hit at every tick, as with 1, '--touch-hit 1.5'"},
        Wrong{"market --drop-burst 5:x",
              "LEN is no number: the exchange ends by an abort (stoul), '--drop-burst 5:x'"},
        Wrong{"scenario", "key=value items are missing behind, 'scenario'"},
        Wrong{"scenario reject_every=3, lapse_ms=5",
              "nothing may stand here any more, 'lapse_ms=5'"},
        Wrong{"scenario rejects=3",
              "is no key of a scenario and is passed over, 'QUORL_SCENARIO rejects=3'"},
        Wrong{"scenario reject_every",
              "has no '=' and is passed over, 'QUORL_SCENARIO reject_every'"},
        Wrong{"scenario reject_every=x",
              "is no number: the exchange ends by an abort (stoul), "
              "'QUORL_SCENARIO reject_every=x'"},
        Wrong{"scenario name=x", "arms nothing, 'QUORL_SCENARIO name=x'"}));

TEST(ReadPlan, leaves_to_the_run_what_is_the_runs) {
  for (const char* const option :
       {"--mcast", "--port", "--iface", "--snap-port", "--gapfill-port", "--fix-port",
        "--control-port", "--session", "--truth-out", "--book-out", "--bbo-out", "--quiet"}) {
    EXPECT_EQ(mistake(std::string("market ") + option + " 1"),
              "is for the run to set, so that runs keep apart and are recorded, '" +
                  std::string(option) + "'");
  }
}

TEST(ReadPlan, refuses_listings_that_the_exchange_would_misread) {
  EXPECT_THAT(mistake("market --symbols AAPL:1,AAPL:2"), HasSubstr("AAPL"));
  EXPECT_THAT(mistake("market --symbols LONGERTHAN8:1"), HasSubstr("LONGERTHAN8"));
  EXPECT_THAT(mistake("market --symbols AAPL:x"), HasSubstr("AAPL:x"));
}

TEST(ReadPlan, knows_options_of_other_market_lines) {
  EXPECT_EQ(mistakes("title T\nmarket --seed 1\nmarket --touch-hit 0.1 --seed 2"),
            "plans/some.plan:3: stands twice, '--seed'");
}

TEST(ReadPlan, lets_nothing_follow_the_end_of_the_exchange) {
  EXPECT_EQ(mistakes("title T\nstep stop\nstep after 1s drop 2"),
            "plans/some.plan:3: no step can follow 'stop', with which the exchange is gone, "
            "'drop 2'");
  EXPECT_EQ(mistakes("title T\nstep drop\nstep stop"), "");
}

TEST(ReadPlan, does_not_skip_what_it_expects) {
  EXPECT_EQ(mistakes("title T\nskip session.frames\nexpect session.frames"),
            "plans/some.plan:3: is both skipped and expected, 'session.frames'");
}

TEST(ReadPlan, takes_every_command_of_the_control_port) {
  for (const char* const action : {"pause",
                                   "resume",
                                   "drop",
                                   "drop 3",
                                   "dup 2",
                                   "reorder",
                                   "drop_every 0",
                                   "dup_every 5",
                                   "reorder_every 6",
                                   "rate 10",
                                   "disconnect",
                                   "lapse 0",
                                   "reject",
                                   "partial 2",
                                   "fill_on_cancel 3",
                                   "unsolicited_cancel",
                                   "replace_reject",
                                   "mark a",
                                   "stop",
                                   "link cut",
                                   "intrude 5"}) {
    const Plan plan = read("title T\nstep " + std::string(action));
    ASSERT_THAT(plan.steps, SizeIs(1));
    EXPECT_EQ(plan.steps[0].action, action);
  }
}

TEST(ReadPlan, knows_a_comment_from_a_word) {
  EXPECT_EQ(read("title Trade#1 and \"#2\" # not this").title, "Trade#1 and #2");
  EXPECT_EQ(read("  title T\t#").title, "T");
}

TEST(LoadPlan, says_that_a_file_cannot_be_read) {
  const auto said = [](const std::string& path) -> std::string {
    try {
      (void)load_plan(path, CHECKS);
    } catch (const PlanError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(said("/nowhere/x.plan"), "/nowhere/x.plan: there is no such plan");
  EXPECT_EQ(said("/"), "/: is a folder");
}

}  // namespace
}  // namespace certify
