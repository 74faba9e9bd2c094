#include "bench/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/exchange.h"

namespace quorl::test {
namespace {

class ScenarioText : public testing::Test {
 protected:
  ScenarioText() { clear(); }
  ~ScenarioText() override { clear(); }

  static void clear() {
    ::unsetenv("QUORL_SCENARIO");
    ::unsetenv("BENCH_ORDER_TRUTH");
  }

  /// Builds a Scenario from this text and keeps what it says on standard error.
  Scenario& armed_by(const std::string& text) {
    ::setenv("QUORL_SCENARIO", text.c_str(), 1);
    log = standard_error_of([this] { scenario.emplace(); });
    return *scenario;
  }

  std::optional<Scenario> scenario;
  std::string log;
};

std::string armed_line(const std::string& name, const std::string& numbers_in_order) {
  std::istringstream words(numbers_in_order);
  std::vector<std::string> n(7);
  for (std::string& word : n) words >> word;
  return "bench: scenario '" + name + "' armed (disconnect after " + n[0] + " orders, lapse " +
         n[1] + " ms, reject every " + n[2] + ", partial every " + n[3] +
         ", fill-on-cancel every " + n[4] + ", unsolicited cancel every " + n[5] +
         ", replace reject every " + n[6] + ")\n";
}

TEST_F(ScenarioText, unset_arms_nothing_and_says_nothing) {
  log = standard_error_of([this] { scenario.emplace(); });
  EXPECT_EQ(log, "");
  const Scenario& s = *scenario;
  EXPECT_EQ(s.name, "");
  EXPECT_EQ(s.disconnect_after, 0U);
  EXPECT_EQ(s.rejects.every, 0U);
  EXPECT_EQ(s.partial_fills.every, 0U);
  EXPECT_EQ(s.fills_on_cancel.every, 0U);
  EXPECT_EQ(s.unsolicited_cancels.every, 0U);
  EXPECT_EQ(s.replace_rejects.every, 0U);
  EXPECT_EQ(s.lapse_ms, 0);
  EXPECT_FALSE(s.disconnect_fired);
  EXPECT_FALSE(s.lapse_fired);
  EXPECT_EQ(s.rejects.next, 0U);
  EXPECT_EQ(s.partial_fills.next, 0U);
  EXPECT_EQ(s.fills_on_cancel.next, 0U);
  EXPECT_EQ(s.unsolicited_cancels.next, 0U);
  EXPECT_EQ(s.replace_rejects.next, 0U);
  EXPECT_EQ(s.lapse.until_ms(), 0U);
  EXPECT_EQ(s.disconnect_requested, 0U);
  EXPECT_FALSE(s.order_truth.is_open());
}

TEST_F(ScenarioText, empty_arms_nothing_and_says_nothing) {
  armed_by("");
  EXPECT_EQ(log, "");
}

TEST_F(ScenarioText, sets_every_key_and_says_so_in_one_line) {
  const Scenario& s = armed_by(
      "name=all of it,disconnect_after=1,lapse_ms=2,reject_every=3,partial_fill_every=4,"
      "fill_on_cancel_every=5,unsolicited_cancel_every=6,replace_reject_every=7");
  EXPECT_EQ(log,
            "bench: scenario 'all of it' armed (disconnect after 1 orders, lapse 2 ms, reject "
            "every 3, partial every 4, fill-on-cancel every 5, unsolicited cancel every 6, "
            "replace reject every 7)\n");
  EXPECT_EQ(s.name, "all of it");
  EXPECT_EQ(s.disconnect_after, 1U);
  EXPECT_EQ(s.lapse_ms, 2);
  EXPECT_EQ(s.rejects.every, 3U);
  EXPECT_EQ(s.partial_fills.every, 4U);
  EXPECT_EQ(s.fills_on_cancel.every, 5U);
  EXPECT_EQ(s.unsolicited_cancels.every, 6U);
  EXPECT_EQ(s.replace_rejects.every, 7U);
}

TEST_F(ScenarioText, prints_the_line_even_if_it_understood_nothing) {
  for (const char* text : {",,,", ",", "x", "nonsense=1", "=5", "=", "reject_every", " "}) {
    armed_by(text);
    EXPECT_EQ(log, armed_line("", "0 0 0 0 0 0 0")) << text;
  }
  armed_by("name=x");
  EXPECT_EQ(log, armed_line("x", "0 0 0 0 0 0 0"));
}

TEST_F(ScenarioText, skips_what_is_no_item_of_its_own_and_reads_the_rest) {
  for (const char* text : {",reject_every=3", "reject_every=3,", "x,reject_every=3,=9,y=z",
                           ",,reject_every=3,,", "foo=abc,reject_every=3"}) {
    EXPECT_EQ(armed_by(text).rejects.every, 3U) << text;
  }
}

TEST_F(ScenarioText, compares_keys_whole_and_trims_nothing) {
  for (const char* text : {" reject_every=3", "reject_every =3", "REJECT_EVERY=3", "reject_ever=3",
                           "reject_every_=3", "reject_next=3"}) {
    EXPECT_EQ(armed_by(text).rejects.every, 0U) << text;
    EXPECT_EQ(log, armed_line("", "0 0 0 0 0 0 0")) << text;
  }
}

TEST_F(ScenarioText, lets_a_later_item_override_an_earlier_one) {
  EXPECT_EQ(armed_by("reject_every=3,name=a,reject_every=5,name=b").rejects.every, 5U);
  EXPECT_EQ(scenario->name, "b");
}

TEST_F(ScenarioText, reads_a_name_wherever_it_stands) {
  for (const char* text :
       {"reject_every=3,name=here,lapse_ms=2", "name=here,reject_every=3,lapse_ms=2",
        "reject_every=3,lapse_ms=2,name=here"}) {
    armed_by(text);
    EXPECT_EQ(log, armed_line("here", "0 2 3 0 0 0 0")) << text;
    EXPECT_EQ(scenario->name, "here");
  }
}

TEST_F(ScenarioText, takes_all_behind_the_first_equals_sign_for_the_value) {
  EXPECT_EQ(armed_by("name=a=b=").name, "a=b=");
  EXPECT_EQ(armed_by("name=").name, "");
  EXPECT_EQ(armed_by("name= x ").name, " x ");
}

TEST_F(ScenarioText, cuts_a_name_at_a_comma_and_takes_the_rest_for_an_item) {
  EXPECT_EQ(armed_by("name=a,reject_every=2,b").name, "a");
  EXPECT_EQ(scenario->rejects.every, 2U);
}

TEST_F(ScenarioText, prints_a_name_with_format_characters_as_it_stands) {
  armed_by("name=%s%n%d");
  EXPECT_EQ(log, armed_line("%s%n%d", "0 0 0 0 0 0 0"));
}

TEST_F(ScenarioText, reads_counts_in_base_10_and_stores_their_low_32_bits) {
  for (const auto& [text, value] :
       std::vector<std::pair<std::string, uint32_t>>{{"5", 5},
                                                     {" 5", 5},
                                                     {"+5", 5},
                                                     {"5x", 5},
                                                     {"005", 5},
                                                     {"5.9", 5},
                                                     {"0x10", 0},
                                                     {"-1", 4294967295},
                                                     {"4294967295", 4294967295},
                                                     {"4294967296", 0},
                                                     {"4294967299", 3},
                                                     {"18446744073709551615", 4294967295}}) {
    EXPECT_EQ(armed_by("disconnect_after=" + text).disconnect_after, value) << text;
    EXPECT_EQ(armed_by("reject_every=" + text).rejects.every, value) << text;
    EXPECT_EQ(armed_by("partial_fill_every=" + text).partial_fills.every, value) << text;
    EXPECT_EQ(armed_by("fill_on_cancel_every=" + text).fills_on_cancel.every, value) << text;
    EXPECT_EQ(armed_by("unsolicited_cancel_every=" + text).unsolicited_cancels.every, value)
        << text;
    EXPECT_EQ(armed_by("replace_reject_every=" + text).replace_rejects.every, value) << text;
  }
  armed_by("disconnect_after=-1");
  EXPECT_EQ(log, armed_line("", "4294967295 0 0 0 0 0 0"));
}

TEST_F(ScenarioText, reads_a_lapse_as_a_signed_number) {
  EXPECT_EQ(armed_by("lapse_ms=-5").lapse_ms, -5);
  EXPECT_EQ(log, armed_line("", "0 -5 0 0 0 0 0"));
  EXPECT_EQ(armed_by("lapse_ms=2147483647").lapse_ms, 2147483647);
  EXPECT_EQ(armed_by("lapse_ms=-2147483648").lapse_ms, -2147483647 - 1);
  EXPECT_EQ(armed_by("lapse_ms= 12ms").lapse_ms, 12);
}

// A bad number ends the process by what the parser throws: its name is what the bench reads.

const std::vector<std::string> COUNT_KEYS = {"disconnect_after",         "reject_every",
                                             "partial_fill_every",       "fill_on_cancel_every",
                                             "unsolicited_cancel_every", "replace_reject_every"};

void expect_thrown(const std::string& text, bool out_of_range, const std::string& parser) {
  SCOPED_TRACE(text);
  ::setenv("QUORL_SCENARIO", text.c_str(), 1);
  const std::string log = standard_error_of([&] {
    try {
      const Scenario script;
      ADD_FAILURE() << "the number passed";
    } catch (const std::invalid_argument& thrown) {
      EXPECT_FALSE(out_of_range);
      EXPECT_EQ(thrown.what(), parser);
    } catch (const std::out_of_range& thrown) {
      EXPECT_TRUE(out_of_range);
      EXPECT_EQ(thrown.what(), parser);
    }
  });
  EXPECT_EQ(log, "");
}

TEST_F(ScenarioText, throws_for_a_count_that_is_no_number_or_too_large) {
  for (const std::string& key : COUNT_KEYS) {
    expect_thrown(key + "=", false, "stoul");
    expect_thrown(key + "=abc", false, "stoul");
    expect_thrown(key + "==1", false, "stoul");
    expect_thrown(key + "=18446744073709551616", true, "stoul");
    expect_thrown("name=x," + key + "=,reject_every=2", false, "stoul");
  }
}

TEST_F(ScenarioText, throws_for_a_lapse_that_is_no_number_or_too_large) {
  expect_thrown("lapse_ms=", false, "stoi");
  expect_thrown("lapse_ms=abc", false, "stoi");
  expect_thrown("lapse_ms=2147483648", true, "stoi");
  expect_thrown("lapse_ms=-2147483649", true, "stoi");
}

using ScenarioDeathTest = ScenarioText;

TEST_F(ScenarioDeathTest, uncaught_a_bad_number_aborts_and_names_the_parser) {
  const auto start = []() noexcept { const Scenario script; };  // as main does: nothing catches
  ::setenv("QUORL_SCENARIO", "reject_every=abc", 1);
  EXPECT_EXIT(start(), testing::KilledBySignal(SIGABRT), "stoul");
  ::setenv("QUORL_SCENARIO", "lapse_ms=99999999999", 1);
  EXPECT_EXIT(start(), testing::KilledBySignal(SIGABRT), "stoi");
}

// --- The order event file ---

class OrderEventFile : public ScenarioText {
 protected:
  ~OrderEventFile() override { std::remove(path.c_str()); }
  std::string content() const {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }
  const std::string path =
      testing::TempDir() + "quorl_scenario_" + std::to_string(::getpid()) + ".jsonl";
};

TEST_F(OrderEventFile, is_opened_for_appending) {
  std::ofstream(path) << "earlier\n";
  ::setenv("BENCH_ORDER_TRUTH", path.c_str(), 1);
  log = standard_error_of([this] { scenario.emplace(); });
  EXPECT_EQ(log, "");
  EXPECT_TRUE(scenario->order_truth.is_open());
  scenario->order_truth.write("later\n");
  scenario->order_truth.flush();
  EXPECT_EQ(content(), "earlier\nlater\n");
}

TEST_F(OrderEventFile, is_made_at_once_and_stands_beside_a_script) {
  ::setenv("BENCH_ORDER_TRUTH", path.c_str(), 1);
  EXPECT_EQ(armed_by("reject_every=2").rejects.every, 2U);
  struct stat found {};
  EXPECT_EQ(::stat(path.c_str(), &found), 0);
}

TEST_F(OrderEventFile, is_not_opened_for_an_empty_name) {
  ::setenv("BENCH_ORDER_TRUTH", "", 1);
  scenario.emplace();
  EXPECT_FALSE(scenario->order_truth.is_open());
}

TEST_F(OrderEventFile, that_cannot_be_opened_is_passed_over_in_silence) {
  ::setenv("BENCH_ORDER_TRUTH", (path + ".none/file").c_str(), 1);
  log = standard_error_of([this] { scenario.emplace(); });
  EXPECT_EQ(log, "");
  EXPECT_FALSE(scenario->order_truth.is_writable());
}

// --- The firing rule ---

TEST(Script, fires_by_the_recurring_rule_or_a_one_shot_and_spends_the_one_shot_on_either) {
  struct Case {
    uint64_t count;
    uint32_t every;
    uint32_t next;
    bool fired;
    uint32_t next_after;
  };
  for (const Case& c : std::vector<Case>{{1, 0, 0, false, 0},
                                         {1, 0, 1, true, 0},
                                         {1, 0, 5, true, 4},
                                         {1, 1, 0, true, 0},
                                         {1, 1, 5, true, 4},
                                         {1, 2, 0, false, 0},
                                         {1, 2, 1, true, 0},
                                         {2, 2, 0, true, 0},
                                         {2, 2, 1, true, 0},
                                         {3, 2, 0, false, 0},
                                         {6, 3, 2, true, 1},
                                         {7, 3, 2, true, 1},
                                         {7, 3, 0, false, 0},
                                         {4294967296, 4294967295, 0, false, 0},
                                         {4294967295, 4294967295, 0, true, 0},
                                         {8589934590, 4294967295, 0, true, 0},
                                         {1, 0, 4294967295, true, 4294967294}}) {
    SCOPED_TRACE(std::to_string(c.count) + " every " + std::to_string(c.every) + " next " +
                 std::to_string(c.next));
    Script script{.every = c.every, .next = c.next};
    EXPECT_EQ(script.fires(c.count), c.fired);
    EXPECT_EQ(script.every, c.every);
    EXPECT_EQ(script.next, c.next_after);
  }
}

TEST(Script, fires_on_every_third_occurrence_from_the_third_on) {
  Script script{.every = 3};
  std::string fired;
  for (uint64_t count = 1; count <= 9; ++count) fired += script.fires(count) ? 'x' : '.';
  EXPECT_EQ(fired, "..x..x..x");
}

TEST(Script, fires_on_the_first_by_a_one_shot_and_on_the_second_by_the_rule) {
  Script script{.every = 2, .next = 1};
  EXPECT_TRUE(script.fires(1));
  EXPECT_EQ(script.next, 0U);
  EXPECT_TRUE(script.fires(2));
  EXPECT_FALSE(script.fires(3));
}

TEST(Script, fires_always_by_a_rule_of_one_while_the_one_shots_run_out) {
  Script script{.every = 1, .next = 5};
  for (uint64_t count = 1; count <= 7; ++count) EXPECT_TRUE(script.fires(count));
  EXPECT_EQ(script.next, 0U);
}

}  // namespace
}  // namespace quorl::test
