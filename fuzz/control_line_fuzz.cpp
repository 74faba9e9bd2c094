#include <cstdlib>
#include <string>

#include "bench/control_port.h"
#include "closed_exchange.h"

// One datagram to the control port.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorl;
  static const auto exchange = fuzz::open_exchange(RunConfig{});
  const std::string reply = run_control_command(
      fuzz::text_of(data, size),
      {exchange->engine, exchange->config, exchange->silence_announced, exchange->clients});
  const bool well_formed =
      reply == "ok stopping" ||
      ((reply.starts_with("ok ") || reply.starts_with("err ")) && reply.ends_with('\n'));
  if (!well_formed) std::abort();
  return 0;
}
