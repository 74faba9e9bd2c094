#pragma once

#include <poll.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "certify/run/drain.h"
#include "quorl/client/child_process.h"
#include "quorl/client/port_slot.h"

namespace certify {

/// The exchange of one run, on ports and a group of its own.
class ExchangeProcess {
 public:
  struct Command {
    std::string program = {};
    std::vector<std::string> market = {};  // options of the plan: they win over ours
    std::string scenario = {};             // QUORL_SCENARIO; empty: unset
    std::string folder = {};               // gets exchange.log, and in truth/ its files
  };

  /// Claims ports. Throws quorl::client::SystemError, as start() does.
  explicit ExchangeProcess(const Command& command);
  void start();

  const quorl::client::Ports& ports() const { return slot_.ports(); }

  /// Its standard error, to poll for; -1 once that has ended.
  int fd() const { return said_.fd(); }
  /// The lines that it has said since the last call.
  std::vector<std::string> take_lines();

  void collect(std::vector<pollfd>& set) const;

  std::optional<quorl::client::ExitStatus> poll_exit() { return process_->poll_exit(); }
  void ask_to_end();
  void kill();

 private:
  Command command_;
  quorl::client::PortSlot slot_;
  Drain said_;
  std::string partial_;
  std::unique_ptr<quorl::client::ChildProcess> process_;
};

// What it says of itself.
bool tells_that_it_serves(const std::string& line);
/// Another program has taken one of its ports meanwhile: it is to be started again on others.
bool tells_of_taken_port(const std::string& line);
/// The session in the line that tells that it serves.
std::optional<uint32_t> session_in(const std::string& line);

}  // namespace certify
