#include "tools/ladder/view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tools/ladder/panel.h"

namespace ladder {
namespace {

namespace client = quorl::client;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr uint64_t NOON_NS = 1700049600000000000;  // 12:00:00 UTC

class ViewTest : public testing::Test {
 protected:
  void lists(const std::string& symbol) {
    market.apply(client::SecurityDirectory{.timestamp_ns = NOON_NS, .symbol = symbol});
  }
  void level(const std::string& symbol, bool buy, client::Price4 price, uint32_t size) {
    market.apply(client::LevelUpdate{.buy = buy,
                                     .last_of_event = true,
                                     .timestamp_ns = NOON_NS,
                                     .symbol = symbol,
                                     .size = size,
                                     .price = price});
  }
  void trades(const std::string& symbol, client::Price4 price, uint32_t size) {
    market.apply(client::TradeReport{
        .timestamp_ns = NOON_NS, .symbol = symbol, .size = size, .price = price, .trade_id = 1});
  }
  void full_book(const std::string& symbol) {
    for (int i = 1; i <= 20; ++i) {
      level(symbol, true, 1900000 - i * 100, static_cast<uint32_t>(i) * 100);
      level(symbol, false, 1900000 + i * 100, static_cast<uint32_t>(i) * 100);
    }
  }
  void in_step() {
    health.state = FeedState::IN_STEP;
    health.session = 77;
    health.next_seq = 1234;
    health.last_heard = now - milliseconds(340);
  }

  std::string screen(size_t rows = 24, size_t columns = 80) {
    return draw({.market = market,
                 .health = health,
                 .desk = with_control ? &desk : nullptr,
                 .feed = "233.54.26.111:25477",
                 .filter = filter,
                 .first_symbol = first_symbol,
                 .help = help,
                 .now_ns = NOON_NS,
                 .now = now},
                rows, columns)
        .text(false);
  }
  std::vector<std::string> lines(size_t rows = 24, size_t columns = 80) {
    std::istringstream text(screen(rows, columns));
    std::vector<std::string> all;
    for (std::string line; std::getline(text, line);) all.push_back(line);
    return all;
  }
  std::string line_with(const std::string& text) {
    for (const std::string& line : lines()) {
      if (line.find(text) != std::string::npos) return line;
    }
    return "";
  }

  Market market;
  Health health;
  Desk desk{"127.0.0.1:25500"};
  bool with_control = false;
  bool help = false;
  std::vector<std::string> filter;
  size_t first_symbol = 0;
  steady_clock::time_point now{seconds(1000)};
};

TEST_F(ViewTest, tells_plainly_when_the_screen_is_too_small) {
  for (const auto& [rows, columns] : {std::pair{23, 80}, {24, 79}, {10, 40}}) {
    const std::string size = std::to_string(columns) + "x" + std::to_string(rows);
    const std::string text = screen(static_cast<size_t>(rows), static_cast<size_t>(columns));
    EXPECT_THAT(text, AllOf(HasSubstr("80x24"), HasSubstr(size), HasSubstr("q quits")));
  }
  EXPECT_THAT(screen(24, 80), Not(HasSubstr("larger")));
}

TEST_F(ViewTest, survives_any_size) {
  with_control = true;
  in_step();
  for (const char* symbol : {"AAPL", "MSFT", "SPY"}) full_book(symbol);
  trades("AAPL", 1900000, 100);
  for (const bool page : {false, true}) {
    help = page;
    for (size_t rows = 0; rows < 70; rows += 6) {
      for (size_t columns = 0; columns < 300; columns += 13) EXPECT_NO_THROW(screen(rows, columns));
    }
  }
}

TEST_F(ViewTest, fills_the_screen_and_no_more) {
  with_control = true;
  in_step();
  full_book("AAPL");
  for (const auto& [rows, columns] : {std::pair{size_t{24}, size_t{80}}, {40, 120}, {24, 200}}) {
    const Grid grid = draw({.market = market, .health = health, .desk = &desk}, rows, columns);
    EXPECT_EQ(grid.rows(), rows);
    EXPECT_EQ(grid.columns(), columns);
  }
}

TEST_F(ViewTest, waits_by_name_for_an_exchange_that_is_not_there) {
  const std::string text = screen();
  EXPECT_THAT(text, HasSubstr("waiting for the exchange on 233.54.26.111:25477"));
  EXPECT_THAT(text, HasSubstr("WAITING"));
}

TEST_F(ViewTest, shows_a_ladder_with_the_best_levels_in_the_middle) {
  in_step();
  with_control = true;
  full_book("AAPL");
  const std::vector<std::string> all = lines();
  EXPECT_THAT(all[3], HasSubstr("AAPL  spread 0.02"));
  EXPECT_THAT(all[5], HasSubstr("ask 190.05  500 █"));
  EXPECT_THAT(all[9], HasSubstr("ask 190.01  100 █"));
  EXPECT_THAT(all[10], HasSubstr("bid 189.99  100 █"));
  EXPECT_THAT(all[14], HasSubstr("bid 189.95  500 █"));
  EXPECT_THAT(all[15], HasSubstr("control 127.0.0.1:25500"));
}

TEST_F(ViewTest, bars_are_as_long_as_sizes_are_large) {
  in_step();
  level("AAPL", true, 1900000, 800);
  level("AAPL", true, 1899900, 400);
  level("AAPL", true, 1899800, 200);
  level("AAPL", false, 1900100, 1);
  const auto bar = [this](const std::string& price) {
    const std::string line = line_with(price);
    size_t eighths = 0;
    for (size_t at = 0; (at = line.find("█", at)) != std::string::npos; at += 3) eighths += 8;
    const std::pair<const char*, size_t> ends[] = {{"▏", 1}, {"▎", 2}, {"▍", 3}, {"▌", 4},
                                                   {"▋", 5}, {"▊", 6}, {"▉", 7}};
    for (const auto& [glyph, worth] : ends) {
      if (line.find(glyph) != std::string::npos) eighths += worth;
    }
    return eighths;
  };
  EXPECT_EQ(bar("190.00"), 2 * bar("189.99"));
  EXPECT_EQ(bar("190.00"), 4 * bar("189.98"));
  EXPECT_EQ(bar("190.01"), 1u) << "something rests there";
}

TEST_F(ViewTest, shows_trades_with_direction_and_volume_the_latest_first) {
  in_step();
  full_book("AAPL");
  trades("AAPL", 1900000, 100);
  trades("AAPL", 1900100, 12300);
  trades("AAPL", 1900000, 50);
  const std::vector<std::string> all = lines();
  EXPECT_THAT(all[3], HasSubstr("AAPL  190.00 ▼  spread 0.02"));
  EXPECT_THAT(all[4], HasSubstr("vol 12,450"));
  EXPECT_THAT(all[5], HasSubstr("12:00:00 ▼ 190.00    50"));
  EXPECT_THAT(all[6], HasSubstr("12:00:00 ▲ 190.01 12300"));
  EXPECT_THAT(all[7], HasSubstr("12:00:00 · 190.00   100"));
}

TEST_F(ViewTest, shows_prices_of_parts_of_a_cent_in_full) {
  in_step();
  level("PENNY", true, 10001, 100);
  level("PENNY", false, 10100, 100);
  EXPECT_NE(line_with("bid 1.0001"), "");
  EXPECT_NE(line_with("ask 1.0100"), "");
}

TEST_F(ViewTest, shows_as_many_symbols_side_by_side_as_fit_and_turns_to_the_others) {
  in_step();
  for (const char* symbol : {"AAPL", "MSFT", "SPY"}) lists(symbol);
  EXPECT_THAT(screen(), AllOf(HasSubstr("AAPL"), HasSubstr("MSFT"), Not(HasSubstr("SPY")),
                              HasSubstr("2 of 3: tab")));
  first_symbol = 2;
  EXPECT_THAT(screen(), AllOf(HasSubstr("SPY"), HasSubstr("AAPL"), Not(HasSubstr("MSFT"))));
  EXPECT_THAT(screen(40, 120), AllOf(HasSubstr("AAPL"), HasSubstr("MSFT"), HasSubstr("SPY"),
                                     Not(HasSubstr(": tab"))));
}

TEST_F(ViewTest, shows_only_the_symbols_asked_for_and_tells_of_one_that_is_not_listed) {
  in_step();
  for (const char* symbol : {"AAPL", "MSFT", "SPY"}) lists(symbol);
  filter = {"SPY", "QQQ"};
  EXPECT_THAT(screen(),
              AllOf(HasSubstr("SPY"), HasSubstr("QQQ  not listed"), Not(HasSubstr("AAPL"))));
}

TEST_F(ViewTest, lets_no_symbol_steer_the_terminal) {
  in_step();
  lists("A\x1b[2J");
  EXPECT_THAT(screen(), HasSubstr("A?[2J"));
}

TEST_F(ViewTest, tells_how_well_the_feed_is_followed) {
  in_step();
  health.counters = {.packets = 1000,
                     .duplicates = 5,
                     .out_of_order = 6,
                     .holes = 7,
                     .filled = 80,
                     .images = 2,
                     .jumped = 9,
                     .foreign = 4,
                     .kernel_drops = 3};
  const std::vector<std::string> all = lines(24, 120);
  EXPECT_THAT(all[1], AllOf(HasSubstr("IN STEP"), HasSubstr("last packet 0.3 s ago"),
                            HasSubstr("next 1234")));
  EXPECT_THAT(all[2], HasSubstr("packets 1000  gaps 7  filled 80  images 2  dups 5  reordered 6  "
                                "jumped 9  lost here 3  foreign 4"));
}

TEST_F(ViewTest, tells_of_a_hole_of_silence_and_of_trouble) {
  in_step();
  health.state = FeedState::RECOVERING;
  EXPECT_THAT(lines()[1], HasSubstr("RECOVERING"));
  health.last_heard = now - SILENCE;
  EXPECT_THAT(lines()[1], HasSubstr("RECOVERING")) << "not yet";
  health.last_heard = now - seconds(12);
  EXPECT_THAT(lines()[1], HasSubstr("SILENT 12 s"));
  health.trouble = "connect to port 25479: Connection refused";
  EXPECT_THAT(lines()[1], HasSubstr("connect to port 25479: Connection refused"));
}

TEST_F(ViewTest, shows_every_key_with_its_meaning_at_the_least_size) {
  with_control = true;
  in_step();
  const std::string text = screen();
  for (const KeyCommand& command : key_commands()) {
    if (command.command == "rate") continue;  // two keys in one place
    EXPECT_THAT(text, HasSubstr(std::string(1, command.key) + " " + std::string(command.meaning)));
  }
  EXPECT_THAT(text, HasSubstr("+- walk faster, slower"));
  EXPECT_THAT(text, HasSubstr("c take all back"));
}

TEST_F(ViewTest, shows_what_a_key_has_done) {
  with_control = true;
  in_step();
  desk.press('d', now);
  desk.heard("ok drop 1\n", now);
  EXPECT_THAT(line_with("control "), HasSubstr("armed: ok drop 1"));
  desk.press('4', now);
  EXPECT_THAT(line_with("control "), HasSubstr("4, then a key"));
}

TEST_F(ViewTest, tells_that_the_control_port_is_silent) {
  with_control = true;
  in_step();
  EXPECT_NE(line_with("the control port does not answer"), "");
}

TEST_F(ViewTest, shows_the_counters_that_are_not_zero_and_how_many_more_there_are) {
  with_control = true;
  in_step();
  std::string stats = "ok orders=1000000";
  for (const char* name :
       {"accepts", "fills", "partials", "cancels", "replaces", "rejects", "replace_rejects",
        "cancel_rejects", "unsolicited_cancels", "race_fills", "late_cancels"}) {
    stats += std::string(" ") + name + "=1000000";
  }
  stats +=
      " stale_cancels=0 logins=3 logons=3 resend_requests=0 replays=0 replayed=0 next_seq=7 "
      "quorl faults: sent 5 dropped 1 duplicated 2 reordered 3 session=up\n";
  desk.heard(stats, now);
  EXPECT_NE(line_with(" sent 5  dropped 1  duplicated 2  reordered 3  next_seq 7  FIX up"), "");
  EXPECT_THAT(line_with("orders 1000000"), HasSubstr("+10 more"));
  EXPECT_THAT(screen(40, 120), AllOf(HasSubstr("logons 3"), Not(HasSubstr("more")),
                                     Not(HasSubstr("stale_cancels"))));
}

TEST_F(ViewTest, explains_the_keys_on_a_page_that_fits) {
  with_control = true;
  help = true;
  const std::string text = screen();
  for (const KeyCommand& command : key_commands()) {
    EXPECT_THAT(text, HasSubstr(std::string(command.detail)));
  }
  EXPECT_THAT(text, HasSubstr("any key: back"));
  with_control = false;
  EXPECT_THAT(screen(), HasSubstr("--control-port"));
}

TEST_F(ViewTest, is_pure_ascii_where_that_is_asked_for) {
  with_control = true;
  in_step();
  full_book("AAPL");
  trades("AAPL", 1900000, 100);
  trades("AAPL", 1900100, 100);
  const std::string text =
      draw({.market = market, .health = health, .desk = &desk, .now_ns = NOON_NS, .now = now}, 24,
           80)
          .text(true);
  EXPECT_THAT(text, Each(AllOf(testing::Lt(127), testing::Ge('\n'))));
  EXPECT_THAT(text, Not(HasSubstr("?A"))) << text;
  EXPECT_THAT(text, HasSubstr("^ 190.01"));
}

TEST(Text, of_numbers_and_times) {
  EXPECT_EQ(with_commas(0), "0");
  EXPECT_EQ(with_commas(999), "999");
  EXPECT_EQ(with_commas(1000), "1,000");
  EXPECT_EQ(with_commas(12345678), "12,345,678");
  EXPECT_EQ(fixed_price(1900000, 2), "190.00");
  EXPECT_EQ(fixed_price(1, 4), "0.0001");
  EXPECT_EQ(fixed_price(-15000, 2), "-1.50");
  EXPECT_EQ(time_of_day(NOON_NS + 3661000000000), "13:01:01");
}

}  // namespace
}  // namespace ladder
