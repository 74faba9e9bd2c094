#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "perf/load.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

namespace perf {

/// Where the server and the load generator run.
struct Placement {
  int server_cpu = 0;
  int load_cpu = 0;

  Waiting waiting() const { return server_cpu == load_cpu ? Waiting::SLEEPING : Waiting::SPINNING; }
};

/// The CPUs that this process may run on, ascending.
std::vector<int> allowed_cpus();

/// Keeps a process, or with 0 the calling thread, on these CPUs. Throws client::SystemError.
void allow_cpus(pid_t pid, const std::vector<int>& cpus);
void pin(pid_t pid, int cpu);

/// In the place of a CPU: wherever the starting thread may run.
constexpr int ANY_CPU = -1;

/// The calling thread no longer interrupts the server when a reply wakes it: on a CPU of their own
/// the server works a burst off before the load generator runs.
void yield_to_the_server();

/// The exchange, or the floor in its place, as a process of its own on ports of its own.
class Server {
 public:
  /// Starts it and waits for its banner.
  Server(client::SimulatorOptions options, int cpu);

  const client::Ports& ports() const { return simulator_.ports(); }
  client::Simulator& simulator() { return simulator_; }

  /// User and system time of all its threads so far, by the scheduler's account.
  uint64_t processor_ns() const;
  /// Memory that is resident now.
  uint64_t resident_bytes() const;

 private:
  client::Simulator simulator_;
};

/// Of an exchange that is told nothing by a bench: no control port, no files.
client::SimulatorOptions plain_options(std::string binary, std::vector<std::string> arguments);

}  // namespace perf
