#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
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
    std::string group = {};                // of the feed; empty: any
    uint16_t feed_port = 0;                // 0: any
  };

  /// Claims ports. Throws quorl::client::SystemError, as start() does.
  explicit ExchangeProcess(const Command& command);
  void start();

  const quorl::client::Ports& ports() const { return ports_; }

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
  quorl::client::Ports ports_;
  Drain said_;
  std::string partial_;
  std::unique_ptr<quorl::client::ChildProcess> process_;
};

/// The run cannot begin or go on; the text says why.
class RunBroken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An exchange that serves.
struct ServingExchange {
  std::unique_ptr<ExchangeProcess> process;
  uint32_t session = 0;  // of the feed
};

/// Starts an exchange and waits until it serves, on other ports if another program has taken one
/// meanwhile. `before_start` is called with the ports ahead of each start, `said` with each line of
/// the one that serves. Throws RunBroken if it does not come to serve, or once `stop` is readable,
/// and quorl::client::SystemError.
ServingExchange serve_exchange(
    const ExchangeProcess::Command& command, int stop,
    const std::function<void(const quorl::client::Ports& ports)>& before_start,
    const std::function<void(const std::string& line)>& said);

}  // namespace certify
