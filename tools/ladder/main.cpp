// The market to look at, full screen: levels, trades, and the health of the feed; with the control
// port, the keys that make the exchange misbehave.

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "quorl/client/port_slot.h"
#include "tools/command_line.h"
#include "tools/ladder/program.h"
#include "tools/ladder/terminal.h"
#include "tools/standard_streams.h"

namespace client = quorl::client;

namespace {

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

int print_once(ladder::Program& program, int timeout_s) {
  if (const auto text = program.once(std::chrono::seconds(timeout_s))) {
    std::fputs(text->c_str(), stdout);
    return tools::GOOD;
  }
  const std::string trouble = program.trouble();
  std::fprintf(stderr, "quorl-ladder: no exchange in step on %s within %d s%s%s\n",
               program.feed_text().c_str(), timeout_s, trouble.empty() ? "" : ": ",
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
  // Kept to the end of the process: it may be waiting for an exchange that stands still, and nobody
  // who has pressed q wants to wait with it.
  static ladder::Program program(
      {.ports = options.ports(), .symbols = symbols_in(options.symbols)});
  if (options.once) return print_once(program, options.timeout_s);
  program.run_on_terminal(tools::wants_colour(STDOUT_FILENO));
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
  std::quick_exit(tools::status_behind_output("quorl-ladder", status));
}
