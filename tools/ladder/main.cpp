// The market to look at, full screen: levels, trades, and the health of the feed; with the control
// port, the keys that make the exchange misbehave.

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "quorl/client/control_client.h"
#include "tools/command_line.h"
#include "tools/ladder/desk.h"
#include "tools/ladder/follower.h"
#include "tools/ladder/terminal.h"
#include "tools/ladder/view.h"

namespace client = quorl::client;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds FRAME{100};  // from one picture to the next, unless a key comes
constexpr int LONGEST_TIMEOUT_S = 3600;
constexpr size_t SYMBOL_SIZE = 8;  // what the feed cuts symbols to

struct Options {
  tools::FeedAddress feed;
  uint16_t snap_port = 25479;
  uint16_t gap_fill_port = 0;  // 0: as snap_port
  uint16_t control_port = 0;   // 0: none
  std::string symbols;
  bool once = false;
  int timeout_s = 10;

  client::Ports ports() const {
    return {.group = feed.group,
            .feed = feed.port,
            .snap = snap_port,
            .gap_fill = gap_fill_port == 0 ? snap_port : gap_fill_port,
            .control = control_port};
  }
  std::string feed_text() const { return feed.group + ":" + std::to_string(feed.port); }
};

/// The list as the exchange takes it: prices may stand behind the symbols and are left out.
std::vector<std::string> symbols_in(const std::string& list) {
  std::vector<std::string> symbols;
  std::istringstream items(list);
  for (std::string item; std::getline(items, item, ',');) {
    const std::string symbol = item.substr(0, item.find(':')).substr(0, SYMBOL_SIZE);
    if (!symbol.empty()) symbols.push_back(symbol);
  }
  return symbols;
}

std::string complaint_about_symbols(const std::string& list) {
  return symbols_in(list).empty() ? "'" + list + "' names no symbol" : "";
}

void add_options(CLI::App& line, Options& options) {
  tools::add_feed_address(line, options.feed);
  tools::add_port(line, "--snap-port", options.snap_port, "TCP port of DEEP SNAP");
  line.add_option("--gapfill-port", options.gap_fill_port,
                  "UDP port of gap fill; 0: that of --snap-port")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  line.add_option("--control-port", options.control_port,
                  "UDP port of the control port, for counters and keys; 0: none")
      ->check(CLI::Range(0, 65535))
      ->envname("QUORL_CONTROL_PORT")
      ->capture_default_str();
  line.add_option("--symbols", options.symbols, "Comma list of the symbols to show, all without it")
      ->check(CLI::Validator(complaint_about_symbols, "LIST"));
  line.add_flag("--once", options.once,
                "Print one screen as plain text once in step with the feed, and end");
  line.add_option("--timeout", options.timeout_s, "Seconds that --once waits for the exchange")
      ->check(CLI::Range(1, LONGEST_TIMEOUT_S))
      ->capture_default_str();
}

/// The desk and the socket to the control port. Nothing here waits.
class ControlLink {
 public:
  explicit ControlLink(uint16_t port) : port_(port), desk_("127.0.0.1:" + std::to_string(port)) {}

  const ladder::Desk& desk() const { return desk_; }

  void press(char key) { send(desk_.press(key, steady_clock::now())); }

  void turn() {
    while (const auto reply = port_.receive(milliseconds(0))) {
      desk_.heard(*reply, steady_clock::now());
    }
    send(desk_.due(steady_clock::now()));
  }

 private:
  void send(const std::vector<std::string>& datagrams) {
    for (const std::string& datagram : datagrams) port_.send(datagram);
  }

  client::ControlClient port_;
  ladder::Desk desk_;
};

uint64_t system_ns() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count());
}

volatile std::sig_atomic_t ended_by_signal = 0;

void note_signal(int number) { ended_by_signal = number; }

void catch_signals() {
  struct sigaction action {};
  action.sa_handler = note_signal;  // no SA_RESTART: the wait for a key ends
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(number, &action, nullptr);
}

/// The program between its first and its last picture.
class Ladder {
 public:
  explicit Ladder(const Options& options)
      : options_(options), filter_(symbols_in(options.symbols)), follower_(options.ports()) {
    if (options.control_port != 0) control_.emplace(options.control_port);
  }

  /// On the terminal, until the user or a signal ends it.
  void run() {
    ladder::Terminal terminal;
    while (ended_by_signal == 0) {
      if (control_) control_->turn();
      terminal.show(picture(terminal.rows(), terminal.columns()));
      const auto key = terminal.key(FRAME);
      if (key && !obey(*key)) return;
    }
  }

  /// One picture as plain text; nothing if the feed is not there in time.
  std::optional<std::string> once() {
    const auto deadline = client::Deadline::after(std::chrono::seconds(options_.timeout_s));
    if (!follower_.await_in_step(deadline)) return std::nullopt;
    const auto answered = client::Deadline::after(ladder::Desk::ANSWER_TIME);
    while (control_ && !control_->desk().stats() && !answered.expired()) {
      control_->turn();
      ::poll(nullptr, 0, 1);
    }
    return picture(ladder::LEAST_ROWS, ladder::LEAST_COLUMNS).text(ladder::locale_is_ascii());
  }

  /// Why once() brought nothing.
  std::string trouble() const {
    std::string text;
    follower_.look(
        [&text](const ladder::Market&, const ladder::Health& health) { text = health.trouble; });
    return text;
  }

 private:
  ladder::Grid picture(size_t rows, size_t columns) const {
    ladder::Grid grid(0, 0);
    follower_.look([&](const ladder::Market& market, const ladder::Health& health) {
      grid = ladder::draw({.market = market,
                           .health = health,
                           .desk = control_ ? &control_->desk() : nullptr,
                           .feed = options_.feed_text(),
                           .filter = filter_,
                           .first_symbol = first_symbol_,
                           .help = help_,
                           .now_ns = system_ns(),
                           .now = steady_clock::now()},
                          rows, columns);
    });
    return grid;
  }

  /// False for the key that ends it.
  bool obey(int key) {
    if (key == 'q') return false;
    if (key == static_cast<int>(ladder::Key::RESIZED)) return true;
    if (std::exchange(help_, false)) return true;
    if (key == '?') help_ = true;
    if (key == static_cast<int>(ladder::Key::TAB)) turn_symbols(1);
    if (key == static_cast<int>(ladder::Key::BACK_TAB)) turn_symbols(-1);
    if (control_ && key < 128) control_->press(static_cast<char>(key));
    return true;
  }

  void turn_symbols(int by) {
    size_t count = 0;
    follower_.look([&](const ladder::Market& market, const ladder::Health&) {
      count = ladder::chosen_symbols(market, filter_).size();
    });
    if (count > 0) first_symbol_ = (first_symbol_ + (by > 0 ? 1 : count - 1)) % count;
  }

  const Options& options_;
  std::vector<std::string> filter_;
  ladder::Follower follower_;
  std::optional<ControlLink> control_;
  size_t first_symbol_ = 0;
  bool help_ = false;
};

int print_once(Ladder& ladder, const Options& options) {
  const auto text = ladder.once();
  if (text) {
    std::fputs(text->c_str(), stdout);
    return tools::GOOD;
  }
  const std::string trouble = ladder.trouble();
  std::fprintf(stderr, "quorl-ladder: no exchange in step on %s within %d s%s%s\n",
               options.feed_text().c_str(), options.timeout_s, trouble.empty() ? "" : ": ",
               trouble.c_str());
  return tools::NOBODY_ANSWERED;
}

int run(const Options& options) {
  if (!options.once && (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1)) {
    std::fputs(
        "quorl-ladder: needs a terminal; quorl-watch prints the feed line by line, "
        "quorl-ladder --once one screen\n",
        stderr);
    return tools::USED_WRONGLY;
  }
  // Kept to the end of the process: the follower may be waiting for an exchange that stands still,
  // and nobody who has pressed q wants to wait with it.
  static Ladder ladder(options);
  if (options.once) return print_once(ladder, options);
  catch_signals();
  ladder.run();
  return tools::GOOD;
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line("quorl-ladder",
                          "The market to look at, full screen: levels, trades, and the health of "
                          "the feed. q ends it, ? explains the keys.");
  Options options;
  add_options(line, options);
  if (const auto status = line.read(argc, argv)) return *status;
  int status = tools::SAID_NO;
  try {
    status = run(options);
  } catch (const ladder::NoTerminal& failure) {
    std::fprintf(stderr, "quorl-ladder: %s\n", failure.what());
    status = tools::USED_WRONGLY;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-ladder: %s\n", failure.what());
  }
  std::fflush(stdout);
  std::quick_exit(status);
}
