// quorl-trade: a FIX session by hand, or by script.

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include "tools/command_line.h"
#include "tools/standard_streams.h"
#include "tools/stop_signal.h"
#include "tools/trade/conversation.h"

namespace {

std::string complaint_about_comp_id(const std::string& text) {
  constexpr size_t MOST = 64;
  const bool is_good =
      !text.empty() && text.size() <= MOST &&
      std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~' && c != '|'; });
  return is_good ? "" : "'" + text + "' is no CompID";
}

std::string complaint_about_host(const std::string& text) {
  in_addr address{};
  return ::inet_pton(AF_INET, text.c_str(), &address) == 1 ? "" : text + " is no IPv4 address";
}

void add_options(CLI::App& line, tools::ConversationOptions& options) {
  line.add_option("CompID", options.session.comp_id, "The session's SenderCompID")
      ->check(CLI::Validator(complaint_about_comp_id, "COMPID"))
      ->capture_default_str();
  tools::add_port(line, "--fix-port,port", options.session.port, "TCP port of FIX");
  line.add_option("--host", options.session.address, "Address of the exchange")
      ->check(CLI::Validator(complaint_about_host, "ADDRESS"))
      ->capture_default_str();
  line.add_option("--heartbeat", options.session.heartbeat_s, "HeartBtInt (108) of the Logon")
      ->check(CLI::Range(1, 3600))
      ->type_name("SECONDS")
      ->capture_default_str();
  line.add_flag("--reset,!--no-reset", options.reset,
                "Begin with number 1 (141=Y), which is the default, or go on where the session was "
                "left");
  line.add_flag("--reconnect", options.reconnect,
                "Log on again by itself when the connection is lost, and ask for what was missed");
  line.add_flag("--explain", options.explain, "Show names for tags and values");
  line.add_flag("--all", options.all, "Show Heartbeats too");
  tools::add_seconds(line, "--timeout", options.timeout,
                     "How long to wait for an answer or for what a script expects [5]");
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line("quorl-trade",
                          "A FIX session by hand: reads commands from standard input, 'help' lists "
                          "them. From a file or a pipe they are a script.");
  tools::ConversationOptions options;
  options.at_terminal = ::isatty(STDIN_FILENO) == 1;
  add_options(line, options);
  if (const auto status = line.read(argc, argv)) return *status;
  try {
    const tools::StopSignal stop;
    tools::LineReader input(STDIN_FILENO);
    const int status = tools::Conversation(options, stop).run(input);
    return tools::status_behind_output(line.get_name(), status);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-trade: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
