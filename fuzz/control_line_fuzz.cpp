#include <cstdlib>
#include <string>

#include "bench/control_port.h"
#include "closed_exchange.h"
#include "support/test_clock.h"

// One datagram to the control port. All that a command can set is as at the start of a run, so that
// an input does the same whatever came before it.

namespace quorl {
namespace {

/// A whole new exchange for each input would cost more than all else together.
fuzz::ClosedExchange& exchange_with(Scenario& fresh) {
  static const auto exchange = fuzz::open_exchange(RunConfig{});
  exchange->config = RunConfig{};
  exchange->publisher.faults = FaultPlan{};
  exchange->engine.paused = false;
  exchange->engine.scenario = &fresh;
  return *exchange;
}

void command(std::string_view line) {
  test::reset_clocks();
  Scenario scenario;
  fuzz::ClosedExchange& exchange = exchange_with(scenario);
  const ControlTargets targets{
      .engine = exchange.engine, .interval_ms = exchange.config.interval_ms, .session_up = false};
  const ControlReply reply = run_control_command(line, targets);
  const std::string& text = reply.text;
  const bool well_formed = (text.starts_with("ok ") || text.starts_with("err ")) &&
                           (reply.stops || text.ends_with('\n'));
  if (!well_formed) std::abort();
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorl::command(quorl::fuzz::text_of(data, size));
  return 0;
}
