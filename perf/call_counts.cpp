#include "perf/call_counts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "perf/flow_run.h"
#include "perf/order_flows.h"
#include "quorl/client/child_process.h"
#include "quorl/client/errors.h"
#include "quorl/client/line_collector.h"
#include "quorl/client/temp_directory.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr const char* STRACE = "/usr/bin/strace";

using Calls = std::map<std::string, double>;

/// Counts the system calls of a process from construction on.
class CallCounter {
 public:
  explicit CallCounter(pid_t pid) {
    int pipe_ends[2];
    if (::pipe2(pipe_ends, O_CLOEXEC) != 0) throw client::SystemError("pipe2");
    client::ChildProcess::Command command;
    command.program = STRACE;
    command.arguments = {"-c", "-U", "calls,name", "-o", summary_, "-p", std::to_string(pid)};
    command.stderr_fd = pipe_ends[1];
    strace_ = std::make_unique<client::ChildProcess>(command);
    ::close(pipe_ends[1]);
    lines_ = std::make_unique<client::LineCollector>(pipe_ends[0]);
    const auto attached = [](const std::string& line) {
      return line.find("attached") != std::string::npos;
    };
    lines_->wait_for(attached, "strace's attachment", 0, client::Deadline::after(client::PATIENCE));
  }
  CallCounter(const CallCounter&) = delete;
  CallCounter& operator=(const CallCounter&) = delete;
  ~CallCounter() { strace_.reset(); }  // before the lines, which end with it

  /// Lets the process go.
  Calls finish() {
    strace_->signal(SIGINT);
    strace_->wait_exit(client::Deadline::after(client::PATIENCE));
    Calls calls;
    std::ifstream in(summary_);
    for (std::string line; std::getline(in, line);) {
      std::istringstream words(line);
      double count = 0;
      std::string name;
      if (words >> count >> name && name != "total") calls[name] = count;
    }
    return calls;
  }

 private:
  client::TempDirectory directory_;
  std::string summary_ = directory_.path() + "/calls";
  std::unique_ptr<client::LineCollector> lines_;
  std::unique_ptr<client::ChildProcess> strace_;
};

Calls calls_of(const std::string& binary, const Settings& settings, std::unique_ptr<OrderFlow> flow,
               size_t requests) {
  FlowRun run(plain_options(binary, client::still_market()), settings.one_cpu, std::move(flow),
              settings.in_flight);
  CallCounter counter(run.pid());
  for (int i = 0; i < 3; ++i) {  // behind these the attachment has taken hold
    run.session().test_request();
    run.session().exchange();
  }
  run.send(requests);
  Calls calls = counter.finish();
  calls["sendto"] -= static_cast<double>(run.session().heartbeats());
  return calls;
}

/// Calls that no order asks for: memory, and what strace itself brings about.
bool is_of_no_account(const std::string& name) {
  static const std::set<std::string> NAMES{"brk",    "mmap",    "munmap",
                                           "mremap", "madvise", "restart_syscall"};
  return NAMES.contains(name);
}

/// Sends are made for each order, the other calls once or twice in each turn, and turns without
/// work come and go by the clock.
bool is_same(const std::string& name, double a, double b, size_t turns) {
  constexpr double IDLE_TURNS = 0.2;
  const double tolerance = name == "sendto" ? 0 : 2 * IDLE_TURNS * static_cast<double>(turns);
  return std::abs(a - b) <= tolerance;
}

}  // namespace

void compare_call_counts(const Settings& settings, Report& report) {
  if (::access(STRACE, X_OK) != 0) throw std::runtime_error("counting calls needs strace");
  const size_t requests = 100 * settings.in_flight;
  const size_t resting = settings.scaled(20000, 5000);
  const size_t flows = all_order_flows(resting).size();
  for (size_t i = 0; i < flows; ++i) {
    const std::string name = all_order_flows(resting)[i]->name();
    if (!settings.wants(name)) continue;
    report.attempt("system calls, " + name, [&] {
      const auto of = [&](const std::string& binary) {
        return calls_of(binary, settings, std::move(all_order_flows(resting)[i]), requests);
      };
      Calls floor = of(settings.floor_binary);
      Calls exchange = of(settings.builds.front().binary);
      std::set<std::string> names;
      for (const Calls& calls : {floor, exchange}) {
        for (const auto& [call, count] : calls) names.insert(call);
      }
      const size_t bursts = requests / settings.in_flight;
      std::printf("\n%s: calls in %zu bursts of %zu requests, exchange and floor\n", name.c_str(),
                  bursts, settings.in_flight);
      bool same = true;
      for (const std::string& call : names) {
        std::printf("  %-16s %8.0f %8.0f\n", call.c_str(), exchange[call], floor[call]);
        same =
            same && (is_of_no_account(call) || is_same(call, exchange[call], floor[call], bursts));
      }
      if (!same) throw std::runtime_error("the floor makes other calls than the exchange");
    });
  }
}

}  // namespace perf
