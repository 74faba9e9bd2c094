#include <csignal>

#include "base/clocks.h"
#include "base/stop.h"
#include "driver/exchange.h"
#include "driver/run_config.h"

namespace quorl {
namespace {

void request_stop(int) { stop_requested.exchange(1); }

/// Without a restart of the call that the signal finds blocked: it returns, and the stop is seen.
void stop_on(int signal) {
  struct sigaction action {};
  action.sa_handler = request_stop;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  sigaction(signal, &action, nullptr);
}

int run(int argc, const char* const* argv) {
  RunConfig config;
  config.session = default_session(system_ns());
  if (const auto status = parse_options(argc, argv, config)) return *status;

  Exchange exchange(config);
  stop_on(SIGINT);
  stop_on(SIGTERM);
  exchange.begin();
  while (exchange.turn()) {
  }
  exchange.print_final_lines();
  return 0;
}

}  // namespace
}  // namespace quorl

// Nothing between the number parsers and this line catches or forbids exceptions: a malformed
// number on the command line ends the process by the runtime's own way, with the parser's name.
int main(int argc, char** argv) { return quorl::run(argc, argv); }
