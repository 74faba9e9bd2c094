#include "tests/tools/support/terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>

#include "quorl/client/errors.h"
#include "quorl/client/line_collector.h"

namespace client = quorl::client;

namespace tools_test {
namespace {

constexpr const char* TMUX = "/usr/bin/tmux";
constexpr int LOOK_AGAIN_MS = 10;

/// Ours, as a person's at a terminal: UTF-8, and nothing that would change how a program draws.
std::map<std::string, std::string> environment_of_a_person(
    const std::map<std::string, std::string>& additions) {
  std::map<std::string, std::string> environment = additions;
  environment.merge(client::own_environment());
  environment["LC_ALL"] = "C.UTF-8";
  environment["TERM"] = "xterm-256color";
  for (const char* name : {"TMUX", "NO_COLOR", "QUORL_CONTROL_PORT", "LINES", "COLUMNS"}) {
    if (!additions.contains(name)) environment.erase(name);
  }
  return environment;
}

bool holds_all(const std::string& screen, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    if (screen.find(text) == std::string::npos) return false;
  }
  return true;
}

}  // namespace

Terminal::Terminal(const std::string& command, Size size,
                   const std::map<std::string, std::string>& environment)
    : environment_(environment_of_a_person(environment)) {
  const std::string socket = directory_.path() + "/tmux";
  server_ = std::make_unique<client::ChildProcess>(
      client::ChildProcess::Command{.program = TMUX,
                                    .arguments = {"-u", "-D", "-S", socket, "-f", "/dev/null"},
                                    .environment = environment_});
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (::access(socket.c_str(), R_OK | W_OK) != 0) {
    if (server_->poll_exit()) throw client::WireError("tmux does not start");
    if (deadline.expired()) throw client::Timeout("tmux does not open its socket");
    ::poll(nullptr, 0, LOOK_AGAIN_MS);
  }
  // "cat" keeps the terminal open behind the command, and silent.
  tmux({"new-session", "-d", "-x", std::to_string(size.columns), "-y", std::to_string(size.rows),
        command + "; exec cat"});
  tmux({"set-option", "-g", "window-size", "manual"});
}

Terminal::~Terminal() {
  try {
    tmux({"kill-server"});
  } catch (const std::exception&) {
    server_->signal(SIGTERM);  // the destructor of the process does the rest
  }
}

std::string Terminal::tmux(const std::vector<std::string>& arguments) const {
  int pipe[2];
  if (::pipe2(pipe, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
  client::LineCollector output(pipe[0]);
  std::vector<std::string> all = {"-u", "-S", directory_.path() + "/tmux"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  client::ExitStatus status;
  {
    client::ChildProcess process({.program = TMUX,
                                  .arguments = all,
                                  .environment = environment_,
                                  .stdout_fd = pipe[1],
                                  .stderr_fd = pipe[1]});
    ::close(pipe[1]);
    status = process.wait_exit(deadline);
  }
  output.wait_end(deadline);
  std::string text;
  for (const client::LogLine& line : output.lines()) text += line.text + "\n";
  if (status.code != 0) throw client::WireError("tmux " + arguments[0] + ": " + text);
  return text;
}

std::string Terminal::screen(bool escapes) const {
  return escapes ? tmux({"capture-pane", "-p", "-e"}) : tmux({"capture-pane", "-p"});
}

std::string Terminal::await(const Wanted& wanted, const std::string& sought,
                            std::chrono::milliseconds patience) const {
  const client::Deadline deadline = client::Deadline::after(patience);
  for (;;) {
    const std::string now = screen();
    if (wanted(now)) return now;
    if (deadline.expired()) throw client::Timeout(sought + " does not come; the screen:\n" + now);
    ::poll(nullptr, 0, LOOK_AGAIN_MS);
  }
}

std::string Terminal::shows(const std::vector<std::string>& texts,
                            std::chrono::milliseconds patience) const {
  std::string sought;
  for (const std::string& text : texts) sought += "\"" + text + "\" ";
  return await([&texts](const std::string& screen) { return holds_all(screen, texts); }, sought,
               patience);
}

void Terminal::press(const std::vector<std::string>& keys) const {
  std::vector<std::string> arguments = {"send-keys"};
  arguments.insert(arguments.end(), keys.begin(), keys.end());
  tmux(arguments);
}

void Terminal::resize(Size size) const {
  tmux({"resize-window", "-x", std::to_string(size.columns), "-y", std::to_string(size.rows)});
}

std::string Terminal::ask(const std::string& variable) const {
  std::string answer = tmux({"display-message", "-p", "#{" + variable + "}"});
  while (!answer.empty() && answer.back() == '\n') answer.pop_back();
  return answer;
}

}  // namespace tools_test
