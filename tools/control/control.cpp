// Sends a command to the control port of a running exchange and prints the reply.
//
//   quorl-control [--port N] COMMAND...

#include <unistd.h>

#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"
#include "tools/command_line.h"
#include "tools/control/command_words.h"
#include "tools/control/control_socket.h"
#include "tools/control/stats_report.h"
#include "tools/control/stop_signals.h"

namespace client = quorl::client;

namespace {

using std::chrono::milliseconds;
using tools::Answer;

constexpr const char* PORT_VARIABLE = "QUORL_CONTROL_PORT";

constexpr double LEAST_S = 0.001;
constexpr double MOST_S = 86400;
constexpr double USUAL_TIMEOUT_S = 1;
constexpr double WAITING_TIMEOUT_S = 10;  // with --wait: a start takes its time

struct Request {
  std::vector<std::string> words;
  uint16_t port = 25500;
  double timeout_s = USUAL_TIMEOUT_S;
  double every_s = 1;
  bool wait = false;
  bool json = false;
  bool watch = false;

  std::string command() const { return tools::joined(words); }
  client::Deadline deadline() const { return client::Deadline::after(in_ms(timeout_s)); }
  static milliseconds in_ms(double seconds) {
    return milliseconds(std::llround(std::ceil(seconds * 1000)));
  }
};

int complain(const std::string& complaint, int status) {
  std::fprintf(stderr, "quorl-control: %s\n", complaint.c_str());
  return status;
}

int nobody(const Request& request, const Answer& answer) {
  const std::string port = std::to_string(request.port);
  return complain(answer.kind == Answer::REFUSED ? "nobody is at UDP port " + port + " of 127.0.0.1"
                                                 : "no answer from UDP port " + port,
                  tools::NOBODY_ANSWERED);
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

std::string time_of_day() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}

int print_reply(const Request& request, const std::string& reply) {
  if (request.json && reply.starts_with("ok ")) {
    std::printf("%s\n", tools::stats_as_json(tools::stats_of_reply(reply)).c_str());
    return tools::GOOD;
  }
  std::printf("%s%s", reply.c_str(), reply.ends_with('\n') ? "" : "\n");  // that of stop has none
  return reply.starts_with("err") ? tools::SAID_NO : tools::GOOD;
}

int command(const Request& request) {
  const std::string text = request.command();
  if (const std::string caution = tools::caution_about(text); !caution.empty()) {
    std::fprintf(stderr, "quorl-control: %s\n", caution.c_str());
  }
  const Answer answer = tools::ask(request.port, text, request.deadline());
  if (answer.kind != Answer::REPLIED) return nobody(request, answer);
  return print_reply(request, answer.text);
}

int watch(const Request& request) {
  const bool coloured = tools::wants_colour(STDOUT_FILENO);
  const tools::StopSignals stop;
  std::optional<client::ControlStats> before;
  while (true) {
    const Answer answer = tools::ask(request.port, "stats", request.deadline(), stop.fd());
    if (answer.kind == Answer::INTERRUPTED) return tools::GOOD;
    if (answer.kind != Answer::REPLIED) return nobody(request, answer);
    const client::ControlStats now = tools::stats_of_reply(answer.text);
    const std::string line = request.json ? tools::stats_as_json(now)
                             : before     ? tools::moved(*before, now, coloured)
                                          : tools::standing(now, coloured);
    std::printf("%s%s\n", request.json ? "" : (time_of_day() + "  ").c_str(), line.c_str());
    if (std::fflush(stdout) != 0) return tools::SAID_NO;  // nobody can read it any more
    before = now;
    if (stop.come_within(Request::in_ms(request.every_s))) return tools::GOOD;
  }
}

int run(const Request& request) {
  if (request.wait) {
    const Answer answer = tools::wait_until_answering(request.port, request.deadline());
    if (answer.kind != Answer::REPLIED) return nobody(request, answer);
    if (request.words.empty()) return tools::GOOD;
  }
  return request.watch ? watch(request) : command(request);
}

}  // namespace

int main(int argc, char** argv) {
  tools::CommandLine line(
      "quorl-control", "Sends a command, the WORDs, to a running exchange and prints the reply.");
  Request request;
  const CLI::Validator seconds(complaint_about_seconds, "SECONDS");
  const CLI::Option* const port =
      add_port(line, "--port", request.port,
               "The exchange's --control-port; the default is $QUORL_CONTROL_PORT if that is set");
  const CLI::Option* const timeout =
      line.add_option("--timeout", request.timeout_s,
                      "How long to wait for the reply; with --wait, for the exchange: 10")
          ->check(seconds)
          ->capture_default_str();
  line.add_flag("--wait", request.wait, "First wait until the exchange answers; needs no command");
  CLI::Option* const json =
      line.add_flag("--json", request.json, "The reply to stats as one JSON object");
  CLI::Option* const watched =
      line.add_flag("--watch", request.watch, "Repeat stats and show what moved, until Ctrl-C");
  line.add_option("--every", request.every_s, "Between two rounds of --watch")
      ->check(seconds)
      ->capture_default_str()
      ->needs(watched);
  line.allow_extras();  // the command; as a list of its own the library would read "[a,b]" as two
  line.footer(
      "WORD...: pause, drop 3, stats, ... as in man quorl. Behind \"--\" any word will do.");

  if (const auto status = line.read(argc, argv)) return *status;
  if (const std::string complaint = take_words(line.remaining(), request.words);
      !complaint.empty()) {
    return complain(complaint, tools::USED_WRONGLY);
  }
  const char* const variable = std::getenv(PORT_VARIABLE);
  if (port->count() == 0 && variable != nullptr && *variable != '\0') {
    const auto given = port_of(variable);
    if (!given) {
      return complain(std::string(PORT_VARIABLE) + ": " + variable + " is no port",
                      tools::USED_WRONGLY);
    }
    request.port = *given;
  }
  if (request.wait && timeout->count() == 0) request.timeout_s = WAITING_TIMEOUT_S;
  const std::string text = request.command();
  if (!(request.wait && request.words.empty())) {
    const std::string complaint =
        request.words.empty() ? "a command is missing" : tools::complaint_about(text);
    if (!complaint.empty()) return complain(complaint, tools::USED_WRONGLY);
  }
  for (const CLI::Option* const option : {json, watched}) {
    if (option->count() != 0 && text != "stats") {
      return complain(option->get_name() + " goes with the command stats alone",
                      tools::USED_WRONGLY);
    }
  }
  try {
    return run(request);
  } catch (const std::exception& failure) {
    return complain(failure.what(), tools::SAID_NO);
  }
}
