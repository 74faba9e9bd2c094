// Sends a command to the control port of a running exchange and prints the reply.
//
//   quorl-control [--port N] COMMAND...

#include <unistd.h>

#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/control/command_words.h"
#include "tools/control/request.h"
#include "tools/standard_streams.h"

namespace {

constexpr const char* PORT_VARIABLE = "QUORL_CONTROL_PORT";

constexpr std::chrono::seconds TIMEOUT_OF_A_START{10};  // with --wait, unless told otherwise

std::optional<uint16_t> port_of(const std::string& text) {
  uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port == 0) return std::nullopt;
  return port;
}

/// The words of the command. A complaint if an option of ours that there is not is among them;
/// behind "--" nothing is, and a number is none.
std::string take_words(const std::vector<std::string>& given, std::vector<std::string>& words) {
  bool options_end = false;
  for (const std::string& word : given) {
    const bool like_option =
        word.size() > 1 && word[0] == '-' && std::isdigit(static_cast<unsigned char>(word[1])) == 0;
    if (!options_end && word == "--") {
      options_end = true;
    } else if (!options_end && like_option) {
      return "there is no option " + word + "; a word of a command stands behind --";
    } else {
      words.push_back(word);
    }
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line(
      "quorl-control", "Sends a command, the WORDs, to a running exchange and prints the reply.");
  tools::Request request;
  const CLI::Option* const port =
      add_port(line, "--port", request.port,
               "The exchange's --control-port; the default is $QUORL_CONTROL_PORT if that is set");
  const CLI::Option* const timeout = add_seconds(
      line, "--timeout", request.timeout,
      "How long to wait for the reply; with --wait, for the exchange (default 1, with --wait 10)");
  line.add_flag("--wait", request.wait, "First wait until the exchange answers; needs no command");
  CLI::Option* const json =
      line.add_flag("--json", request.json, "The reply to stats as one JSON object");
  CLI::Option* const watched =
      line.add_flag("--watch", request.watch, "Repeat stats and show what moved, until Ctrl-C");
  add_seconds(line, "--every", request.every, "Between two rounds of --watch (default 1)")
      ->needs(watched);
  line.allow_extras();  // the command; as a list of its own the library would read "[a,b]" as two
  line.footer(
      "WORD...: pause, drop 3, stats, ... as in man quorl. Behind \"--\" any word will do.");

  if (const auto status = line.read(argc, argv)) return *status;
  if (const std::string complaint = take_words(line.remaining(), request.words);
      !complaint.empty()) {
    return tools::complain(complaint, tools::USED_WRONGLY);
  }
  const char* const variable = std::getenv(PORT_VARIABLE);
  if (port->count() == 0 && variable != nullptr && *variable != '\0') {
    const auto given = port_of(variable);
    if (!given) {
      return tools::complain(std::string(PORT_VARIABLE) + ": " + variable + " is no port",
                             tools::USED_WRONGLY);
    }
    request.port = *given;
  }
  if (request.wait && timeout->count() == 0) request.timeout = TIMEOUT_OF_A_START;
  request.coloured = tools::wants_colour(STDOUT_FILENO);
  const std::string text = tools::joined(request.words);
  if (!(request.wait && request.words.empty())) {
    const std::string complaint =
        request.words.empty() ? "a command is missing" : tools::complaint_about(text);
    if (!complaint.empty()) return tools::complain(complaint, tools::USED_WRONGLY);
  }
  for (const CLI::Option* const option : {json, watched}) {
    if (option->count() != 0 && text != "stats") {
      return tools::complain(option->get_name() + " goes with the command stats alone",
                             tools::USED_WRONGLY);
    }
  }
  try {
    return tools::status_behind_output(line.get_name(), tools::carry_out(request));
  } catch (const std::exception& failure) {
    return tools::complain(failure.what(), tools::SAID_NO);
  }
}
