// The ladder as its user sees it: in a terminal, beside a running exchange.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "quorl/client/snap_client.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/group_members.h"
#include "tests/tools/support/terminal.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string options_for(const client::Ports& ports, bool with_control = true) {
  std::string text = " --mcast " + ports.group + " --port " + std::to_string(ports.feed) +
                     " --snap-port " + std::to_string(ports.snap) + " --gapfill-port " +
                     std::to_string(ports.gap_fill);
  if (with_control) text += " --control-port " + std::to_string(ports.control);
  return text;
}

std::string ladder(const client::Ports& ports, const std::string& more = "",
                   bool with_control = true) {
  return built_program("quorl-ladder") + options_for(ports, with_control) + " " + more;
}

std::vector<std::string> words_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

/// The levels of the panel at the left edge: "ask 190.05 500", from the top down.
std::vector<std::string> levels_on(const std::string& screen) {
  std::vector<std::string> levels;
  std::istringstream lines(screen);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(" ask ") && !line.starts_with(" bid ")) continue;
    const std::vector<std::string> words = words_of(line);
    if (words.size() >= 3) levels.push_back(words[0] + " " + words[1] + " " + words[2]);
  }
  return levels;
}

std::string cents(client::Price4 price) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", static_cast<double>(price) / 10000);
  return text;
}

/// The same, as the exchange's own image has it: at most `count` levels a side.
std::vector<std::string> levels_of(const client::SymbolBook& book, size_t count) {
  std::vector<std::string> levels;
  for (const auto& [price, size] : book.asks) {
    if (levels.size() == count) break;
    levels.insert(levels.begin(), "ask " + cents(price) + " " + std::to_string(size));
  }
  const size_t asks = levels.size();
  for (const auto& [price, size] : book.bids) {
    if (levels.size() - asks == count) break;
    levels.push_back("bid " + cents(price) + " " + std::to_string(size));
  }
  return levels;
}

client::SymbolBook image_of(const client::Simulator& simulator, const std::string& symbol) {
  return client::SnapClient(simulator.ports().snap, simulator.session())
      .image()
      .book()
      .book(symbol);
}

/// Waits until the left panel shows the image's levels. The market must stand still.
void expect_shows_image(const Terminal& terminal, const client::Simulator& simulator,
                        const std::string& symbol, size_t count) {
  const std::vector<std::string> wanted = levels_of(image_of(simulator, symbol), count);
  ASSERT_FALSE(wanted.empty());
  terminal.await(
      [&wanted](const std::string& screen) {
        return screen.find("IN STEP") != std::string::npos && levels_on(screen) == wanted;
      },
      "the image of " + symbol + ", " + testing::PrintToString(wanted));
}

/// The number behind a word, such as "filled".
uint64_t number_behind(const std::string& word, const std::string& screen) {
  std::smatch found;
  const std::regex pattern("\\b" + word + " ([0-9]+)");
  return std::regex_search(screen, found, pattern) ? std::stoull(found[1].str()) : 0;
}

Terminal::Wanted all_of_at_least(const std::vector<std::pair<std::string, uint64_t>>& least) {
  return [least](const std::string& screen) {
    for (const auto& [word, number] : least) {
      if (number_behind(word, screen) < number) return false;
    }
    return true;
  };
}

/// A market in which nothing moves but what the test moves.
class LadderStillMarket : public testing::Test {
 protected:
  LadderStillMarket() : simulator(e2e::still()) { simulator.start(); }

  client::Simulator simulator;
};

/// A market that walks.
class LadderLivingMarket : public testing::Test {
 protected:
  LadderLivingMarket() : simulator(e2e::living({"--interval-ms", "10"})) { simulator.start(); }

  client::Simulator simulator;
};

TEST_F(LadderStillMarket, is_shown_level_by_level_as_the_image_has_it) {
  const Terminal terminal(ladder(simulator.ports()), {.columns = 80, .rows = 24});
  expect_shows_image(terminal, simulator, "AAPL", 5);
  terminal.press({"Tab"});
  expect_shows_image(terminal, simulator, "MSFT", 5);
  terminal.press({"Tab"});
  expect_shows_image(terminal, simulator, "SPY", 5);
  terminal.press({"BTab"});
  expect_shows_image(terminal, simulator, "MSFT", 5);
}

TEST_F(LadderStillMarket, shows_the_trade_of_an_order_its_volume_and_the_counters) {
  const Terminal terminal(ladder(simulator.ports(), "--symbols MSFT"), {});
  expect_shows_image(terminal, simulator, "MSFT", 5);
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon({});
  const client::Price4 best = image_of(simulator, "MSFT").asks.begin()->first;
  session.new_order(
      {.cl_ord_id = "a1", .symbol = "MSFT", .quantity = "50", .price = client::price_text(best)});
  terminal.shows(
      {"MSFT  " + cents(best) + " ·", "vol 50", "orders 1  accepts 1  fills 1", "FIX up"});
  expect_shows_image(terminal, simulator, "MSFT", 5);
}

/// A ladder counts what is answered within a second. What comes later, of an exchange that has
/// stood still, is told as any answer is, that to lapse last; then the key is pressed again.
void takes_all_back(const Terminal& terminal) {
  const std::string all = "taken back: ok, 12 of 12";
  const auto answered = [&all](const std::string& screen) {
    return screen.find(all) != std::string::npos ||
           screen.find("armed: ok lapse 0 ") != std::string::npos;
  };
  for (int round = 1; round <= 9; ++round) {
    const std::string number = std::to_string(round);
    terminal.press({number, "d"});
    terminal.shows({"armed: ok drop " + number + " "});
    terminal.press({"c"});
    if (terminal.await(answered, all).find(all) != std::string::npos) return;
  }
  ADD_FAILURE() << "nine times not all is taken back within a second";
}

TEST_F(LadderStillMarket, is_armed_by_single_keys_which_the_exchange_confirms) {
  const Terminal terminal(ladder(simulator.ports()), {});
  terminal.shows({"IN STEP", "d lose next packet", "FIX down"});
  const std::pair<const char*, const char*> keys[] = {{"d", "drop 1"},
                                                      {"u", "dup 1"},
                                                      {"o", "reorder 1"},
                                                      {"j", "reject 1"},
                                                      {"h", "partial 1"},
                                                      {"f", "fill_on_cancel 1"},
                                                      {"n", "unsolicited_cancel 1"},
                                                      {"k", "replace_reject 1"},
                                                      {"x", "disconnect"},
                                                      {"l", "lapse 5000"},
                                                      {"p", "pause"},
                                                      {"r", "resume"},
                                                      {"+", "rate 20"},
                                                      {"-", "rate 40"},
                                                      {"m", "mark ladder"},
                                                      {"D", "drop_every 20"},
                                                      {"U", "dup_every 20"},
                                                      {"O", "reorder_every 20"}};
  for (const auto& [key, command] : keys) {
    terminal.press({key});
    terminal.shows({std::string("armed: ok ") + command + " "});
  }
  takes_all_back(terminal);
}

TEST_F(LadderStillMarket, an_armed_reject_meets_the_next_order) {
  const Terminal terminal(ladder(simulator.ports()), {});
  terminal.shows({"IN STEP"});
  terminal.press({"j"});
  terminal.shows({"armed: ok reject 1"});
  client::FixSession session(simulator.ports().fix, "ALPHA");
  session.logon({});
  session.new_order({.cl_ord_id = "a1", .quantity = "100", .price = "185.00"});
  session.hears("35=8|150=8|58=bench:scripted_reject");
  terminal.shows({"rejects 1"});
}

TEST_F(LadderLivingMarket, a_lost_packet_is_seen_and_filled) {
  const Terminal terminal(ladder(simulator.ports(), "--symbols AAPL"), {});
  terminal.shows({"IN STEP", "FIX down"});
  terminal.press({"d"});
  terminal.shows({"armed: ok drop 1"});
  terminal.await(all_of_at_least({{"gaps", 1}, {"filled", 1}, {"dropped", 1}}), "a filled gap");
  terminal.press({"p"});
  terminal.shows({"armed: ok pause"});
  expect_shows_image(terminal, simulator, "AAPL", 5);
}

TEST_F(LadderLivingMarket, an_image_stands_in_where_gap_fill_does_not_answer) {
  const client::PortSlot nobody;
  client::Ports ports = simulator.ports();
  ports.gap_fill = nobody.ports().gap_fill;
  const Terminal terminal(ladder(ports, "--symbols AAPL"), {});
  terminal.shows({"IN STEP", "images 1", "FIX down"});
  terminal.press({"D"});  // one gap after the other: one of them is open when the screen is read
  terminal.shows({"armed: ok drop_every 20 "});
  terminal.shows({"RECOVERING"});
  terminal.press({"0", "D"});
  terminal.shows({"armed: ok drop_every 0 "});
  terminal.await(all_of_at_least({{"images", 2}, {"jumped", 1}}), "a second image");
  terminal.press({"p"});
  terminal.shows({"armed: ok pause"});
  expect_shows_image(terminal, simulator, "AAPL", 5);
}

TEST_F(LadderLivingMarket, is_followed_rightly_through_every_fault_at_once) {
  const Terminal terminal(ladder(simulator.ports(), "--symbols SPY"), {});
  terminal.shows({"IN STEP", "FIX down"});
  terminal.press({"5", "D"});
  terminal.shows({"armed: ok drop_every 5 "});
  terminal.press({"3", "U"});
  terminal.shows({"armed: ok dup_every 3 "});
  terminal.press({"4", "O"});
  terminal.shows({"armed: ok reorder_every 4 "});
  terminal.await(all_of_at_least({{"gaps", 10}, {"filled", 50}, {"dups", 10}, {"reordered", 5}}),
                 "much that is repaired");
  terminal.press({"p"});
  terminal.shows({"armed: ok pause"});
  expect_shows_image(terminal, simulator, "SPY", 5);
}

TEST_F(LadderStillMarket, a_silent_exchange_is_told_and_keys_are_answered_meanwhile) {
  const Terminal terminal(ladder(simulator.ports()), {});
  terminal.shows({"IN STEP", "FIX down"});
  simulator.stop_process();
  terminal.press({"d"});
  terminal.shows({"no answer to drop 1"});
  terminal.shows({"SILENT", "the control port does not answer"});
  terminal.press({"?"});
  terminal.shows({"any key: back"});
  terminal.press({"q"});  // and does not wait for the exchange, which stands still on
  terminal.await([&](const std::string&) { return terminal.ask("alternate_on") == "0"; },
                 "its end");
  simulator.cont_process();
}

TEST_F(LadderStillMarket, comes_back_in_step_when_a_silent_exchange_goes_on) {
  const Terminal terminal(ladder(simulator.ports()), {});
  terminal.shows({"IN STEP"});
  simulator.stop_process();
  terminal.shows({"SILENT"});
  simulator.cont_process();
  expect_shows_image(terminal, simulator, "AAPL", 5);
}

/// A second run on the same ports, under another session.
client::Simulator another_run(const client::Ports& ports, const std::string& session,
                              std::vector<std::string> more) {
  client::SimulatorOptions options =
      e2e::living({"--mcast", ports.group, "--port", std::to_string(ports.feed), "--snap-port",
                   std::to_string(ports.snap), "--gapfill-port", std::to_string(ports.gap_fill),
                   "--fix-port", std::to_string(ports.fix), "--control-port",
                   std::to_string(ports.control), "--session", session});
  options.own_ports = false;
  options.arguments.insert(options.arguments.end(), more.begin(), more.end());
  return client::Simulator(options);
}

TEST(LadderRestart, of_the_exchange_under_another_session_begins_a_new_market) {
  client::Simulator first(e2e::still({"--session", "7001", "--symbols", "OLD:50,BOTH:60"}));
  first.start();
  const client::Ports ports = first.ports();
  const Terminal terminal(ladder(ports), {});
  terminal.shows({"session 7001", "IN STEP", "OLD  spread"});
  first.terminate();
  terminal.shows({"SILENT"});
  client::Simulator second =
      another_run(ports, "7002", {"--interval-ms", "-1", "--symbols", "BOTH:70,NEW:80"});
  second.start();
  terminal.shows({"session 7002", "IN STEP", "NEW  spread"});
  const std::string screen = terminal.screen();
  EXPECT_THAT(screen, AllOf(Not(HasSubstr("OLD")), Not(HasSubstr("SILENT"))));
  const auto wanted =
      levels_of(client::SnapClient(ports.snap, 7002).image().book().book("BOTH"), 5);
  terminal.await([&](const std::string& s) { return levels_on(s) == wanted; }, "the new market");
}

TEST(LadderRestart, of_the_exchange_under_the_same_session_is_noticed_too) {
  client::Simulator first(e2e::living({"--session", "7001", "--interval-ms", "10"}));
  first.start();
  const client::Ports ports = first.ports();
  const Terminal terminal(ladder(ports, "--symbols AAPL"), {});
  terminal.shows({"session 7001", "IN STEP"});
  terminal.await(all_of_at_least({{"packets", 50}}), "some way into the run");
  first.terminate();
  client::Simulator second = another_run(ports, "7001", {"--interval-ms", "-1"});
  second.start();
  const auto wanted =
      levels_of(client::SnapClient(ports.snap, 7001).image().book().book("AAPL"), 5);
  terminal.await(
      [&](const std::string& screen) {
        return screen.find("IN STEP") != std::string::npos && levels_on(screen) == wanted;
      },
      "the new market");
}

TEST(LadderWaiting, for_an_exchange_that_comes_later_and_is_then_followed_from_its_first_packet) {
  client::Simulator simulator(e2e::still());
  const Terminal terminal(ladder(simulator.ports()), {});
  terminal.shows({"waiting for the exchange on " + simulator.ports().group + ":" +
                  std::to_string(simulator.ports().feed)});
  await_joined(simulator.ports().group);  // by another thread than the one that draws
  simulator.start();
  expect_shows_image(terminal, simulator, "AAPL", 5);
  // If this run's first start found its ports taken, an image was needed.
  if (simulator.restarts() == 0) {
    EXPECT_EQ(number_behind("images", terminal.screen()), 0u);
  }
}

/// A second exchange on the same group that serves other ports is not the one to follow.
TEST_F(LadderStillMarket, keeps_to_the_exchange_that_serves_its_ports) {
  const Terminal terminal(ladder(simulator.ports()), {.columns = 120, .rows = 24});
  terminal.shows({"IN STEP", "session " + std::to_string(simulator.session())});
  const client::Ports& mine = simulator.ports();
  client::Simulator other(e2e::still({"--mcast", mine.group, "--port", std::to_string(mine.feed),
                                      "--session", "4242", "--symbols", "ELSE:10"}));
  other.start();
  terminal.await(all_of_at_least({{"foreign", 3}}), "packets of the other exchange");
  const std::string screen = terminal.screen();
  EXPECT_THAT(screen, AllOf(HasSubstr("session " + std::to_string(simulator.session())),
                            Not(HasSubstr("ELSE"))));
}

TEST_F(LadderStillMarket, is_drawn_anew_at_every_size) {
  const Terminal terminal(ladder(simulator.ports()), {.columns = 80, .rows = 24});
  terminal.shows({"2 of 3: tab"});
  terminal.resize({.columns = 120, .rows = 40});
  terminal.shows({"AAPL  spread", "MSFT  spread", "SPY  spread", "O hold each 20th back"});
  expect_shows_image(terminal, simulator, "AAPL", 13);
  terminal.resize({.columns = 60, .rows = 20});
  terminal.shows({"quorl-ladder needs 80x24, this is 60x20"});
  terminal.resize({.columns = 10, .rows = 2});
  terminal.resize({.columns = 80, .rows = 24});
  terminal.shows({"2 of 3: tab", "IN STEP"});
  expect_shows_image(terminal, simulator, "AAPL", 5);
}

/// How it ends, and how it leaves the terminal.
class LadderLeaving : public LadderStillMarket {
 protected:
  /// In a terminal whose settings are compared before and after.
  std::string compared(const std::string& command) const {
    return "echo EARLIER; stty -g >" + before() + "; " + command + "; echo status $?; stty -g >" +
           after();
  }
  std::string before() const { return directory.path() + "/before"; }
  std::string after() const { return directory.path() + "/after"; }

  void expect_left_as_it_was(const Terminal& terminal, const std::string& status) {
    terminal.shows({"EARLIER", "status " + status});
    EXPECT_EQ(terminal.ask("alternate_on"), "0");
    EXPECT_EQ(terminal.ask("cursor_flag"), "1");
    terminal.await([this](const std::string&) { return !client::read_file(after()).empty(); },
                   "stty");
    EXPECT_EQ(client::read_file(before()), client::read_file(after()));
    EXPECT_THAT(terminal.screen(), Not(HasSubstr("IN STEP")));
  }

  client::TempDirectory directory;
};

TEST_F(LadderLeaving, by_q) {
  const Terminal terminal(compared(ladder(simulator.ports())), {});
  terminal.shows({"IN STEP"});
  EXPECT_EQ(terminal.ask("alternate_on"), "1");
  EXPECT_EQ(terminal.ask("cursor_flag"), "0");
  terminal.press({"q"});
  expect_left_as_it_was(terminal, "0");
}

TEST_F(LadderLeaving, by_ctrl_c) {
  // The shell that runs it takes the signal too, and goes on as an interactive one does.
  const Terminal terminal("trap : INT; " + compared(ladder(simulator.ports())), {});
  terminal.shows({"IN STEP"});
  terminal.press({"C-c"});
  expect_left_as_it_was(terminal, "0");
}

TEST_F(LadderLeaving, by_sigterm) {
  const std::string pid_file = directory.path() + "/pid";
  const Terminal terminal(
      compared("sh -c 'echo $$ >" + pid_file + "; exec " + ladder(simulator.ports()) + "'"), {});
  terminal.shows({"IN STEP"});
  ASSERT_EQ(::kill(std::stoi(client::read_file(pid_file)), SIGTERM), 0);
  expect_left_as_it_was(terminal, "0");
}

TEST_F(LadderLeaving, for_a_while_by_ctrl_z) {
  const Terminal terminal("bash --norc -i", {});
  terminal.press({ladder(simulator.ports()), "Enter"});
  terminal.shows({"IN STEP"});
  terminal.press({"C-z"});
  terminal.shows({"Stopped"});
  EXPECT_EQ(terminal.ask("alternate_on"), "0");
  EXPECT_EQ(terminal.ask("cursor_flag"), "1");
  terminal.press({"fg", "Enter"});
  expect_shows_image(terminal, simulator, "AAPL", 5);
  terminal.press({"q"});
  terminal.shows({"Stopped"});
}

TEST_F(LadderLeaving, a_terminal_that_cannot_be_drawn_on_is_left_alone) {
  const Terminal terminal(compared("TERM=nonsense " + ladder(simulator.ports())), {});
  expect_left_as_it_was(terminal, "2");
  EXPECT_THAT(terminal.screen(), HasSubstr("'nonsense' (TERM)"));
}

constexpr const char* COLOUR = "\x1b\\[[0-9;]*3[0-7]m";  // a foreground colour

TEST_F(LadderStillMarket, is_drawn_in_colours_where_they_are_wanted) {
  const Terminal terminal(ladder(simulator.ports()), {});
  terminal.shows({"IN STEP", "FIX down"});
  EXPECT_TRUE(std::regex_search(terminal.screen(true), std::regex(COLOUR)));
}

TEST_F(LadderStillMarket, is_drawn_without_colours_by_NO_COLOR_and_on_terminals_without_any) {
  for (const char* prefix : {"NO_COLOR=1 ", "TERM=vt100 "}) {
    const Terminal terminal(prefix + ladder(simulator.ports()), {});
    terminal.shows({"IN STEP", "FIX down"});
    expect_shows_image(terminal, simulator, "AAPL", 5);
    EXPECT_FALSE(std::regex_search(terminal.screen(true), std::regex(COLOUR))) << prefix;
  }
}

TEST_F(LadderStillMarket, is_drawn_in_ascii_for_a_locale_without_utf8) {
  const Terminal terminal("LC_ALL=C " + ladder(simulator.ports()), {});
  expect_shows_image(terminal, simulator, "AAPL", 5);
  const std::string screen = terminal.screen();
  EXPECT_THAT(screen, testing::Each(testing::AllOf(testing::Gt(0), testing::Lt(127))));
  EXPECT_THAT(screen, HasSubstr("###"));
}

TEST_F(LadderStillMarket, takes_the_control_port_from_the_environment) {
  const Terminal terminal("QUORL_CONTROL_PORT=" + std::to_string(simulator.ports().control) + " " +
                              ladder(simulator.ports(), "", false),
                          {});
  terminal.shows({"control 127.0.0.1:" + std::to_string(simulator.ports().control), "FIX down"});
}

TEST_F(LadderStillMarket, has_more_room_without_a_control_port) {
  const Terminal terminal(ladder(simulator.ports(), "", false), {});
  expect_shows_image(terminal, simulator, "AAPL", 9);
  EXPECT_THAT(terminal.screen(), Not(HasSubstr("lose next packet")));
}

std::vector<std::string> once(const client::Ports& ports, const std::string& more) {
  return words_of(options_for(ports) + " --once " + more);
}

TEST_F(LadderStillMarket, is_printed_once_as_plain_text) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  Said said;
  do {  // it waits a second for the counters, and an exchange may stand still longer
    said = run_tool("ladder", once(simulator.ports(), ""), "", {{"LC_ALL", "C.UTF-8"}});
  } while (said.out.find("the control port does not answer") != std::string::npos &&
           !deadline.expired());
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.err, "");
  EXPECT_EQ(levels_on(said.out), levels_of(image_of(simulator, "AAPL"), 5));
  EXPECT_THAT(said.out, AllOf(HasSubstr("IN STEP"), HasSubstr("FIX down"), HasSubstr("█"),
                              Not(HasSubstr("\x1b"))));
  EXPECT_EQ(std::count(said.out.begin(), said.out.end(), '\n'), 24);
}

TEST(LadderOnce, without_an_exchange_ends_with_status_3_and_a_word_why) {
  const client::PortSlot slot;
  const Said said = run_tool("ladder", once(slot.ports(), "--timeout 1"));
  EXPECT_EQ(said.status, 3);
  EXPECT_EQ(said.out, "");
  EXPECT_EQ(said.err, "quorl-ladder: no exchange in step on " + slot.ports().group + ":" +
                          std::to_string(slot.ports().feed) + " within 1 s\n");
}

TEST_F(LadderStillMarket, is_not_in_step_without_images_and_that_is_said) {
  client::Ports elsewhere = simulator.ports();
  const client::PortSlot nobody;
  elsewhere.snap = nobody.ports().snap;
  const Said said = run_tool("ladder", once(elsewhere, "--timeout 4"));
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.err, HasSubstr("connect to port " + std::to_string(elsewhere.snap)));
}

TEST(LadderArguments, without_a_terminal_it_points_to_what_works_without) {
  const Said said = run_tool("ladder", {});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.out, "");
  EXPECT_THAT(said.err,
              AllOf(HasSubstr("needs a terminal"), HasSubstr("quorl-watch"), HasSubstr("--once")));
  EXPECT_EQ(std::count(said.err.begin(), said.err.end(), '\n'), 1);
}

TEST(LadderArguments, that_are_bad_are_refused_in_a_line) {
  const std::vector<std::vector<std::string>> all = {
      {"--mcast", "10.0.0.1"},     {"--port", "0"},          {"--snap-port", "65536"},
      {"--control-port", "x"},     {"--gapfill-port", "-1"}, {"--symbols", ",:1"},
      {"--once", "--timeout", "0"}};
  for (const auto& arguments : all) {
    const Said said = run_tool("ladder", arguments);
    EXPECT_EQ(said.status, 2) << arguments[0];
    EXPECT_THAT(said.err, HasSubstr(arguments[arguments.size() - 2])) << said.err;
  }
  const Said said = run_tool("ladder", {}, "", {{"QUORL_CONTROL_PORT", "none"}});
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.err, Not(HasSubstr("terminal")));
}

}  // namespace
}  // namespace tools_test
