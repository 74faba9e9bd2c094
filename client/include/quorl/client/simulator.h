#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/client/child_process.h"
#include "quorl/client/deadline.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/temp_directory.h"

namespace quorl::client {

struct SimulatorOptions {
  std::string binary = {};                              // tests pass QUORL_BINARY
  std::vector<std::string> arguments = {};              // behind the launcher's own, so they win
  std::string scenario = {};                            // QUORL_SCENARIO; empty: unset
  std::map<std::string, std::string> environment = {};  // further variables; wins over all others

  // Each makes a file of the run's directory and passes its path.
  bool order_truth = false;   // BENCH_ORDER_TRUTH
  bool market_truth = false;  // --truth-out
  bool book_file = false;     // --book-out
  bool bbo_file = false;      // --bbo-out

  bool own_ports = true;      // false: no port, group or interface option but those of `arguments`
  bool control_port = true;   // false: --control-port is not passed
  bool gap_fill_port = true;  // false: --gapfill-port is not passed: it follows the snap port
  bool restart_if_taken = true;  // false: a port that is taken is the test's subject
  bool wait_for_banner = true;   // false: start() returns as soon as the process runs
};

/// The options of a market in which nothing happens after the opening but what clients do: the walk
/// never ticks.
std::vector<std::string> still_market();

/// The simulator as a process of its own, on ports of its own. The ports are known from
/// construction, so that a feed subscriber can be there before the first packet.
class Simulator {
 public:
  explicit Simulator(SimulatorOptions options);
  ~Simulator();  // ends the process if it still runs

  /// Starts the process and waits for its banner. If another program has taken one of the ports
  /// meanwhile, starts again on others, a few times; the feed's group and port stay, but the failed
  /// run's opening packets have gone out, under another session: see
  /// FeedSubscriber::expect_session. Throws WireError with the lines printed if the process ends
  /// instead.
  void start();

  const Ports& ports() const { return ports_; }
  unsigned restarts() const { return restarts_; }

  /// From the banner, so that an option --session is respected.
  uint32_t session() const;
  const std::string& banner() const { return banner_; }

  // Standard error, line by line.
  std::vector<std::string> lines() const;
  size_t line_count() const;
  size_t count_lines(std::string_view containing, size_t from = 0) const;

  /// The first line at or after index `from` that contains `text`; throws Timeout without it. Take
  /// `line_count()` before an action and pass it to skip older lines.
  std::string wait_for_line(std::string_view text, size_t from = 0,
                            std::chrono::milliseconds patience = PATIENCE) const;
  std::string wait_for_match(const std::string& ecmascript_regex, size_t from = 0,
                             std::chrono::milliseconds patience = PATIENCE) const;
  std::string wait_for_line_if(const LineCollector::Predicate& wanted, std::string_view sought,
                               size_t from = 0,
                               std::chrono::milliseconds patience = PATIENCE) const;

  pid_t pid() const;
  bool running();
  void signal(int number);
  void stop_process();  // SIGSTOP; returns when the process stands still
  void cont_process();  // SIGCONT

  /// How the process ended; all its lines are there afterwards. Throws Timeout.
  ExitStatus wait_exit(std::chrono::milliseconds patience = PATIENCE);

  /// SIGTERM, then wait_exit.
  ExitStatus terminate();

  /// Files of the run; they exist as far as the options asked for them.
  const std::string& directory() const { return directory_.path(); }
  std::string order_truth_path() const { return directory() + "/orders.jsonl"; }
  std::string market_truth_path() const { return directory() + "/market.jsonl"; }
  std::string book_path() const { return directory() + "/book.json"; }
  std::string bbo_path() const { return directory() + "/bbo.txt"; }

 private:
  ChildProcess::Command command() const;
  void launch();
  bool await_banner();
  void choose_other_ports();

  SimulatorOptions options_;
  TempDirectory directory_;
  std::unique_ptr<PortSlot> slot_;
  std::vector<std::unique_ptr<PortSlot>> spoilt_slots_;  // kept claimed, so as not to come back
  Ports ports_;
  unsigned restarts_ = 0;
  std::string banner_;
  std::unique_ptr<LineCollector> stderr_;  // above the process: it ends after the process
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace quorl::client
