#include "quorl/client/bench.h"

#include <utility>

namespace quorl::client {
namespace {

/// The simulator announces itself behind its opening packets, so the feed has heard them by then.
uint16_t started_control_port(Simulator& simulator, FeedSubscriber& feed) {
  simulator.start();
  feed.expect_session(simulator.session());
  return simulator.ports().control;
}

}  // namespace

Bench::Bench(SimulatorOptions options)
    : simulator_(std::move(options)),
      feed_(simulator_.ports().group, simulator_.ports().feed),
      control_(started_control_port(simulator_, feed_)) {}

std::unique_ptr<FixSession> Bench::logs_on(const std::string& comp_id,
                                           const LogonOptions& options) {
  auto session = std::make_unique<FixSession>(ports().fix, comp_id);
  session->logon(options);
  return session;
}

}  // namespace quorl::client
