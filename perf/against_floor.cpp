#include "perf/against_floor.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "perf/flow_run.h"
#include "perf/order_flows.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

namespace perf {
namespace {

constexpr size_t FLOWS = 4;
constexpr std::chrono::seconds BUDGET{100};  // no further round is begun behind it

struct Run {
  Placement placement;
  size_t flow;  // of all_order_flows
  size_t requests;
  size_t resting;
  unsigned round;
};

void measure_flow(const Settings& settings, Report& report, const Run& run) {
  const auto flow = std::move(all_order_flows(run.resting).at(run.flow));
  const std::string name =
      flow->name() + (run.placement.waiting() == Waiting::SLEEPING ? ", 1 CPU" : ", 2 CPUs");
  if (!settings.wants("floor " + name)) return;
  report.attempt(name, [&] {
    std::vector<std::unique_ptr<FlowRun>> runs;
    const auto start = [&](const std::string& binary) {
      runs.push_back(std::make_unique<FlowRun>(
          plain_options(binary, client::still_market()), run.placement,
          std::move(all_order_flows(run.resting).at(run.flow)), settings.in_flight));
    };
    start(settings.floor_binary);
    for (const Build& build : settings.builds) start(build.binary);
    send_by_turns(runs, run.requests, run.round);
    for (size_t b = 0; b < settings.builds.size(); ++b) {
      report.add({"against the floor", name, flow->unit(), "floor"}, settings.builds[b].name,
                 {runs[b + 1]->unit_us(), runs[0]->unit_us()});
    }
  });
}

}  // namespace

void measure_against_floor(const Settings& settings, Report& report) {
  const size_t requests = settings.scaled(64000, 8000);
  const size_t resting = settings.scaled(20000, 5000);
  std::vector<Placement> placements{settings.one_cpu};
  if (settings.has_two_cpus()) placements.push_back(settings.two_cpus);

  const auto began = std::chrono::steady_clock::now();
  for (unsigned round = 0; round < settings.rounds; ++round) {
    for (const Placement& placement : placements) {
      for (size_t i = 0; i < FLOWS; ++i) {
        measure_flow(settings, report, {placement, i, requests, resting, round});
      }
    }
    if (std::chrono::steady_clock::now() - began > BUDGET) return;
  }
}

}  // namespace perf
