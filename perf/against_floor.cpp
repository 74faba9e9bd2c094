#include "perf/against_floor.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/simulator.h"
#include "perf/load.h"
#include "perf/order_flows.h"

namespace perf {
namespace {

constexpr size_t FLOWS = 4;
constexpr std::chrono::seconds BUDGET{100};  // no further round is begun behind it

/// Processor time per unit, in microseconds. A server of its own, so that every run begins alike.
double cost_us(const std::string& binary, const Placement& placement, OrderFlow& flow,
               size_t requests, size_t in_flight) {
  pin(0, placement.load_cpu);
  Server server(plain_options(binary, client::still_market()), placement.server_cpu);
  FeedCounter feed(server.ports());
  Session session("PERF", placement.waiting());
  session.connect(server.ports().fix);
  session.log_on();
  flow.prepare(session, feed);
  feed.settle();

  const uint64_t packets_before = feed.packets();
  const uint64_t before_ns = server.processor_ns();
  send_in_bursts(session, feed, requests, in_flight, [&](size_t i) { flow.queue(session, i); });
  feed.await_packets(packets_before + requests);
  const uint64_t used_ns = server.processor_ns() - before_ns;
  if (feed.packets() != packets_before + requests) {
    throw WrongReply("more feed packets than orders");
  }
  const size_t units = requests / flow.requests_in_unit();
  return static_cast<double>(used_ns) / 1000.0 / static_cast<double>(units);
}

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
    const auto cost_of = [&](const std::string& binary) {
      const auto fresh = std::move(all_order_flows(run.resting).at(run.flow));
      return cost_us(binary, run.placement, *fresh, run.requests, settings.in_flight);
    };
    // Whoever comes second finds the machine otherwise than the first: they take turns.
    const bool floor_first = run.round % 2 == 0;
    double floor_us = floor_first ? cost_of(settings.floor_binary) : 0;
    std::vector<double> build_us;
    for (const Build& build : settings.builds) build_us.push_back(cost_of(build.binary));
    if (!floor_first) floor_us = cost_of(settings.floor_binary);
    for (size_t b = 0; b < settings.builds.size(); ++b) {
      report.add({"against the floor", name, flow->unit(), "floor"}, settings.builds[b].name,
                 {build_us[b], floor_us});
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
