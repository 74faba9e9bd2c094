#include "perf/server.h"

#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <utility>

#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr uint64_t NS_PER_S = 1000000000;

}  // namespace

std::vector<int> allowed_cpus() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) != 0) throw client::SystemError("sched_getaffinity");
  std::vector<int> cpus;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(static_cast<size_t>(cpu), &set)) cpus.push_back(cpu);
  }
  return cpus;
}

void allow_cpus(pid_t pid, const std::vector<int>& cpus) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (const int cpu : cpus) CPU_SET(static_cast<size_t>(cpu), &set);
  if (::sched_setaffinity(pid, sizeof set, &set) != 0) {
    throw client::SystemError("sched_setaffinity");
  }
}

void pin(pid_t pid, int cpu) { allow_cpus(pid, {cpu}); }

void yield_to_the_server() {
  const sched_param ordinary{};
  if (::sched_setscheduler(0, SCHED_BATCH, &ordinary) != 0) {
    throw client::SystemError("sched_setscheduler");
  }
}

Server::Server(client::SimulatorOptions options, int cpu) : simulator_(std::move(options)) {
  simulator_.start();
  const sched_param ordinary{};
  ::sched_setscheduler(simulator_.pid(), SCHED_OTHER, &ordinary);  // not what its starter has
  if (cpu != ANY_CPU) pin(simulator_.pid(), cpu);
}

uint64_t Server::processor_ns() const {
  clockid_t clock{};
  if (const int error = ::clock_getcpuclockid(simulator_.pid(), &clock); error != 0) {
    errno = error;
    throw client::SystemError("clock_getcpuclockid");
  }
  timespec used{};
  if (::clock_gettime(clock, &used) != 0) throw client::SystemError("clock_gettime");
  return static_cast<uint64_t>(used.tv_sec) * NS_PER_S + static_cast<uint64_t>(used.tv_nsec);
}

uint64_t Server::resident_bytes() const {
  std::ifstream in("/proc/" + std::to_string(simulator_.pid()) + "/statm");
  uint64_t total_pages = 0;
  uint64_t resident_pages = 0;
  in >> total_pages >> resident_pages;
  return resident_pages * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
}

client::SimulatorOptions plain_options(std::string binary, std::vector<std::string> arguments) {
  client::SimulatorOptions options;
  options.binary = std::move(binary);
  options.arguments = std::move(arguments);
  options.control_port = false;
  return options;
}

}  // namespace perf
