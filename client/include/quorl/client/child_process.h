#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/deadline.h"

namespace quorl::client {

struct ExitStatus {
  bool exited = false;  // by itself, with `code`; otherwise by `signal`
  int code = 0;
  int signal = 0;

  bool operator==(const ExitStatus&) const = default;
  std::string describe() const;
};

/// The environment of this process for one that it starts, without what would make an exchange
/// another than its options say: QUORL_SCENARIO and BENCH_ORDER_TRUTH.
std::map<std::string, std::string> own_environment();

/// One process that we started. It cannot outlive us: the destructor ends it by its id and reaps
/// it, and the kernel ends it if we die first.
class ChildProcess {
 public:
  struct Command {
    std::string program = {};
    std::vector<std::string> arguments = {};              // without the program's name
    std::map<std::string, std::string> environment = {};  // the whole of it
    // -1: ours. They stay the caller's to close.
    int stdin_fd = -1;
    int stdout_fd = -1;
    int stderr_fd = -1;
    // In a process group of its own, named by its pid, so that a terminal's Ctrl-C is for us alone;
    // with no signal blocked or ignored, whatever we do about ours.
    bool apart = false;
  };

  explicit ChildProcess(const Command& command);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  pid_t pid() const { return pid_; }

  /// Does nothing once the process has been reaped.
  void signal(int number);

  /// Stops the process and waits until it stands still: what is sent now is read in one turn after
  /// `cont`.
  void stop(Deadline deadline);
  void cont();

  /// Reaps the process if it has ended.
  std::optional<ExitStatus> poll_exit();

  /// Throws Timeout if the process is still there at the deadline.
  ExitStatus wait_exit(Deadline deadline);

 private:
  pid_t pid_ = -1;
  std::optional<ExitStatus> status_;
};

}  // namespace quorl::client
