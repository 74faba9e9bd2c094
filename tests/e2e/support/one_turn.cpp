#include "tests/e2e/support/one_turn.h"

#include <sys/syscall.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace e2e {
namespace {

/// What waits unread in the sockets bound to the local port, as the kernel's table tells it:
/// "0: 0100007F:6F54 0100007F:C350 01 00000000:00000021 ...". An empty datagram counts too.
uint64_t unread(const std::string& table, uint16_t port) {
  constexpr int HEX = 16;
  constexpr const char* LISTENING = "0A";  // a queue of connections
  uint64_t sum = 0;
  std::ifstream file("/proc/net/" + table);
  std::string line;
  std::getline(file, line);  // the heading
  while (std::getline(file, line)) {
    std::istringstream words(line);
    std::string number, local, remote, state, queues;
    words >> number >> local >> remote >> state >> queues;
    if (std::stoul(local.substr(local.find(':') + 1), nullptr, HEX) != port) continue;
    if (table == "tcp" && state == LISTENING) continue;
    sum += std::stoull(queues.substr(queues.find(':') + 1), nullptr, HEX);
  }
  return sum;
}

uint64_t unread(const client::Ports& ports) {
  return unread("tcp", ports.fix) + unread("udp", ports.control);
}

/// A turn ends in poll(), with both listeners in the set: a wait for one descriptor stands within a
/// turn. Where the kernel does not tell, we have to hope.
bool is_in_poll(const client::Simulator& simulator) {
  std::ifstream file("/proc/" + std::to_string(simulator.pid()) + "/syscall");
  long call = 0;
  std::string set;
  std::string size;
  if (!(file >> call)) return true;
  if (call == SYS_restart_syscall) return true;  // after an earlier stop
#ifdef SYS_poll
  if (call != SYS_poll && call != SYS_ppoll) return false;
#else
  if (call != SYS_ppoll) return false;
#endif
  return static_cast<bool>(file >> set >> size) && size != "0x1";
}

void stop_between_turns(client::Simulator& simulator) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  for (;;) {
    simulator.stop_process();
    if (is_in_poll(simulator)) return;
    simulator.cont_process();
    if (deadline.expired()) throw client::Timeout("the process is always within a turn");
  }
}

}  // namespace

void in_one_turn(Exchange& exchange, const std::vector<std::function<void()>>& sends) {
  stop_between_turns(exchange.simulator());
  for (const std::function<void()>& send : sends) {
    const uint64_t before = unread(exchange.ports());
    send();
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    while (unread(exchange.ports()) <= before) {
      if (deadline.expired()) throw client::Timeout("what was sent does not reach the exchange");
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  exchange.simulator().cont_process();
}

}  // namespace e2e
