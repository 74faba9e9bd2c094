#include "certify/run/client_process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "certify/run/process_group.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace certify {
namespace {

constexpr uint64_t MOST_OUTPUT = 64 * 1024 * 1024;  // of each stream
// How long streams are read on that somebody outside of the group holds open.
constexpr TimeNs STREAMS_PATIENCE = 500 * MILLISECOND;
constexpr TimeNs FORCE_PATIENCE = SECOND;

bool can_be_run(const std::string& path) {
  struct stat about {};
  return ::stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

std::unique_ptr<Drain> drain_to(const std::string& path) {
  return path.empty() ? nullptr : std::make_unique<Drain>(path, MOST_OUTPUT);
}

int writing_end(const std::unique_ptr<Drain>& stream) {
  return stream == nullptr ? -1 : stream->writing_end();
}

struct Nothing {
  int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ~Nothing() { ::close(fd); }
};

// A group of its own may not read from the terminal: it would be stopped.
client::ChildProcess start(const ClientProcess::Command& command, int out, int err) {
  const Nothing nothing;
  if (nothing.fd < 0) throw client::SystemError("open /dev/null");
  const bool reads_ours = out < 0 && ::isatty(STDIN_FILENO) == 0;
  return client::ChildProcess({.program = command.program,
                               .arguments = command.arguments,
                               .environment = command.environment,
                               .stdin_fd = reads_ours ? -1 : nothing.fd,
                               .stdout_fd = out,
                               .stderr_fd = err,
                               .apart = true});
}

}  // namespace

std::optional<std::string> found_program(const std::string& word) {
  if (word.empty()) return std::nullopt;
  if (word.find('/') != std::string::npos) {
    return can_be_run(word) ? std::optional(word) : std::nullopt;
  }
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + word;
    if (can_be_run(candidate)) return candidate;
  }
  return std::nullopt;
}

ClientProcess::ClientProcess(const Command& command)
    : out_(drain_to(command.out_path)),
      err_(drain_to(command.err_path)),
      process_(start(command, writing_end(out_), writing_end(err_))) {
  for (const auto& stream : {&out_, &err_}) {
    if (*stream) (*stream)->close_writing_end();
  }
}

ClientProcess::~ClientProcess() {
  if (!status_) kill_group();
}

void ClientProcess::collect(std::vector<pollfd>& set) const {
  for (const auto& stream : {&out_, &err_}) {
    if (*stream && !(*stream)->ended()) set.push_back({(*stream)->fd(), POLLIN, 0});
  }
}

void ClientProcess::take_output() {
  if (out_) out_->take();
  if (err_) err_->take();
}

bool ClientProcess::streams_ended() const {
  return (!out_ || out_->ended()) && (!err_ || err_->ended());
}

// It is not reaped: as long as it stands there, no other group can get its number.
bool ClientProcess::has_ended() const {
  if (status_) return true;
  siginfo_t about{};
  return ::waitid(P_PID, static_cast<id_t>(process_.pid()), &about, WEXITED | WNOHANG | WNOWAIT) ==
             0 &&
         about.si_pid == process_.pid();
}

void ClientProcess::ask_to_end(TimeNs now) {
  if (asked_at_ != 0 || status_) return;
  asked_at_ = now;
  ::kill(-process_.pid(), SIGTERM);
}

bool ClientProcess::over(TimeNs now, TimeNs patience) {
  if (status_) return true;
  take_output();
  if (has_ended()) ask_to_end(now);  // what it has left behind
  if (asked_at_ != 0 && forced_at_ == 0 && now - asked_at_ > patience) {
    forced_at_ = now;
    forced_itself_ = !has_ended();
    patience_ = patience;
    kill_group();
  }
  const bool given_up = forced_at_ != 0 && now - forced_at_ > FORCE_PATIENCE;
  if (!has_ended()) return false;
  if (alone_at_ == 0 && (given_up || !group_runs(process_.pid()))) alone_at_ = now;
  if (alone_at_ == 0) return false;
  if (!streams_ended() && now - alone_at_ <= STREAMS_PATIENCE) return false;
  kill_group();
  if (out_) out_->finish();
  if (err_) err_->finish();
  status_ = process_.poll_exit();
  return status_.has_value();
}

void ClientProcess::kill_group() const { ::kill(-process_.pid(), SIGKILL); }

std::string ClientProcess::how() const {
  if (forced_itself_) {
    return "killed: it did not end within " + std::to_string(patience_ / SECOND) + " s of SIGTERM";
  }
  if (!status_) return "still running";
  return status_->exited ? status_->describe() : "signal " + std::to_string(status_->signal);
}

bool ClientProcess::could_not_run() const {
  return status_ && status_->exited && (status_->code == 126 || status_->code == 127);
}

bool ClientProcess::output_was_cut() const {
  return (out_ && out_->written() < out_->taken()) || (err_ && err_->written() < err_->taken());
}

}  // namespace certify
