#include "perf/side_by_side.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "perf/load.h"
#include "perf/order_flows.h"
#include "perf/rounds.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

namespace perf {
namespace {

using Clock = std::chrono::steady_clock;

struct Exchange {
  explicit Exchange(const client::SimulatorOptions& options)
      : server(options, ANY_CPU), feed(server.ports()), session("PERF", Waiting::SLEEPING) {
    session.connect(server.ports().fix);
    session.log_on();
  }

  Server server;
  FeedCounter feed;
  Session session;
};

using Exchanges = std::vector<std::unique_ptr<Exchange>>;

Exchanges start(const Build& build, size_t count) {
  Exchanges exchanges;
  for (size_t i = 0; i < count; ++i) {
    exchanges.push_back(std::make_unique<Exchange>(plain_options(build.binary, {})));
  }
  return exchanges;
}

double processor_s(const Exchanges& exchanges) {
  double s = 0;
  for (const auto& exchange : exchanges) s += static_cast<double>(exchange->server.processor_ns());
  return s / 1e9;
}

struct Together {
  double idle_percent = 0;  // of a CPU, for each exchange, while only the walk runs
  double order_us = 0;      // processor time of an exchange
  double orders_per_second = 0;
};

Together measure_together(const Exchanges& exchanges, size_t orders, size_t in_flight,
                          std::chrono::milliseconds idle_time) {
  const auto count = static_cast<double>(exchanges.size());
  Together result;
  const double before_idle_s = processor_s(exchanges);
  const auto idle_began = Clock::now();
  std::this_thread::sleep_for(idle_time);
  const std::chrono::duration<double> idle = Clock::now() - idle_began;
  result.idle_percent = 100 * (processor_s(exchanges) - before_idle_s) / idle.count() / count;

  const double before_s = processor_s(exchanges);
  const auto began = Clock::now();
  size_t sent = 0;
  for (size_t burst = 0; sent < orders; ++burst) {
    for (const auto& exchange : exchanges) {  // all have a burst to work off at once
      for (size_t i = 0; i < in_flight; ++i) {
        exchange->session.new_order(resting_order(burst * in_flight + i, WIDE), ACCEPTED);
      }
      exchange->session.send();
      sent += in_flight;
    }
    for (const auto& exchange : exchanges) {
      exchange->session.await_replies();
      exchange->feed.drain();
    }
  }
  const std::chrono::duration<double> passed = Clock::now() - began;
  const double walk_s = result.idle_percent / 100 * passed.count() * count;
  result.order_us = (processor_s(exchanges) - before_s - walk_s) * 1e6 / static_cast<double>(sent);
  result.orders_per_second = static_cast<double>(sent) / passed.count();
  return result;
}

}  // namespace

void measure_side_by_side(const Settings& settings, Report& report) {
  allow_cpus(0, settings.cpus);
  const size_t orders = settings.scaled(64000, 8000);
  const auto idle_time = std::chrono::milliseconds(settings.quick ? 300 : 2000);
  in_rounds(
      settings, report, "side by side", std::chrono::seconds(120),
      [&](const Build& build, unsigned) {
        Together alone;
        for (const size_t count : {size_t{1}, size_t{4}, size_t{16}}) {
          const Together found =
              measure_together(start(build, count), orders, settings.in_flight, idle_time);
          if (count == 1) alone = found;
          const std::string of = count == 1 ? "1 exchange" : std::to_string(count) + " exchanges";
          report.add({"side by side", of + ", an order", "us", "alone"}, build.name,
                     {found.order_us, alone.order_us});
          report.add({"side by side", of + ", orders of all", "a second", "alone"}, build.name,
                     {found.orders_per_second, alone.orders_per_second});
          report.add({"side by side", of + ", each with its walk alone", "% of a CPU", "alone"},
                     build.name, {found.idle_percent, alone.idle_percent});
        }
      });
}

}  // namespace perf
