#include "tests/tools/support/tool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "quorl/client/errors.h"
#include "tests/e2e/support/built.h"

namespace client = quorl::client;

namespace tools_test {
namespace {

/// Ours, with the additions on top.
std::map<std::string, std::string> environment_with(
    const std::map<std::string, std::string>& additions) {
  std::map<std::string, std::string> environment = additions;
  environment.merge(client::own_environment());
  return environment;
}

std::string joined(const std::vector<client::LogLine>& lines) {
  std::string text;
  for (const client::LogLine& line : lines) text += line.text + "\n";
  return text;
}

}  // namespace

/// All ends close when a program starts, but for the three that become its streams.
struct Tool::Pipes {
  Pipes() {
    ::signal(SIGPIPE, SIG_IGN);  // a tool that no longer reads is for the test to find out
    for (int* pipe : {in, out, err}) {
      if (::pipe2(pipe, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
    }
  }
  ~Pipes() {
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
  }

  int in[2];
  int out[2];
  int err[2];
};

Tool::Tool(const std::string& name, const std::vector<std::string>& arguments,
           const std::map<std::string, std::string>& environment)
    : Tool(Pipes(), name, arguments, environment) {}

Tool::Tool(const Pipes& pipes, const std::string& name, const std::vector<std::string>& arguments,
           const std::map<std::string, std::string>& environment)
    : input_(pipes.in[1]),
      out_(pipes.out[0]),
      err_(pipes.err[0]),
      process_({.program = built_program("quorl-" + name),
                .arguments = arguments,
                .environment = environment_with(environment),
                .stdin_fd = pipes.in[0],
                .stdout_fd = pipes.out[1],
                .stderr_fd = pipes.err[1]}) {}

Tool::~Tool() { close_input(); }

void Tool::type(const std::string& line) {
  std::string text = line + "\n";
  while (!text.empty()) {
    const ssize_t written = ::write(input_, text.data(), text.size());
    if (written < 0 && errno == EPIPE) return;
    if (written < 0) throw client::SystemError("write to the tool");
    text.erase(0, static_cast<size_t>(written));
  }
}

void Tool::close_input() {
  if (input_ >= 0) ::close(input_);
  input_ = -1;
}

std::string Tool::prints(const std::string& text, size_t from,
                         std::chrono::milliseconds patience) const {
  return out_.wait_for(
      [&text](const std::string& line) { return line.find(text) != std::string::npos; }, text, from,
      client::Deadline::after(patience));
}

std::string Tool::complains(const std::string& text, std::chrono::milliseconds patience) const {
  return err_.wait_for(
      [&text](const std::string& line) { return line.find(text) != std::string::npos; }, text, 0,
      client::Deadline::after(patience));
}

std::vector<std::string> Tool::printed() const {
  std::vector<std::string> texts;
  for (const client::LogLine& line : out_.lines()) texts.push_back(line.text);
  return texts;
}

Said Tool::end(std::chrono::milliseconds patience) {
  const client::Deadline deadline = client::Deadline::after(patience);
  const client::ExitStatus status = process_.wait_exit(deadline);
  out_.wait_end(deadline);
  err_.wait_end(deadline);
  return {.status = status.exited ? status.code : -1,
          .out = joined(out_.lines()),
          .err = joined(err_.lines())};
}

Said run_tool(const std::string& name, const std::vector<std::string>& arguments,
              const std::string& input, const std::map<std::string, std::string>& environment) {
  Tool tool(name, arguments, environment);
  if (!input.empty()) tool.type(input);
  tool.close_input();
  return tool.end();
}

Said run_tool_until_answered(const std::string& name, const std::vector<std::string>& arguments,
                             const std::string& input) {
  constexpr int NOBODY_ANSWERED = 3;
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  Said said = run_tool(name, arguments, input);
  while (said.status == NOBODY_ANSWERED && !deadline.expired()) {
    said = run_tool(name, arguments, input);
  }
  return said;
}

}  // namespace tools_test
