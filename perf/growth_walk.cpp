#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "perf/growth.h"
#include "perf/order_flows.h"
#include "perf/rig.h"
#include "perf/rounds.h"
#include "perf/tick_counter.h"
#include "quorl/client/control_client.h"
#include "quorl/client/errors.h"

namespace client = quorl::client;

namespace perf {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr std::chrono::milliseconds TICK_PATIENCE{60000};
constexpr std::chrono::seconds LONG_ENOUGH{4};  // no further tick is awaited behind it
constexpr unsigned USUAL_INTERVAL_MS = 40;
constexpr unsigned SHORT_INTERVAL_MS = 10;  // where only the cost of a tick is asked for
constexpr double WANTED_TICKS_PER_SECOND = 25;
constexpr size_t FEW_SYMBOLS = 20;

struct WalkCost {
  double tick_us = 0;  // processor time of one tick, without the idle turns around it
  double ticks_per_second = 0;
  double idle_share = 0;  // processor seconds per second while the walk pauses
};

double seconds_since(Clock::time_point then) { return Seconds(Clock::now() - then).count(); }

/// An exchange whose walk is paused from before its first tick until it is measured.
class Walk {
 public:
  Walk(const std::string& binary, const Placement& placement, size_t symbols, unsigned interval_ms)
      : server_({.binary = binary,
                 .arguments = {"--symbols", symbol_list(symbols), "--interval-ms", "-1"}},
                placement.server_cpu),
        feed_(server_.ports(), symbols),
        control_(server_.ports().control),
        interval_ms_(interval_ms),
        waiting_(placement.waiting()) {
    pin(0, placement.load_cpu);
  }

  /// Client orders that no tick ever reaches.
  void rest(size_t orders) {
    FeedCounter drained(server_.ports());
    Session session("PERF", waiting_);
    session.connect(server_.ports().fix);
    session.log_on();
    send_in_bursts(session, drained, orders, 512, [&](size_t i) {
      NewOrder order = resting_order(i, 4000);
      order.symbol = "S0";
      session.new_order(order, ACCEPTED);
    });
  }

  /// The first `ticks` of the walk, or as many as end in some seconds.
  WalkCost measure(size_t ticks) {
    const double idle = idle_share();
    feed_.drain();
    const uint64_t before_ns = server_.processor_ns();
    const auto began = Clock::now();
    control_.ok("rate " + std::to_string(interval_ms_));
    feed_.await_ticks(1, TICK_PATIENCE);
    const double first_s = seconds_since(began);
    while (feed_.ticks() < ticks && Clock::now() - began < LONG_ENOUGH) {
      feed_.await_ticks(feed_.ticks() + 1, TICK_PATIENCE);
    }
    const double used_s = static_cast<double>(server_.processor_ns() - before_ns) / 1e9;
    const double passed_s = seconds_since(began);
    const auto counted = static_cast<double>(feed_.ticks());
    return {.tick_us = (used_s - idle * passed_s) / (1 - idle) * 1e6 / counted,
            .ticks_per_second = counted > 1 ? (counted - 1) / (passed_s - first_s) : 1 / passed_s,
            .idle_share = idle};
  }

 private:
  double idle_share() {
    const uint64_t before_ns = server_.processor_ns();
    const auto began = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return static_cast<double>(server_.processor_ns() - before_ns) / 1e9 / seconds_since(began);
  }

  Server server_;
  TickCounter feed_;
  client::ControlClient control_;
  unsigned interval_ms_;
  Waiting waiting_;
};

/// Per cent of one CPU that the walk takes if it gets all its ticks.
double percent_of_a_cpu(const WalkCost& cost) {
  return 100 * (cost.tick_us * WANTED_TICKS_PER_SECOND / 1e6 + cost.idle_share);
}

void measure_symbols(const Settings& settings, Report& report) {
  const std::vector<size_t> sizes = settings.quick
                                        ? std::vector<size_t>{FEW_SYMBOLS, 100, 200}
                                        : std::vector<size_t>{FEW_SYMBOLS, 100, 500, 2000};
  const size_t ticks = settings.scaled(50, 20);
  std::map<std::pair<std::string, unsigned>, double> few_us;  // per symbol, by build and round
  for (const size_t symbols : sizes) {
    const std::string of = std::to_string(symbols) + " symbols";
    const unsigned interval_ms = symbols >= 500 ? USUAL_INTERVAL_MS : SHORT_INTERVAL_MS;
    in_rounds(settings, report, "walk, " + of, std::chrono::seconds(15),
              [&](const Build& build, unsigned round) {
                Walk walk(build.binary, settings.two_cpus, symbols, interval_ms);
                const WalkCost cost = walk.measure(ticks);
                const double symbol_us = cost.tick_us / static_cast<double>(symbols);
                if (symbols == FEW_SYMBOLS) few_us[{build.name, round}] = symbol_us;
                report.add({"growth", "walk, a symbol and tick of " + of, "us",
                            "of " + std::to_string(FEW_SYMBOLS)},
                           build.name, {symbol_us, few_us.at({build.name, round})});
                if (symbols == sizes[2]) {
                  report.add({"growth", "walk, share of a CPU that 25 ticks/s of " + of + " take",
                              "%", ""},
                             build.name, {percent_of_a_cpu(cost)});
                }
                if (symbols == sizes.back()) {
                  report.add({"growth", "walk, ticks kept with " + of, "ticks/s", ""}, build.name,
                             {cost.ticks_per_second});
                }
              });
  }
}

void measure_with_orders(const Settings& settings, Report& report) {
  const size_t orders = settings.scaled(100000, 10000);
  const std::string name = "walk, a tick of " + std::to_string(FEW_SYMBOLS) + " symbols with " +
                           std::to_string(orders) + " client orders";
  const size_t ticks = settings.scaled(300, 20);  // two hundredths are looked for
  in_rounds(settings, report, name, std::chrono::seconds(25),
            [&](const Build& build, unsigned round) {
              Walk without(build.binary, settings.two_cpus, FEW_SYMBOLS, SHORT_INTERVAL_MS);
              Walk with(build.binary, settings.two_cpus, FEW_SYMBOLS, SHORT_INTERVAL_MS);
              with.rest(orders);
              const bool with_first = round % 2 == 0;
              const double first_us = (with_first ? with : without).measure(ticks).tick_us;
              const double second_us = (with_first ? without : with).measure(ticks).tick_us;
              const double with_us = with_first ? first_us : second_us;
              const double without_us = with_first ? second_us : first_us;
              report.add({"growth", name, "us", "without"}, build.name, {with_us, without_us});
            });
}

}  // namespace

void measure_walk(const Settings& settings, Report& report) {
  if (!settings.wants("walk")) return;
  measure_symbols(settings, report);
  measure_with_orders(settings, report);
}

}  // namespace perf
