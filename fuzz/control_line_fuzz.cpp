#include <cstdlib>
#include <string>

#include "bench/control_port.h"
#include "closed_exchange.h"
#include "support/test_clock.h"

// One datagram to the control port of a fresh exchange: an input does the same whatever came before
// it.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorl;
  test::reset_clocks();
  RunConfig config;
  config.symbols = "A:10";
  const auto exchange = fuzz::open_exchange(config);
  const ControlTargets targets{
      .engine = exchange->engine, .interval_ms = exchange->config.interval_ms, .session_up = false};
  const ControlReply reply = run_control_command(fuzz::text_of(data, size), targets);
  const std::string& text = reply.text;
  const bool well_formed = (text.starts_with("ok ") || text.starts_with("err ")) &&
                           (reply.stops || text.ends_with('\n'));
  if (!well_formed) std::abort();
  return 0;
}
