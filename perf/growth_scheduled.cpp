#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include "perf/growth.h"
#include "perf/order_flows.h"
#include "perf/rig.h"
#include "perf/rounds.h"
#include "quorl/client/control_client.h"
#include "quorl/client/simulator.h"

namespace client = quorl::client;

namespace perf {
namespace {

using std::chrono_literals::operator""ms;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds SCHEDULING_TIMES[] = {200ms, 100ms, 50ms};
constexpr std::chrono::milliseconds SURELY_NONE_FIRED = 280ms;  // they fire after 300 ms
constexpr size_t BURST = 500;
constexpr size_t MOST_TURNS = 100;

struct Scheduled {
  size_t orders = 0;     // that could be scheduled in time
  double turn_us = 0;    // a turn that answers one TestRequest while they wait
  double before_us = 0;  // the same before the first of them
  double fired_us = 0;   // the cancel of one order, once due
};

/// Processor time of a turn that answers a TestRequest: the mean over as many as go in the time
/// left. Asked from the server's own CPU, so that each is one turn that begins when it is asked.
double turn_us(Rig& rig, Session& session, int server_cpu, Clock::time_point end) {
  pin(0, server_cpu);
  session.set_waiting(Waiting::SLEEPING);
  size_t turns = 0;
  const double us = rig.us_of([&] {
    do {
      session.test_request();
      session.exchange();
      ++turns;
    } while (turns < MOST_TURNS && Clock::now() < end);
  });
  return us / static_cast<double>(turns);
}

Clock::time_point soon() { return Clock::now() + std::chrono::seconds(1); }

/// Throws WrongReply if the machine takes so long that cancels fire before the turns are measured.
Scheduled measure_scheduled(const std::string& binary, const Placement& placement, size_t orders,
                            std::chrono::milliseconds scheduling_time) {
  client::SimulatorOptions options;
  options.binary = binary;
  options.arguments = client::still_market();
  options.scenario = "unsolicited_cancel_every=1";
  Rig rig(options, placement);
  client::ControlClient control(rig.ports().control);
  const auto session = rig.logs_on("PERF");

  Scheduled result;
  turn_us(rig, *session, placement.server_cpu, soon());  // warm
  result.before_us = turn_us(rig, *session, placement.server_cpu, soon());
  pin(0, placement.load_cpu);
  session->set_waiting(placement.waiting());
  const auto began = Clock::now();
  while (result.orders < orders && Clock::now() - began < scheduling_time) {
    rig.send(
        *session, std::min(BURST, orders - result.orders),
        [&](size_t) { session->new_order(resting_order(result.orders++, WIDE), ACCEPTED); }, BURST);
  }
  result.turn_us = turn_us(rig, *session, placement.server_cpu, began + SURELY_NONE_FIRED);
  session->disconnect();  // so that no report meets a full socket
  const client::Deadline deadline = client::Deadline::after(std::chrono::seconds(60));
  const double us = rig.us_of([&] {
    while (control.stats()["unsolicited_cancels"] < result.orders && !deadline.expired()) {
      rig.feed.settle();
    }
  });
  if (control.stats()["unsolicited_cancels"] != result.orders) {
    throw WrongReply("not every scheduled cancel has fired");
  }
  result.fired_us = us / static_cast<double>(result.orders);
  return result;
}

/// Schedules fewer if it must.
Scheduled measure_scheduled(const std::string& binary, const Placement& placement, size_t orders) {
  for (const std::chrono::milliseconds time : SCHEDULING_TIMES) {
    try {
      return measure_scheduled(binary, placement, orders, time);
    } catch (const WrongReply&) {
      if (time == *std::rbegin(SCHEDULING_TIMES)) throw;
    }
  }
  throw std::logic_error("no time to schedule in");
}

}  // namespace

void measure_scheduled_cancels(const Settings& settings, Report& report) {
  if (!settings.wants("scheduled")) return;
  const size_t orders = settings.scaled(30000, 3000);
  const std::string count = std::to_string(orders);
  in_rounds(settings, report, "scheduled cancels", USUAL_BUDGET, [&](const Build& build, unsigned) {
    const Scheduled found = measure_scheduled(build.binary, settings.two_cpus, orders);
    const double none_us = found.before_us;
    // A slow machine cannot schedule them all before the first one fires.
    const double scale = static_cast<double>(orders) / static_cast<double>(found.orders);
    report.add({"growth", "turn with " + count + " cancels scheduled", "us", "with none"},
               build.name, {none_us + (found.turn_us - none_us) * scale, none_us});
    report.add({"growth", "scheduled in time, of " + count, "orders", ""}, build.name,
               {static_cast<double>(found.orders)});
    report.add({"growth", "scheduled cancel that fires among these", "us", ""}, build.name,
               {found.fired_us});
  });
}

}  // namespace perf
