#include "tools/control/request.h"

#include <poll.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>

#include "tools/control/command_words.h"
#include "tools/control/control_socket.h"
#include "tools/control/stats_report.h"
#include "tools/exit_status.h"
#include "tools/seconds.h"
#include "tools/stop_signal.h"

namespace client = quorl::client;

namespace tools {
namespace {

int nobody(const Request& request, const Answer& answer) {
  const std::string port = std::to_string(request.port);
  return complain(answer.kind == Answer::REFUSED ? "nobody is at UDP port " + port + " of 127.0.0.1"
                                                 : "no answer from UDP port " + port,
                  NOBODY_ANSWERED);
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
  if (request.json && !reply.starts_with("err")) {
    std::printf("%s\n", stats_as_json(stats_of_reply(reply)).c_str());
    return GOOD;
  }
  std::printf("%s%s", reply.c_str(), reply.ends_with('\n') ? "" : "\n");  // that of stop has none
  return reply.starts_with("err") ? SAID_NO : GOOD;
}

int command(const Request& request) {
  const std::string text = joined(request.words);
  if (const std::string caution = caution_about(text); !caution.empty()) {
    std::fprintf(stderr, "quorl-control: %s\n", caution.c_str());
  }
  const Answer answer = ask(request.port, text, request.deadline());
  if (answer.kind != Answer::REPLIED) return nobody(request, answer);
  return print_reply(request, answer.text);
}

/// Waits that long, or until the signal comes, and says whether it has.
bool comes_within(std::chrono::milliseconds span, const StopSignal& stop) {
  const auto end = std::chrono::steady_clock::now() + span;
  while (!stop.came() && std::chrono::steady_clock::now() < end) {
    pollfd ready{stop.fd(), POLLIN, 0};
    (void)::poll(&ready, 1, milliseconds_until(end));
  }
  return stop.came();
}

int watch(const Request& request) {
  const StopSignal stop;
  std::optional<client::ControlStats> before;
  while (true) {
    const Answer answer = ask(request.port, "stats", request.deadline(), stop.fd());
    if (answer.kind == Answer::INTERRUPTED) return GOOD;
    if (answer.kind != Answer::REPLIED) return nobody(request, answer);
    const client::ControlStats now = stats_of_reply(answer.text);
    const std::string line = request.json ? stats_as_json(now)
                             : before     ? moved(*before, now, request.coloured)
                                          : standing(now, request.coloured);
    std::printf("%s%s\n", request.json ? "" : (time_of_day() + "  ").c_str(), line.c_str());
    if (std::fflush(stdout) != 0) return SAID_NO;  // nobody can read it any more
    before = now;
    if (comes_within(request.every, stop)) return GOOD;
  }
}

}  // namespace

int complain(const std::string& complaint, int status) {
  std::fprintf(stderr, "quorl-control: %s\n", complaint.c_str());
  return status;
}

int carry_out(const Request& request) {
  if (request.wait) {
    const Answer answer = wait_until_answering(request.port, request.deadline());
    if (answer.kind != Answer::REPLIED) return nobody(request, answer);
    if (request.words.empty()) return GOOD;
  }
  return request.watch ? watch(request) : command(request);
}

}  // namespace tools
