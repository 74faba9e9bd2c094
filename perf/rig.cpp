#include "perf/rig.h"

namespace client = quorl::client;

namespace perf {

Rig::Rig(const client::SimulatorOptions& options, const Placement& placement)
    : server(options, placement.server_cpu), feed(server.ports()), waiting_(placement.waiting()) {
  pin(0, placement.load_cpu);
}

std::unique_ptr<Session> Rig::logs_on(const std::string& comp_id) {
  auto session = std::make_unique<Session>(comp_id, waiting_);
  session->connect(server.ports().fix);
  session->log_on();
  return session;
}

}  // namespace perf
