#include "quorl/client/child_process.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

#include "quorl/client/errors.h"

extern char** environ;

namespace quorl::client {
namespace {

constexpr std::chrono::milliseconds WAIT_STEP{1};
constexpr int CANNOT_START = 127;

ExitStatus status_from(int raw) {
  ExitStatus status;
  status.exited = WIFEXITED(raw);
  if (status.exited) status.code = WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) status.signal = WTERMSIG(raw);
  return status;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// What is blocked or ignored outlives exec, and a program that knows nothing of it could not be
// ended. The few numbers that take no action refuse it, which is as well.
void stand_apart() {
  ::setpgid(0, 0);
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

std::map<std::string, std::string> own_environment() {
  std::map<std::string, std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const size_t equals = text.find('=');
    if (equals != std::string::npos) environment[text.substr(0, equals)] = text.substr(equals + 1);
  }
  environment.erase("QUORL_SCENARIO");
  environment.erase("BENCH_ORDER_TRUTH");
  return environment;
}

std::string ExitStatus::describe() const {
  return exited ? "exit status " + std::to_string(code)
                : "ended by signal " + std::to_string(signal);
}

ChildProcess::ChildProcess(const Command& command) {
  // Everything is laid out before the fork: between it and exec other threads may hold any lock.
  std::vector<std::string> arguments{command.program};
  arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
  std::vector<std::string> environment;
  for (const auto& [name, value] : command.environment) environment.push_back(name + "=" + value);
  const std::vector<char*> argv = pointers_to(arguments);
  const std::vector<char*> envp = pointers_to(environment);
  const pid_t parent = ::getpid();

  pid_ = ::fork();
  if (pid_ < 0) throw SystemError("fork");
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(CANNOT_START);  // we died in between
    if (command.apart) stand_apart();
    if (command.stdin_fd >= 0) ::dup2(command.stdin_fd, STDIN_FILENO);
    if (command.stdout_fd >= 0) ::dup2(command.stdout_fd, STDOUT_FILENO);
    if (command.stderr_fd >= 0) ::dup2(command.stderr_fd, STDERR_FILENO);
    ::execve(argv[0], argv.data(), envp.data());
    ::_exit(CANNOT_START);
  }
  // On both sides, so that the group is there for whoever comes first. Fails where exec has.
  if (command.apart) ::setpgid(pid_, pid_);
}

ChildProcess::~ChildProcess() {
  if (poll_exit()) return;
  ::kill(pid_, SIGKILL);
  int raw = 0;
  while (::waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
  }
}

void ChildProcess::signal(int number) {
  if (!poll_exit()) ::kill(pid_, number);
}

void ChildProcess::stop(Deadline deadline) {
  signal(SIGSTOP);
  while (!status_) {
    int raw = 0;
    const pid_t changed = ::waitpid(pid_, &raw, WNOHANG | WUNTRACED);
    if (changed == pid_ && WIFSTOPPED(raw)) return;
    if (changed == pid_) status_ = status_from(raw);
    if (deadline.expired()) throw Timeout("the process does not stop");
    std::this_thread::sleep_for(WAIT_STEP);
  }
}

void ChildProcess::cont() { signal(SIGCONT); }

std::optional<ExitStatus> ChildProcess::poll_exit() {
  int raw = 0;
  if (!status_ && ::waitpid(pid_, &raw, WNOHANG) == pid_) status_ = status_from(raw);
  return status_;
}

ExitStatus ChildProcess::wait_exit(Deadline deadline) {
  while (!poll_exit()) {
    if (deadline.expired()) throw Timeout("the process does not end");
    std::this_thread::sleep_for(WAIT_STEP);
  }
  return *status_;
}

}  // namespace quorl::client
