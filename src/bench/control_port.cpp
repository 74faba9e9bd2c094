#include "bench/control_port.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "base/number_parsers.h"
#include "base/sockets.h"
#include "bench/scenario.h"
#include "bench/stats_text.h"
#include "bench/truth_log.h"
#include "feed/tp_publisher.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr size_t MOST_BYTES = 511;  // of a datagram; the rest is lost

struct Command {
  std::string_view word;
  void (*run)(const ControlTargets& targets, std::string_view argument);
};

struct Words {
  std::string_view command;
  std::string_view argument;
};

std::string_view next_word(std::string_view& rest) {
  constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";
  rest.remove_prefix(std::min(rest.size(), rest.find_first_not_of(WHITE_SPACE)));
  const std::string_view word = rest.substr(0, rest.find_first_of(WHITE_SPACE));
  rest.remove_prefix(word.size());
  return word;
}

Words split(std::string_view line) {
  Words words;
  words.command = next_word(line);
  words.argument = next_word(line);
  return words;
}

std::string_view line_of(std::string_view received) {
  const std::string_view line = received.substr(0, received.find('\0'));
  const size_t last = line.find_last_not_of(" \r\n");  // a tab stays
  return line.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

/// Another local program that shares the port can make it speak to itself.
bool is_from_ourselves(const sockaddr_in& peer, uint16_t port) {
  return peer.sin_addr.s_addr == htonl(INADDR_LOOPBACK) && peer.sin_port == htons(port);
}

unsigned long long last_seq(const ControlTargets& targets) {
  return targets.engine.publisher->last_seq();
}

void pause(const ControlTargets& targets, std::string_view) {
  targets.engine.paused = true;
  print_log("bench: paused at seq %llu\n", last_seq(targets));
}

void resume(const ControlTargets& targets, std::string_view) {
  targets.engine.paused = false;
  print_log("bench: resumed at seq %llu\n", last_seq(targets));
}

/// A count of faults to inject at once; the command alone asks for one.
template <uint32_t FaultPlan::*field>
void set_fault_next(const ControlTargets& targets, std::string_view argument) {
  targets.engine.publisher->faults.*field = low32_or(argument, 1);
}

/// A recurring fault; the command alone turns it off.
template <uint32_t FaultPlan::*field>
void set_fault_every(const ControlTargets& targets, std::string_view argument) {
  targets.engine.publisher->faults.*field = low32_or(argument, 0);
}

/// A count of scripted behaviours to fire at once; the command alone asks for one.
template <Script Scenario::*script>
void set_one_shots(const ControlTargets& targets, std::string_view argument) {
  (targets.engine.scenario->*script).next = low32_or(argument, 1);
}

/// 0 means the default too: from here the walk cannot be set to run on every turn.
void rate(const ControlTargets& targets, std::string_view argument) {
  constexpr uint32_t DEFAULT_MS = 40;
  const uint32_t ms = low32_or(argument, DEFAULT_MS);
  targets.interval_ms = static_cast<int32_t>(ms != 0 ? ms : DEFAULT_MS);
}

void mark(const ControlTargets& targets, std::string_view label) {
  write_mark(targets.engine, label);
  print_log("bench: mark %s at seq %llu orders %llu\n", std::string(label).c_str(),
            last_seq(targets),
            static_cast<unsigned long long>(targets.engine.scenario->counters.orders));
}

void disconnect(const ControlTargets& targets, std::string_view) {
  targets.engine.scenario->disconnect_requested = 1;
}

void lapse(const ControlTargets& targets, std::string_view argument) {
  constexpr uint32_t DEFAULT_MS = 20000;
  targets.engine.scenario->lapse.start(low32_or(argument, DEFAULT_MS));
}

constexpr Command COMMANDS[] = {
    {"pause", pause},
    {"resume", resume},
    {"drop", set_fault_next<&FaultPlan::drop_next>},
    {"dup", set_fault_next<&FaultPlan::dup_next>},
    {"reorder", set_fault_next<&FaultPlan::reorder_next>},
    {"drop_every", set_fault_every<&FaultPlan::drop_every>},
    {"dup_every", set_fault_every<&FaultPlan::dup_every>},
    {"reorder_every", set_fault_every<&FaultPlan::reorder_every>},
    {"rate", rate},
    {"mark", mark},
    {"disconnect", disconnect},
    {"lapse", lapse},
    {"reject", set_one_shots<&Scenario::rejects>},
    {"partial", set_one_shots<&Scenario::partial_fills>},
    {"fill_on_cancel", set_one_shots<&Scenario::fills_on_cancel>},
    {"unsolicited_cancel", set_one_shots<&Scenario::unsolicited_cancels>},
    {"replace_reject", set_one_shots<&Scenario::replace_rejects>},
};

std::string stats_reply(const ControlTargets& targets) {
  return "ok " + bench_stats_text(*targets.engine.scenario) +
         " next_seq=" + std::to_string(targets.engine.publisher->next_seq()) + " " +
         fault_stats_text(*targets.engine.publisher)
             .append(session_text(targets.session_up))
             .append("\n");
}

/// The abrupt end: no destructors, no exit handlers, nothing flushed.
[[noreturn]] void stop_now(const ControlTargets& targets) {
  print_log("%s\n", fault_stats_text(*targets.engine.publisher).c_str());
  ::_exit(0);
}

}  // namespace

int open_control_port(uint16_t port) {
  if (port == 0) return -1;
  const int fd = open_udp_socket();
  if (!bind_reusable(fd, INADDR_LOOPBACK, port)) {
    print_log("quorl: control port: %s\n", std::strerror(errno));
    close_socket(fd);
    return -1;
  }
  set_nonblocking(fd);
  print_log(
      "bench: control on 127.0.0.1:%u (pause | resume | drop N | dup N | reorder N | "
      "drop_every N | dup_every N | reorder_every N | rate MS | disconnect | lapse MS | "
      "reject N | partial N | fill_on_cancel N | unsolicited_cancel N | replace_reject N "
      "| mark LABEL | stats | stop)\n",
      static_cast<unsigned>(port));
  return fd;
}

ControlReply run_control_command(std::string_view received, const ControlTargets& targets) {
  const std::string_view line = line_of(received);
  const Words words = split(line);
  if (words.command == "stats") return {.text = stats_reply(targets)};
  if (words.command == "stop") return {.text = "ok stopping", .stops = true};  // no line end
  for (const Command& command : COMMANDS) {
    if (command.word != words.command) continue;
    command.run(targets, words.argument);
    return {.text = "ok " + std::string(line) + "\n"};
  }
  return {.text = "err unknown command '" + std::string(words.command) + "'\n"};
}

void serve_control_port(int fd, uint16_t port, const ControlTargets& targets,
                        std::span<char> scratch) {
  while (true) {
    sockaddr_in peer{};
    const ssize_t received = receive_datagram(fd, scratch.data(), MOST_BYTES, peer);
    if (received <= 0) return;
    if (is_from_ourselves(peer, port)) continue;
    const ControlReply reply =
        run_control_command({scratch.data(), static_cast<size_t>(received)}, targets);
    send_datagram(fd, reply.text.data(), reply.text.size(), peer);
    if (reply.stops) stop_now(targets);
  }
}

}  // namespace quorl
