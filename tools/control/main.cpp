// Sends a command to the control port of a running exchange and prints the reply.
//
//   quorl-control [--port N] COMMAND...

#include <unistd.h>

#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/control/command_words.h"
#include "tools/control/request.h"

namespace {

constexpr const char* PORT_VARIABLE = "QUORL_CONTROL_PORT";

constexpr double LEAST_S = 0.001;
constexpr double MOST_S = 86400;
constexpr double WAITING_TIMEOUT_S = 10;  // with --wait: a start takes its time

std::chrono::milliseconds in_ms(double seconds) {
  return std::chrono::milliseconds(std::llround(std::ceil(seconds * 1000)));
}

std::optional<uint16_t> port_of(const std::string& text) {
  uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port == 0) return std::nullopt;
  return port;
}

std::string complaint_about_seconds(const std::string& text) {
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  const bool good = !text.empty() && *end == '\0' && seconds >= LEAST_S && seconds <= MOST_S;
  return good ? "" : text + " is no number of seconds from 0.001 to 86400";
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
  double timeout_s = 1;
  double every_s = 1;
  const CLI::Validator seconds(complaint_about_seconds, "SECONDS");
  const CLI::Option* const port =
      add_port(line, "--port", request.port,
               "The exchange's --control-port; the default is $QUORL_CONTROL_PORT if that is set");
  const CLI::Option* const timeout =
      line.add_option("--timeout", timeout_s,
                      "How long to wait for the reply; with --wait, for the exchange: 10")
          ->check(seconds)
          ->capture_default_str();
  line.add_flag("--wait", request.wait, "First wait until the exchange answers; needs no command");
  CLI::Option* const json =
      line.add_flag("--json", request.json, "The reply to stats as one JSON object");
  CLI::Option* const watched =
      line.add_flag("--watch", request.watch, "Repeat stats and show what moved, until Ctrl-C");
  line.add_option("--every", every_s, "Between two rounds of --watch")
      ->check(seconds)
      ->capture_default_str()
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
  if (request.wait && timeout->count() == 0) timeout_s = WAITING_TIMEOUT_S;
  request.timeout = in_ms(timeout_s);
  request.every = in_ms(every_s);
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
    return tools::carry_out(request);
  } catch (const std::exception& failure) {
    return tools::complain(failure.what(), tools::SAID_NO);
  }
}
