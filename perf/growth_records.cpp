#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "perf/flow_run.h"
#include "perf/growth.h"
#include "perf/order_flows.h"
#include "perf/rig.h"
#include "perf/rounds.h"
#include "perf/tick_counter.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

// What the exchange keeps and writes down.

namespace perf {
namespace {

constexpr uint32_t ASKED_AT_ONCE = 5000;  // messages of one ResendRequest

}  // namespace

void measure_truth(const Settings& settings, Report& report) {
  if (!settings.wants("truth")) return;
  const size_t orders = settings.scaled(20000, 5000);
  in_rounds(settings, report, "truth", USUAL_BUDGET, [&](const Build& build, unsigned round) {
    std::vector<std::unique_ptr<FlowRun>> runs;
    const auto start = [&](bool market_truth, bool order_truth) {
      client::SimulatorOptions options = plain_options(build.binary, client::still_market());
      options.market_truth = market_truth;
      options.order_truth = order_truth;
      runs.push_back(std::make_unique<FlowRun>(
          options, settings.one_cpu, std::make_unique<Resting>(WIDE), settings.in_flight));
    };
    start(false, false);
    start(true, false);
    start(false, true);
    send_by_turns(runs, orders, round);
    report.add({"growth", "order with its line of market truth", "us", "without"}, build.name,
               {runs[1]->unit_us(), runs[0]->unit_us()});
    report.add({"growth", "order with its order event line", "us", "without"}, build.name,
               {runs[2]->unit_us(), runs[0]->unit_us()});
  });
}

void measure_resend(const Settings& settings, Report& report) {
  if (!settings.wants("resend")) return;
  const size_t orders = settings.scaled(200000, 20000);
  const std::string name = "full resend of " + std::to_string(orders) + " reports, a report";
  in_rounds(settings, report, name, USUAL_BUDGET, [&](const Build& build, unsigned) {
    Rig rig(plain_options(build.binary, client::still_market()), settings.two_cpus);
    const auto session = rig.logs_on("PERF");
    const double sent_us = rig.us_of([&] {
      rig.send(*session, orders,
               [&](size_t i) { session->new_order(resting_order(i, WIDE), ACCEPTED); });
    });
    size_t replayed = 0;
    const uint32_t last = session->last_received();
    const double replayed_us = rig.us_of([&] {
      for (uint32_t first = 1; first <= last; first += ASKED_AT_ONCE) {
        replayed += session->fetch_again(first, std::min(first + ASKED_AT_ONCE - 1, last));
      }
    });
    if (replayed != orders) throw WrongReply(std::to_string(replayed) + " reports came again");
    const auto count = static_cast<double>(orders);
    report.add({"growth", name, "us", "order"}, build.name, {replayed_us / count, sent_us / count});
  });
}

void measure_memory(const Settings& settings, Report& report) {
  if (!settings.wants("memory")) return;
  const size_t orders = settings.scaled(100000, 20000);
  const std::string name =
      "memory of a resting order and its report, " + std::to_string(orders) + " orders";
  in_rounds(settings, report, name, USUAL_BUDGET, [&](const Build& build, unsigned) {
    Rig rig(plain_options(build.binary, client::still_market()), settings.one_cpu);
    const auto session = rig.logs_on("PERF");
    const uint64_t before = rig.server.resident_bytes();
    rig.send(
        *session, orders, [&](size_t i) { session->new_order(resting_order(i, WIDE), ACCEPTED); },
        512);
    const uint64_t more = rig.server.resident_bytes() - before;
    report.add({"growth", name, "bytes", ""}, build.name,
               {static_cast<double>(more) / static_cast<double>(orders)});
  });
}

void measure_start(const Settings& settings, Report& report) {
  if (!settings.wants("start")) return;
  const size_t symbols = settings.scaled(2000, 500);
  const std::string of = std::to_string(symbols) + " symbols";
  in_rounds(settings, report, "start", USUAL_BUDGET, [&](const Build& build, unsigned) {
    const auto start_ms = [&](const std::vector<std::string>& arguments) {
      client::Simulator simulator(plain_options(build.binary, arguments));
      const auto began = std::chrono::steady_clock::now();
      simulator.start();
      const std::chrono::duration<double, std::milli> passed =
          std::chrono::steady_clock::now() - began;
      if (simulator.restarts() != 0) throw WrongReply("a port was taken");
      return passed.count();
    };
    const double few_ms = start_ms(client::still_market());
    std::vector<std::string> arguments = client::still_market();
    arguments.insert(arguments.end(), {"--symbols", symbol_list(symbols)});
    report.add({"growth", "start to banner, " + of, "ms", "default symbols"}, build.name,
               {start_ms(arguments), few_ms});
  });
}

}  // namespace perf
