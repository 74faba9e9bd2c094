#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "perf/load.h"
#include "perf/server.h"
#include "perf/settings.h"

namespace client = quorl::client;

namespace perf {

/// A running server with a subscriber of its feed: what a measurement begins with.
class Rig {
 public:
  /// Pins the calling thread, too.
  Rig(const client::SimulatorOptions& options, const Placement& placement);

  /// A session that is logged on.
  std::unique_ptr<Session> logs_on(const std::string& comp_id);

  /// `count` requests in bursts: see send_in_bursts.
  template <typename Queue>
  void send(Session& session, size_t count, Queue&& queue, size_t in_flight = 64) {
    send_in_bursts(session, feed, count, in_flight, std::forward<Queue>(queue));
  }

  /// Processor time of the server while `work` runs, in microseconds.
  template <typename Work>
  double us_of(Work&& work) {
    const uint64_t before_ns = server.processor_ns();
    std::forward<Work>(work)();
    return static_cast<double>(server.processor_ns() - before_ns) / 1000.0;
  }

  const client::Ports& ports() const { return server.ports(); }

  Server server;
  FeedCounter feed;

 private:
  Waiting waiting_;
};

}  // namespace perf
