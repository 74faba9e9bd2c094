#pragma once

#include <poll.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "certify/record/time.h"
#include "certify/run/drain.h"
#include "quorl/client/child_process.h"

namespace certify {

/// Where a word that names a command is found, as a shell would: at its path if it holds a slash,
/// else by PATH. Nothing if there is nothing that can be run.
std::optional<std::string> found_program(const std::string& word);

/// The client under test: a process with a group of its own, so that what it has started ends with
/// it. Its two streams go to files, and it reads nothing.
class ClientProcess {
 public:
  struct Command {
    std::string program = {};                             // a path
    std::vector<std::string> arguments = {};              // without the program's name
    std::map<std::string, std::string> environment = {};  // the whole of it
    std::string out_path = {};                            // empty: both streams are ours, and
    std::string err_path = {};                            // so is standard input, but a terminal
  };

  /// Throws quorl::client::SystemError.
  explicit ClientProcess(const Command& command);
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;
  ~ClientProcess();  // ends the whole group by force

  pid_t pid() const { return process_.pid(); }

  /// Appends what to wait for.
  void collect(std::vector<pollfd>& set) const;
  /// Takes what it has printed.
  void take_output();

  /// Whether the process itself has ended; what it has started may go on.
  bool has_ended() const;

  /// SIGTERM to the whole group, the first time.
  void ask_to_end(TimeNs now);
  /// True once all of it is over. What has been asked and still runs after `patience` is ended by
  /// force; to be called until it is true, which it is a second later at most.
  bool over(TimeNs now, TimeNs patience);

  // Once over.
  std::string how() const;      // "exit status 0", "signal 15", "killed: it did not end within 5 s"
  bool could_not_run() const;   // as a shell says it: status 126 or 127
  bool output_was_cut() const;  // not all that it printed was kept
  const std::optional<quorl::client::ExitStatus>& status() const { return status_; }

 private:
  void kill_group() const;
  bool streams_ended() const;

  std::unique_ptr<Drain> out_;  // null: not read by us
  std::unique_ptr<Drain> err_;
  quorl::client::ChildProcess process_;
  TimeNs asked_at_ = 0;   // 0: not yet
  TimeNs forced_at_ = 0;  // 0: not yet
  bool forced_itself_ = false;
  TimeNs alone_at_ = 0;  // since when nothing of the group runs; 0: something does
  std::optional<quorl::client::ExitStatus> status_;
  TimeNs patience_ = 0;
};

}  // namespace certify
