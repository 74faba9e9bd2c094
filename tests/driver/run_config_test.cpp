#include "driver/run_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/scenario.h"
#include "feed/fault_plan.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"
#include "support/book_sense.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl {
namespace {

using testing::ElementsAre;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

struct Parsed {
  std::optional<int> status;
  std::string standard_error;
  RunConfig config;
};

RunConfig parse_unguarded(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "quorl");
  RunConfig config;
  parse_options(static_cast<int>(arguments.size()), arguments.data(), config);
  return config;
}

Parsed parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "quorl");
  Parsed parsed;
  CaptureStderr();
  parsed.status =
      parse_options(static_cast<int>(arguments.size()), arguments.data(), parsed.config);
  parsed.standard_error = GetCapturedStderr();
  return parsed;
}

/// The configuration of a command line without faults.
RunConfig config_of(const std::vector<const char*>& arguments) {
  const Parsed parsed = parse(arguments);
  EXPECT_EQ(parsed.status, std::nullopt);
  EXPECT_EQ(parsed.standard_error, "");
  return parsed.config;
}

/// "invalid stoi" or "out of range stoul": the kind of the error and the parser it names.
std::string failure_of(const std::function<void()>& act) {
  try {
    act();
  } catch (const std::invalid_argument& error) {
    return std::string("invalid ") + error.what();
  } catch (const std::out_of_range& error) {
    return std::string("out of range ") + error.what();
  }
  return "none";
}

std::string failure_of(const std::vector<const char*>& arguments) {
  return failure_of([&] { parse_unguarded(arguments); });
}

// --- The table of options ---

TEST(RunConfig, without_arguments_all_defaults_hold_and_gap_fill_follows_the_snap_port) {
  const RunConfig config = config_of({});
  EXPECT_EQ(config.mcast, "233.54.26.111");
  EXPECT_EQ(config.iface, "127.0.0.1");
  EXPECT_EQ(config.symbols, "AAPL:190.00,MSFT:410.00,SPY:520.00");
  EXPECT_EQ(config.book_out + config.bbo_out + config.truth_out + config.drop_burst, "");
  EXPECT_EQ(config.port, 25477);
  EXPECT_EQ(config.snap_port, 25479);
  EXPECT_EQ(config.gapfill_port, 25479);
  EXPECT_EQ(config.fix_port, 28500);
  EXPECT_EQ(config.control_port, 0);
  EXPECT_EQ(config.interval_ms, 40);
  EXPECT_EQ(config.step_bps, 0.8);
  EXPECT_EQ(config.touch_hit, 0.15);
  EXPECT_EQ(config.seed, 42u);
  EXPECT_EQ(config.drop_every, 0u);
  EXPECT_EQ(config.dup_every, 0u);
  EXPECT_EQ(config.reorder_every, 0u);
  EXPECT_FALSE(config.quiet);
}

TEST(RunConfig, every_option_sets_its_own_field) {
  const RunConfig config = config_of(
      {"--mcast",      "239.1.2.3", "--port",         "1",    "--iface",         "10.0.0.1",
       "--snap-port",  "2",         "--gapfill-port", "3",    "--fix-port",      "4",
       "--session",    "5",         "--symbols",      "X:1",  "--interval-ms",   "6",
       "--step-bps",   "7.5",       "--touch-hit",    "0.25", "--book-out",      "book",
       "--bbo-out",    "bbo",       "--seed",         "8",    "--drop-every",    "9",
       "--drop-burst", "10:11",     "--dup-every",    "12",   "--reorder-every", "13",
       "--truth-out",  "truth",     "--control-port", "14",   "--quiet"});
  EXPECT_EQ(config.mcast, "239.1.2.3");
  EXPECT_EQ(config.port, 1);
  EXPECT_EQ(config.iface, "10.0.0.1");
  EXPECT_EQ(config.snap_port, 2);
  EXPECT_EQ(config.gapfill_port, 3);
  EXPECT_EQ(config.fix_port, 4);
  EXPECT_EQ(config.session, 5u);
  EXPECT_EQ(config.symbols, "X:1");
  EXPECT_EQ(config.interval_ms, 6);
  EXPECT_EQ(config.step_bps, 7.5);
  EXPECT_EQ(config.touch_hit, 0.25);
  EXPECT_EQ(config.book_out, "book");
  EXPECT_EQ(config.bbo_out, "bbo");
  EXPECT_EQ(config.seed, 8u);
  EXPECT_EQ(config.drop_every, 9u);
  EXPECT_EQ(config.drop_burst, "10:11");
  EXPECT_EQ(config.dup_every, 12u);
  EXPECT_EQ(config.reorder_every, 13u);
  EXPECT_EQ(config.truth_out, "truth");
  EXPECT_EQ(config.control_port, 14);
  EXPECT_TRUE(config.quiet);
}

TEST(RunConfig, a_later_occurrence_replaces_an_earlier_one) {
  const RunConfig config = config_of({"--seed", "1", "--mcast", "a", "--seed", "2", "--mcast", ""});
  EXPECT_EQ(config.seed, 2u);
  EXPECT_EQ(config.mcast, "");
}

TEST(RunConfig, gap_fill_follows_a_changed_snap_port_unless_it_has_its_own) {
  EXPECT_EQ(config_of({"--snap-port", "30000"}).gapfill_port, 30000);
  EXPECT_EQ(config_of({"--gapfill-port", "0", "--snap-port", "30000"}).gapfill_port, 30000);
  EXPECT_EQ(config_of({"--gapfill-port", "65536"}).gapfill_port, 25479);  // cut to 0
  EXPECT_EQ(config_of({"--gapfill-port", "7", "--snap-port", "30000"}).gapfill_port, 7);
}

TEST(RunConfig, control_port_0_means_none) {
  EXPECT_EQ(config_of({"--control-port", "5", "--control-port", "0"}).control_port, 0);
}

// --- Widths and number forms ---

TEST(RunConfig, a_port_is_cut_to_its_low_16_bits) {
  EXPECT_EQ(config_of({"--port", "70000"}).port, 4464);
  EXPECT_EQ(config_of({"--snap-port", "70000"}).snap_port, 4464);
  EXPECT_EQ(config_of({"--gapfill-port", "70000"}).gapfill_port, 4464);
  EXPECT_EQ(config_of({"--fix-port", "70000"}).fix_port, 4464);
  EXPECT_EQ(config_of({"--control-port", "70000"}).control_port, 4464);
  EXPECT_EQ(config_of({"--port", "-1"}).port, 65535);
}

TEST(RunConfig, a_count_is_cut_to_its_low_32_bits_and_minus_1_wraps) {
  EXPECT_EQ(config_of({"--seed", "-1"}).seed, 4294967295u);
  EXPECT_EQ(config_of({"--seed", "4294967296"}).seed, 0u);
  EXPECT_EQ(config_of({"--session", "4294967303"}).session, 7u);
  EXPECT_EQ(config_of({"--drop-every", "-1"}).drop_every, 4294967295u);
  EXPECT_EQ(config_of({"--dup-every", "18446744073709551615"}).dup_every, 4294967295u);
  EXPECT_EQ(config_of({"--reorder-every", "4294967297"}).reorder_every, 1u);
}

TEST(RunConfig, the_interval_keeps_32_bits_with_their_sign) {
  EXPECT_EQ(config_of({"--interval-ms", "0"}).interval_ms, 0);
  EXPECT_EQ(config_of({"--interval-ms", "-1"}).interval_ms, -1);
  EXPECT_EQ(config_of({"--interval-ms", "2147483647"}).interval_ms, 2147483647);
  EXPECT_EQ(config_of({"--interval-ms", "-2147483648"}).interval_ms, INT32_MIN);
}

TEST(RunConfig, a_number_may_begin_with_blanks_and_a_sign_and_ends_where_it_ends) {
  EXPECT_EQ(config_of({"--port", "12abc"}).port, 12);
  EXPECT_EQ(config_of({"--port", " \t\n+12 13"}).port, 12);
  EXPECT_EQ(config_of({"--seed", "7.9"}).seed, 7u);
  EXPECT_EQ(config_of({"--step-bps", " 1e2x"}).step_bps, 100.0);
}

TEST(RunConfig, integers_are_decimal_and_floats_may_be_hexadecimal) {
  EXPECT_EQ(config_of({"--port", "0x10"}).port, 0);
  EXPECT_EQ(config_of({"--seed", "010"}).seed, 10u);
  EXPECT_EQ(config_of({"--step-bps", "0x10"}).step_bps, 16.0);
}

TEST(RunConfig, infinities_and_nan_are_floats) {
  EXPECT_EQ(config_of({"--step-bps", "inf"}).step_bps, std::numeric_limits<double>::infinity());
  EXPECT_EQ(config_of({"--step-bps", "-infinity"}).step_bps,
            -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(config_of({"--touch-hit", "nan"}).touch_hit));
}

// --- Refusals ---

TEST(RunConfig, an_unknown_flag_ends_the_run_with_status_2) {
  const Parsed parsed = parse({"--colour"});
  EXPECT_EQ(parsed.status, 2);
  EXPECT_EQ(parsed.standard_error, "unknown flag --colour\n");
}

TEST(RunConfig, a_bare_word_behind_a_complete_option_is_an_unknown_flag) {
  const Parsed parsed = parse({"--seed", "7", "extra"});
  EXPECT_EQ(parsed.status, 2);
  EXPECT_EQ(parsed.standard_error, "unknown flag extra\n");
  EXPECT_EQ(parse({"--quiet", "yes"}).standard_error, "unknown flag yes\n");
  EXPECT_EQ(parse({""}).standard_error, "unknown flag \n");
}

TEST(RunConfig, flags_are_compared_whole_in_their_case_and_without_an_equals_sign) {
  EXPECT_EQ(parse({"--Port", "1"}).standard_error, "unknown flag --Port\n");
  EXPECT_EQ(parse({"--por", "1"}).standard_error, "unknown flag --por\n");
  EXPECT_EQ(parse({"--port=5"}).standard_error, "unknown flag --port=5\n");
  EXPECT_EQ(parse({"-port", "1"}).standard_error, "unknown flag -port\n");
  EXPECT_EQ(parse({"--help"}).standard_error, "unknown flag --help\n");
}

TEST(RunConfig, an_unknown_flag_is_shown_as_it_stands_whatever_is_in_it) {
  EXPECT_EQ(parse({"%s%n%d"}).standard_error, "unknown flag %s%n%d\n");
}

TEST(RunConfig, a_flag_without_its_value_ends_the_run_with_status_2) {
  for (const char* flag :
       {"--mcast",      "--port",      "--iface",         "--snap-port",   "--gapfill-port",
        "--fix-port",   "--session",   "--symbols",       "--interval-ms", "--step-bps",
        "--touch-hit",  "--book-out",  "--bbo-out",       "--seed",        "--drop-every",
        "--drop-burst", "--dup-every", "--reorder-every", "--truth-out",   "--control-port"}) {
    const Parsed parsed = parse({"--quiet", flag});
    EXPECT_EQ(parsed.status, 2);
    EXPECT_EQ(parsed.standard_error, std::string(flag) + " needs a value\n");
  }
}

TEST(RunConfig, a_value_may_look_like_a_flag) {
  const Parsed parsed = parse({"--mcast", "--port", "5"});
  EXPECT_EQ(parsed.config.mcast, "--port");
  EXPECT_EQ(parsed.status, 2);
  EXPECT_EQ(parsed.standard_error, "unknown flag 5\n");
  EXPECT_EQ(config_of({"--symbols", "--quiet"}).quiet, false);
}

TEST(RunConfig, the_first_fault_from_the_left_ends_the_run) {
  EXPECT_EQ(parse({"first", "--port", "abc", "second"}).standard_error, "unknown flag first\n");
  EXPECT_EQ(failure_of({"--port", "abc", "--port", "1"}), "invalid stoi");
  EXPECT_EQ(failure_of({"--port", "abc", "unknown"}), "invalid stoi");
}

// --- Malformed numbers ---

TEST(RunConfig, a_number_without_a_digit_fails_in_the_option_s_own_parser) {
  for (const char* flag : {"--port", "--snap-port", "--gapfill-port", "--fix-port", "--interval-ms",
                           "--control-port"}) {
    EXPECT_EQ(failure_of({flag, "abc"}), "invalid stoi") << flag;
    EXPECT_EQ(failure_of({flag, ""}), "invalid stoi") << flag;
    EXPECT_EQ(failure_of({flag, "- 1"}), "invalid stoi") << flag;
  }
  for (const char* flag :
       {"--session", "--seed", "--drop-every", "--dup-every", "--reorder-every"}) {
    EXPECT_EQ(failure_of({flag, "abc"}), "invalid stoul") << flag;
    EXPECT_EQ(failure_of({flag, "--port"}), "invalid stoul") << flag;
  }
  for (const char* flag : {"--step-bps", "--touch-hit"}) {
    EXPECT_EQ(failure_of({flag, "abc"}), "invalid stod") << flag;
    EXPECT_EQ(failure_of({flag, "."}), "invalid stod") << flag;
  }
}

TEST(RunConfig, a_number_beyond_its_parser_s_range_fails_as_out_of_range) {
  EXPECT_EQ(failure_of({"--port", "2147483648"}), "out of range stoi");
  EXPECT_EQ(failure_of({"--interval-ms", "-2147483649"}), "out of range stoi");
  EXPECT_EQ(failure_of({"--port", "99999999999999999999"}), "out of range stoi");
  EXPECT_EQ(failure_of({"--seed", "18446744073709551616"}), "out of range stoul");
  EXPECT_EQ(failure_of({"--step-bps", "1e400"}), "out of range stod");
  EXPECT_EQ(failure_of({"--touch-hit", "1e-400"}), "out of range stod");
}

TEST(RunConfigDeathTest, an_uncaught_malformed_number_aborts_and_the_runtime_names_the_parser) {
  const auto run = [](const std::vector<const char*>& arguments) noexcept {
    parse_unguarded(arguments);
  };
  EXPECT_EXIT(run({"--port", "abc", "--port", "1"}), testing::KilledBySignal(SIGABRT),
              "invalid_argument.*stoi");
  EXPECT_EXIT(run({"--port", "2147483648"}), testing::KilledBySignal(SIGABRT),
              "out_of_range.*stoi");
  EXPECT_EXIT(run({"--seed", "x"}), testing::KilledBySignal(SIGABRT), "invalid_argument.*stoul");
  EXPECT_EXIT(run({"--touch-hit", "x"}), testing::KilledBySignal(SIGABRT),
              "invalid_argument.*stod");
}

// --- The session of a run that names none ---

TEST(RunConfig, the_default_session_is_the_clock_s_seconds_truncated_in_31_bits) {
  EXPECT_EQ(default_session(1'700'000'000'999'999'999), 1'700'000'000u);
  EXPECT_EQ(default_session(0x80000005ULL * 1'000'000'000), 5u);
  EXPECT_EQ(default_session(0x7FFFFFFFULL * 1'000'000'000), 0x7FFFFFFFu);
  EXPECT_EQ(default_session(0), 0u);
}

TEST(RunConfig, a_session_given_on_the_command_line_keeps_all_32_bits) {
  EXPECT_EQ(config_of({"--session", "4294967295"}).session, 4294967295u);
  EXPECT_EQ(config_of({"--session", "0"}).session, 0u);
}

// --- The faults a run starts with ---

FaultPlan plan_with_burst(const std::string& burst) {
  RunConfig config;
  config.drop_burst = burst;
  return fault_plan_of(config);
}

std::string failure_of_burst(const std::string& burst) {
  return failure_of([&] { plan_with_burst(burst); });
}

TEST(FaultPlanOfARun, takes_the_every_n_rules_over_and_starts_without_one_shots) {
  const FaultPlan plan = fault_plan_of(config_of(
      {"--drop-every", "2", "--dup-every", "3", "--reorder-every", "4", "--drop-burst", "5:6"}));
  EXPECT_EQ(plan.drop_every, 2u);
  EXPECT_EQ(plan.dup_every, 3u);
  EXPECT_EQ(plan.reorder_every, 4u);
  EXPECT_EQ(plan.burst_start, 5u);
  EXPECT_EQ(plan.burst_len, 6u);
  EXPECT_EQ(plan.drop_next + plan.dup_next + plan.reorder_next, 0u);
}

TEST(FaultPlanOfARun, without_a_burst_text_there_is_no_burst) {
  EXPECT_EQ(plan_with_burst("").burst_start, 0u);
  EXPECT_EQ(plan_with_burst("").burst_len, 0u);
}

TEST(FaultPlanOfARun, a_bare_number_is_a_burst_of_one_packet) {
  EXPECT_EQ(plan_with_burst("100").burst_start, 100u);
  EXPECT_EQ(plan_with_burst("100").burst_len, 1u);
  EXPECT_EQ(plan_with_burst("100,5").burst_len, 1u);
}

TEST(FaultPlanOfARun, the_start_keeps_64_bits_and_the_length_32) {
  EXPECT_EQ(plan_with_burst("18446744073709551615:1").burst_start, UINT64_MAX);
  EXPECT_EQ(plan_with_burst("1:4294967298").burst_len, 2u);
  EXPECT_EQ(plan_with_burst("-1:-1").burst_start, UINT64_MAX);
  EXPECT_EQ(plan_with_burst("-1:-1").burst_len, 4294967295u);
}

TEST(FaultPlanOfARun, what_follows_a_number_is_ignored) {
  EXPECT_EQ(plan_with_burst("3x:4y").burst_start, 3u);
  EXPECT_EQ(plan_with_burst("3x:4y").burst_len, 4u);
  EXPECT_EQ(plan_with_burst("3:4:5").burst_len, 4u);
}

TEST(FaultPlanOfARun, an_empty_half_fails_in_its_parser) {
  EXPECT_EQ(failure_of_burst(":5"), "invalid stoull");
  EXPECT_EQ(failure_of_burst("100:"), "invalid stoul");
  EXPECT_EQ(failure_of_burst(":"), "invalid stoull");
  EXPECT_EQ(failure_of_burst("abc"), "invalid stoull");
  EXPECT_EQ(failure_of_burst("18446744073709551616:1"), "out of range stoull");
}

TEST(FaultPlanOfARunDeathTest, an_uncaught_malformed_burst_aborts_and_names_the_parser) {
  const auto run = [](const std::string& burst) noexcept { plan_with_burst(burst); };
  EXPECT_EXIT(run(":5"), testing::KilledBySignal(SIGABRT), "invalid_argument.*stoull");
}

// --- Symbols ---

/// A market that sends to nobody.
struct Market {
  explicit Market(const std::string& symbols = "", double step_bps = 0.8)
      : engine(publisher, rng, scenario, step_bps, 0.15) {
    test::reset_clocks();
    for (const Listing& listing : parse_symbols(symbols)) {
      engine.add_stock(listing.symbol, listing.price);
    }
  }

  void runs_for(int ticks) {
    engine.open_market();
    for (int i = 0; i < ticks; ++i) engine.walk_tick();
  }

  TpPublisher publisher{"127.0.0.1", 0, "127.0.0.1", 1};
  std::mt19937_64 rng{42};
  Scenario scenario;
  Engine engine;
};

/// "A 1 #1" for a symbol, its price and its locate.
std::vector<std::string> listed(const std::string& symbols) {
  const Market market(symbols);
  std::vector<std::string> words;
  for (const Stock& stock : market.engine.stocks) {
    std::ostringstream text;
    text << stock.symbol << ' ' << stock.mid << " #" << stock.locate;
    words.push_back(text.str());
  }
  return words;
}

std::string failure_of_symbols(const std::string& symbols) {
  return failure_of([&] { listed(symbols); });
}

TEST(Symbols, are_listed_in_order_with_their_prices) {
  EXPECT_THAT(listed("AAPL:190.25,MSFT:410"), ElementsAre("AAPL 190.25 #1", "MSFT 410 #2"));
}

TEST(Symbols, a_fresh_stock_is_empty_and_trading) {
  const Market market("X:5");
  const Stock& stock = market.engine.stocks.at(0);
  for (const bool buy : {test::BUYS, test::SELLS}) {
    EXPECT_THAT(test::level_prices(market.engine, stock, buy), testing::IsEmpty());
    EXPECT_THAT(test::shown_levels(market.engine, stock, buy), testing::IsEmpty());
  }
  EXPECT_EQ(stock.volume, 0u);
  EXPECT_EQ(stock.last_price, 0);
  EXPECT_EQ(stock.status, 'T');
}

TEST(Symbols, an_empty_list_lists_none_and_the_market_runs_empty) {
  EXPECT_THAT(listed(""), testing::IsEmpty());
  Market market("");
  market.runs_for(3);
  EXPECT_EQ(test::state_of(market.publisher).next_seq, 4u);
}

TEST(Symbols, one_without_a_price_opens_at_100) {
  EXPECT_THAT(listed("X"), ElementsAre("X 100 #1"));
}

TEST(Symbols, a_trailing_comma_makes_no_further_one) {
  EXPECT_THAT(listed("A:1,"), ElementsAre("A 1 #1"));
}

TEST(Symbols, an_empty_item_is_an_empty_symbol_at_100) {
  EXPECT_THAT(listed("A:1,,B:2"), ElementsAre("A 1 #1", " 100 #2", "B 2 #3"));
  EXPECT_THAT(listed(","), ElementsAre(" 100 #1"));
  EXPECT_THAT(listed(",,"), ElementsAre(" 100 #1", " 100 #2"));
  EXPECT_THAT(listed(",A:1"), ElementsAre(" 100 #1", "A 1 #2"));
}

TEST(Symbols, nothing_is_trimmed_and_no_case_is_changed) {
  EXPECT_THAT(listed(" aB : 7 ,c"), ElementsAre(" aB  7 #1", "c 100 #2"));
  EXPECT_THAT(listed(":5"), ElementsAre(" 5 #1"));
}

TEST(Symbols, a_second_colon_ends_the_price) {
  EXPECT_THAT(listed("A:1:2"), ElementsAre("A 1 #1"));
  EXPECT_EQ(failure_of_symbols("A::2"), "invalid stod");
}

TEST(Symbols, a_repeated_one_is_listed_again_and_the_first_is_found) {
  Market market("A:1,B:2,A:3");
  EXPECT_EQ(market.engine.stocks.size(), 3u);
  EXPECT_EQ(market.engine.stock_by_symbol("A"), &market.engine.stocks[0]);
}

TEST(Symbols, a_malformed_price_fails_in_stod) {
  EXPECT_EQ(failure_of_symbols("X:"), "invalid stod");
  EXPECT_EQ(failure_of_symbols("A:1,X:abc"), "invalid stod");
  EXPECT_EQ(failure_of_symbols("X:1e999"), "out of range stod");
}

TEST(SymbolsDeathTest, an_uncaught_malformed_price_aborts_and_names_the_parser) {
  const auto run = []() noexcept { listed("X:"); };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT), "invalid_argument.*stod");
}

/// Opens and walks; after each tick the book makes sense, and so many orders have been posted that
/// none was left out.
void makes_a_market(Market& market, int ticks) {
  market.runs_for(0);
  ASSERT_EQ(test::nonsense_in(market.engine), "");
  for (int tick = 1; tick <= ticks; ++tick) {
    const uint64_t posted = market.engine.next_order_id;
    market.engine.walk_tick();
    ASSERT_EQ(test::nonsense_in(market.engine), "") << "behind tick " << tick;
    EXPECT_GE(market.engine.next_order_id, posted + 3) << "in tick " << tick;
  }
}

TEST(Symbols, prices_that_are_no_prices_make_a_market_around_0) {
  for (const char* symbols :
       {"X:nan", "X:inf", "X:-inf", "X:1e300", "X:-1e300", "X:0", "X:1e-300"}) {
    SCOPED_TRACE(symbols);
    Market market(symbols);
    makes_a_market(market, 20);
    EXPECT_EQ(test::price_outside(market.engine, -900, 900), "");
    const Stock& stock = market.engine.stocks.at(0);
    EXPECT_THAT(test::level_prices(market.engine, stock, test::BUYS),
                testing::Each(testing::Le(0)));
    EXPECT_THAT(test::level_prices(market.engine, stock, test::SELLS),
                testing::Each(testing::Ge(0)));
  }
}

TEST(Symbols, a_price_below_0_makes_a_market_around_itself) {
  Market market("X:-5");
  makes_a_market(market, 20);
  EXPECT_EQ(test::price_outside(market.engine, -52000, -48000), "");
}

TEST(Symbols, prices_at_the_ends_of_the_range_make_a_market_there) {
  constexpr Price4 NEAR_THE_END = 9'200'000'000'000'000'000;
  for (const char* symbols : {"X:922337203685477", "X:-922337203685477"}) {
    SCOPED_TRACE(symbols);
    Market market(symbols);
    makes_a_market(market, 20);
    for (const bool buy : {test::BUYS, test::SELLS}) {
      for (const Price4 price : test::level_prices(market.engine, market.engine.stocks[0], buy)) {
        EXPECT_TRUE(price > NEAR_THE_END || price < -NEAR_THE_END) << price;
      }
    }
  }
}

TEST(Symbols, steps_that_blow_the_price_up_do_not_end_the_run) {
  for (const double step_bps : {1e6, 1e12, 1e300, std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity(), std::nan("")}) {
    SCOPED_TRACE(step_bps);
    Market market("X:190", step_bps);
    makes_a_market(market, 200);
    const double mid = market.engine.stocks[0].mid;
    EXPECT_FALSE(std::fabs(mid) < 1e12) << mid;  // it has blown up
    const uint64_t posted = market.engine.next_order_id - 1000;
    EXPECT_LT(test::order_count(market.engine), posted / 2);  // stale orders are still pulled
  }
}

TEST(Symbols, beyond_65535_the_locate_is_cut_to_16_bits) {
  Market market(std::string(65537, ','));
  ASSERT_EQ(market.engine.stocks.size(), 65537u);
  EXPECT_EQ(market.engine.stocks[65534].locate, 65535);
  EXPECT_EQ(market.engine.stocks[65535].locate, 0);
  EXPECT_EQ(market.engine.stocks[65536].locate, 1);
}

TEST(Symbols, with_a_locate_that_was_cut_still_open_and_walk) {
  Market market(std::string(6, ','));
  auto& stocks = market.engine.stocks;
  ASSERT_EQ(stocks.size(), 6u);
  stocks[3].locate = 65535;  // as if so many stood between, and these were the last three
  stocks[4].locate = 0;
  stocks[5].locate = 1;
  market.engine.touch_hit = 1.0;
  market.runs_for(200);
  EXPECT_EQ(market.engine.system_status, 'R');
  for (const Stock& stock : stocks) EXPECT_GT(stock.volume, 0u) << stock.locate;
}

TEST(Symbols, an_order_whose_locate_was_cut_to_0_belongs_to_no_stock) {
  Market market("A:1");
  Order order;
  order.locate = 0;
  EXPECT_EQ(market.engine.stock_of(order), nullptr);
  order.locate = 2;
  EXPECT_EQ(market.engine.stock_of(order), nullptr);
  order.locate = 1;
  EXPECT_EQ(market.engine.stock_of(order), &market.engine.stocks[0]);
}

}  // namespace
}  // namespace quorl
