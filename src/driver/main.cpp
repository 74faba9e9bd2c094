#include <csignal>
#include <cstdio>
#include <random>

#include "bench/control_port.h"
#include "bench/scenario.h"
#include "bench/stats_text.h"
#include "driver/clocks.h"
#include "driver/run_config.h"
#include "driver/sockets.h"
#include "driver/turn.h"
#include "feed/tp_publisher.h"
#include "fix/fix_codec.h"
#include "market/engine.h"

namespace quorl {
namespace {

void request_stop(int) { stop_requested.exchange(1); }

void print_banner(const RunConfig& config) {
  std::fprintf(stderr,
               "[quorl] DEEP/IEX-TP %s:%u (iface %s, session %u, gap fill udp :%u) · DEEP SNAP tcp "
               ":%u · FIX :%u as %s · %s\n",
               config.mcast.c_str(), static_cast<unsigned>(config.port), config.iface.c_str(),
               config.session, static_cast<unsigned>(config.gapfill_port),
               static_cast<unsigned>(config.snap_port), static_cast<unsigned>(config.fix_port),
               std::string(EXCHANGE_COMP_ID).c_str(), config.symbols.c_str());
}

void print_final_lines(const Scenario& scenario, const TpPublisher& publisher) {
  std::fprintf(stderr, "%s\nbench: stats %s next_seq=%llu\n[quorl] stopped\n",
               fault_stats_text(publisher).c_str(), bench_stats_text(scenario).c_str(),
               static_cast<unsigned long long>(publisher.next_seq));
}

int run(int argc, const char* const* argv) {
  RunConfig config;
  config.session = default_session(system_ns());
  if (const auto status = parse_options(argc, argv, config)) return *status;

  // What is built last goes first at the end, and nothing says goodbye to a client.
  std::mt19937_64 rng(config.seed);
  TpPublisher publisher(config.mcast, config.port, config.iface, config.gapfill_port,
                        config.session);
  publisher.faults = fault_plan_of(config);
  Scenario scenario;
  Engine engine(publisher, rng, scenario, config.step_bps, config.touch_hit, config.quiet);
  if (!config.truth_out.empty()) engine.truth.open(config.truth_out, std::ios::app);
  Listeners listeners;
  listeners.control_fd = open_control_port(config.control_port);
  list_symbols(config.symbols, engine);
  engine.open_market();  // the first packets leave before either TCP service listens
  listeners.fix_listen_fd = listen_or_exit(config.fix_port, "FIX");
  listeners.snap_listen_fd = listen_or_exit(config.snap_port, "DEEP SNAP");
  print_banner(config);
  std::signal(SIGINT, request_stop);
  std::signal(SIGTERM, request_stop);

  Driver driver(config, engine, listeners);
  while (driver.turn()) {
  }
  print_final_lines(scenario, publisher);
  return 0;
}

}  // namespace
}  // namespace quorl

// Nothing between the number parsers and this line catches or forbids exceptions: a malformed
// number on the command line ends the process by the runtime's own way, with the parser's name.
int main(int argc, char** argv) { return quorl::run(argc, argv); }
