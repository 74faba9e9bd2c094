#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "perf/order_flows.h"
#include "perf/rig.h"

namespace client = quorl::client;

namespace perf {

/// A flow of orders into a server of its own, and what it has cost so far.
class FlowRun {
 public:
  /// Starts the server and prepares the flow.
  FlowRun(const client::SimulatorOptions& options, const Placement& placement,
          std::unique_ptr<OrderFlow> flow, size_t in_flight);

  /// The next requests of the flow. Throws WrongReply, too, unless each brings one feed packet.
  void send(size_t requests);

  pid_t pid() { return rig_.server.simulator().pid(); }
  Session& session() { return *session_; }

  /// Processor time per unit of the flow, in microseconds.
  double unit_us() const;

 private:
  Rig rig_;
  std::unique_ptr<OrderFlow> flow_;
  size_t in_flight_;
  std::unique_ptr<Session> session_;
  size_t requests_ = 0;
  double us_ = 0;
};

/// Sends `requests` through each of the runs, by turns and a slice at a time: what disturbs the
/// machine for a moment meets them all. `round` says who begins.
void send_by_turns(std::vector<std::unique_ptr<FlowRun>>& runs, size_t requests, unsigned round);

}  // namespace perf
