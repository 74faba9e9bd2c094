#include "certify/trader/options.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <string>

#include "tools/command_line.h"
#include "tools/exit_status.h"
#include "tools/stop_signal.h"

namespace certify::trader {
namespace {

std::string complaint_about_host(const std::string& text) {
  in_addr address{};
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1 ? "" : text + " is no IPv4 address";
}

std::string complaint_about_group(const std::string& text) {
  in_addr address{};
  const bool is_address = ::inet_pton(AF_INET, text.c_str(), &address) == 1;
  return is_address && IN_MULTICAST(ntohl(address.s_addr)) ? "" : text + " is no multicast group";
}

std::string complaint_about_comp_id(const std::string& text) {
  constexpr size_t MOST = 64;
  const bool is_good =
      !text.empty() && text.size() <= MOST &&
      std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~' && c != '|'; });
  return is_good ? "" : "'" + text + "' is no CompID";
}

void add_addresses(CLI::App& line, TraderOptions& options) {
  quorl::client::Ports& ports = options.ports;
  ports = {.group = "233.54.26.111",
           .feed = 25477,
           .snap = 25479,
           .gap_fill = 25479,
           .fix = 28500,
           .control = 0};
  line.add_option("--host", options.host, "Address of FIX")
      ->check(CLI::Validator(complaint_about_host, "ADDRESS"))
      ->envname("QUORL_FIX_HOST")
      ->capture_default_str();
  tools::add_port(line, "--fix-port", ports.fix, "TCP port of FIX")->envname("QUORL_FIX_PORT");
  line.add_option("--mcast", ports.group, "Multicast group of the feed")
      ->check(CLI::Validator(complaint_about_group, "GROUP"))
      ->envname("QUORL_FEED_GROUP")
      ->capture_default_str();
  tools::add_port(line, "--port", ports.feed, "UDP port of the feed")->envname("QUORL_FEED_PORT");
  tools::add_port(line, "--snap-port", ports.snap, "TCP port of images")
      ->envname("QUORL_SNAP_PORT");
  tools::add_port(line, "--gapfill-port", ports.gap_fill, "UDP port of gap fill")
      ->envname("QUORL_GAPFILL_PORT");
}

void add_session(CLI::App& line, TraderOptions& options) {
  SessionOptions& session = options.session;
  line.add_option("--comp-id", session.comp_id, "SenderCompID of the session")
      ->check(CLI::Validator(complaint_about_comp_id, "COMPID"))
      ->capture_default_str();
  line.add_option_function<unsigned>(
          "--heartbeat",
          [&session](unsigned seconds) { session.heartbeat = std::chrono::seconds(seconds); },
          "HeartBtInt (108) of the Logon [1]")
      ->check(CLI::Range(1, 3600))
      ->type_name("SECONDS");
  line.add_flag("--reset,!--no-reset", session.reset,
                "Begin with number 1 (141=Y), which is the default, or go on where the session was "
                "left");
  line.add_flag("--replay", session.replays,
                "Asked to send again, send the orders again with 43=Y, instead of one GapFill");
}

void add_trading(CLI::App& line, TraderOptions& options) {
  line.add_option("--symbols", options.strategy.symbols, "What to trade, such as AAPL,MSFT")
      ->delimiter(',')
      ->envname("QUORL_SYMBOLS")
      ->capture_default_str();
  line.add_option("--rate", options.strategy.rate,
                  "Orders, cancels and replaces a second, together")
      ->check(CLI::Range(0.01, 1000.0))
      ->capture_default_str();
  line.add_option("--orders", options.strategy.orders,
                  "End when so many orders have been sent and none is open");
  tools::add_seconds(line, "--seconds", options.time.emplace(0), "End after so long");
  line.add_flag("!--no-feed", options.feed, "Take no feed: the fills tell the prices");
}

}  // namespace

void add_options(CLI::App& line, TraderOptions& options) {
  add_addresses(line, options);
  add_session(line, options);
  add_trading(line, options);
  BeliefFiles& belief = options.belief;
  line.add_option("--positions", belief.positions, "Write to FILE what the orders have come to")
      ->type_name("FILE");
  line.add_option("--events", belief.events, "Write to FILE what was heard of the orders")
      ->type_name("FILE");
  line.add_option("--book", belief.book, "Write to FILE the book as the feed tells it")
      ->type_name("FILE");
}

void complete(TraderOptions& options) {
  if (options.time && options.time->count() == 0) options.time.reset();
  if (options.strategy.symbols.empty()) options.strategy.symbols = {"AAPL"};
  const char* const run = std::getenv("QUORL_RUN");
  if (run == nullptr || *run == '\0') return;
  const auto name = [run](std::string& path, const char* usual) {
    if (path.empty()) path = std::string(run) + "/" + usual;
  };
  name(options.belief.positions, "positions.csv");
  name(options.belief.events, "events.jsonl");
  if (options.feed) name(options.belief.book, "book.json");
}

int run_trader(TraderOptions options, Habits& habits) {
  const tools::StopSignal stop;
  Trader trader(std::move(options), habits, stop);
  return trader.run() ? tools::GOOD : tools::NOBODY_ANSWERED;
}

}  // namespace certify::trader
