#include "tests/tools/support/group_members.h"

#include <arpa/inet.h>

#include <chrono>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <thread>

#include "quorl/client/deadline.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace tools_test {

void await_joined(const std::string& group) {
  in_addr address{};
  ::inet_pton(AF_INET, group.c_str(), &address);
  std::ostringstream name;
  name << std::hex << std::uppercase << std::setw(8) << std::setfill('0') << address.s_addr;
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  while (!deadline.expired()) {
    std::stringstream members;
    members << std::ifstream("/proc/net/igmp").rdbuf();
    if (members.str().find(name.str()) != std::string::npos) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  throw client::Timeout("nobody joins " + group);
}

}  // namespace tools_test
