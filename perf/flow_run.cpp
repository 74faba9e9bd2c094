#include "perf/flow_run.h"

#include <algorithm>

namespace client = quorl::client;

namespace perf {
namespace {

constexpr size_t SLICE = 50 * 64;  // requests; some hundredths of a second

}  // namespace

FlowRun::FlowRun(const client::SimulatorOptions& options, const Placement& placement,
                 std::unique_ptr<OrderFlow> flow, size_t in_flight)
    : rig_(options, placement),
      flow_(std::move(flow)),
      in_flight_(in_flight),
      session_(rig_.logs_on("PERF")) {
  flow_->prepare(*session_, rig_.feed);
  rig_.feed.settle();
}

void FlowRun::send(size_t requests) {
  const uint64_t packets_due = rig_.feed.packets() + requests;
  us_ += rig_.us_of([&] {
    rig_.send(
        *session_, requests, [&](size_t i) { flow_->queue(*session_, requests_ + i); }, in_flight_);
    rig_.feed.await_packets(packets_due);
  });
  if (rig_.feed.packets() != packets_due) throw WrongReply("more feed packets than requests");
  requests_ += requests;
}

double FlowRun::unit_us() const {
  return us_ * static_cast<double>(flow_->requests_in_unit()) / static_cast<double>(requests_);
}

void send_by_turns(std::vector<std::unique_ptr<FlowRun>>& runs, size_t requests, unsigned round) {
  for (size_t sent = 0, turn = round; sent < requests; sent += SLICE, ++turn) {
    for (size_t i = 0; i < runs.size(); ++i) {
      runs[(i + turn) % runs.size()]->send(std::min(SLICE, requests - sent));
    }
  }
}

}  // namespace perf
