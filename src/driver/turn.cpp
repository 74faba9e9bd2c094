#include "driver/turn.h"

#include "base/clocks.h"
#include "base/log.h"
#include "base/sockets.h"
#include "base/stop.h"
#include "bench/control_port.h"
#include "bench/output_files.h"
#include "bench/scenario.h"
#include "bench/stats_text.h"
#include "driver/run_config.h"
#include "feed/gap_fill.h"
#include "feed/tp_publisher.h"
#include "market/engine.h"

namespace quorl {
namespace {

constexpr int WAIT_MS = 5;
constexpr uint64_t HEARTBEAT_MS = 1000;
constexpr uint64_t FILES_MS = 250;
constexpr uint64_t BENCH_STATS_MS = 2000;
constexpr uint64_t DEEP_STATS_MS = 10000;

using Printed = unsigned long long;  // what %llu takes

}  // namespace

Driver::Driver(RunConfig& config, Engine& engine, GapFill& gap_fill, const Listeners& listeners)
    : config_(config),
      engine_(engine),
      gap_fill_(gap_fill),
      listeners_(listeners),
      gateway_(engine, clients_, config.quiet),
      last_walk_ms_(steady_ms()),
      last_deep_ms_(steady_ms()),
      last_stats_ms_(steady_ms()) {}

/// The order is what clients see on the wire.
bool Driver::turn() {
  if (stop_requested.load() != 0) return false;
  serve_control();
  serve_fix();
  serve_snaps();
  const uint64_t now_ms = steady_ms();
  walk_if_due(now_ms);
  engine_.fire_unsolicited();
  engine_.publisher->flush_if_pending();  // the feed tells of a fill before its owner hears of it
  send_deferred_reports();
  announce_lapse(now_ms);
  gateway_.run_timers(now_ms);
  print_bench_stats_if_due(now_ms);
  send_feed_heartbeat_if_due();
  gap_fill_.serve();
  write_files_if_due(now_ms);
  print_deep_stats_if_due(now_ms);
  wait();
  return true;
}

void Driver::serve_control() {
  if (listeners_.control_fd < 0) return;
  serve_control_port(listeners_.control_fd, config_.control_port,
                     {engine_, config_.interval_ms, gateway_.any_logged_on()}, scratch_);
}

void Driver::serve_fix() {
  gateway_.accept_clients(listeners_.fix_listen_fd);
  gateway_.serve_clients(scratch_);
}

void Driver::serve_snaps() {
  accept_snap_connections(listeners_.snap_listen_fd, snaps_);
  serve_snap_connections(engine_, snaps_, scratch_);
  std::erase_if(snaps_, [](const SnapConnection& snap) { return snap.fd < 0; });
}

/// A pause stops the work inside walk_tick, not this timer. A negative interval, widened with its
/// sign, is never reached.
void Driver::walk_if_due(uint64_t now_ms) {
  const auto interval_ms = static_cast<uint64_t>(static_cast<int64_t>(config_.interval_ms));
  if (now_ms - last_walk_ms_ < interval_ms) return;
  engine_.walk_tick();
  last_walk_ms_ = now_ms;
}

void Driver::send_deferred_reports() {
  for (const auto& [index, message] : engine_.drain_deferred()) {
    gateway_.send_gated(clients_[index], message);
  }
}

void Driver::announce_lapse(uint64_t now_ms) {
  Lapse& lapse = engine_.scenario->lapse;
  if (!lapse.announce_once()) return;
  print_log(
      "bench: going silent for %llu ms (no heartbeats, no reports on the wire — the "
      "client should Test Request, then drop and log on again; a ResendRequest brings "
      "what it missed)\n",
      static_cast<Printed>(lapse.until_ms() - now_ms));
}

bool Driver::bench_stats_armed() const {
  const Scenario& s = *engine_.scenario;
  return s.disconnect_after != 0 || s.rejects.every != 0 || s.partial_fills.every != 0 ||
         s.fills_on_cancel.every != 0 || s.unsolicited_cancels.every != 0 ||
         s.replace_rejects.every != 0 || s.lapse_ms != 0 || listeners_.control_fd >= 0;
}

void Driver::print_bench_stats_if_due(uint64_t now_ms) {
  if (!bench_stats_armed() || now_ms - last_stats_ms_ < BENCH_STATS_MS) return;
  print_log("bench: stats %s next_seq=%llu %s%s\n", bench_stats_text(*engine_.scenario).c_str(),
            static_cast<Printed>(engine_.publisher->next_seq()),
            fault_stats_text(*engine_.publisher).c_str(),
            session_text(gateway_.any_logged_on()).data());
  last_stats_ms_ = now_ms;
}

void Driver::send_feed_heartbeat_if_due() {
  TpPublisher& publisher = *engine_.publisher;
  if (steady_ms() - publisher.last_flush_ms() < HEARTBEAT_MS) return;
  publisher.send_heartbeat();
}

void Driver::write_files_if_due(uint64_t now_ms) {
  if (now_ms - last_output_ms_ < FILES_MS) return;
  write_book(engine_, config_.book_out);
  write_bbo(engine_, config_.bbo_out);
  last_output_ms_ = now_ms;
}

void Driver::print_deep_stats_if_due(uint64_t now_ms) {
  if (now_ms - last_deep_ms_ < DEEP_STATS_MS) return;
  const FeedCounts& feed = engine_.publisher->counts();
  print_log(
      "[quorl] deep msgs %llu packets %llu dropped %llu gapfill %llu snapshots %llu "
      "resting %zu clients %zu\n%s\n",
      static_cast<Printed>(feed.messages), static_cast<Printed>(feed.packets),
      static_cast<Printed>(feed.dropped), static_cast<Printed>(gap_fill_.counts().requests),
      static_cast<Printed>(engine_.snapshots_served), engine_.orders.size(), clients_.size(),
      fault_stats_text(*engine_.publisher).c_str());
  last_deep_ms_ = now_ms;
}

/// Neither the result nor revents decides anything: every step of the next turn looks for itself.
void Driver::wait() {
  gateway_.forget_closed_clients();
  poll_set_.clear();
  poll_set_.push_back({listeners_.fix_listen_fd, POLLIN, 0});
  poll_set_.push_back({listeners_.snap_listen_fd, POLLIN, 0});
  for (const size_t index : gateway_.open_clients()) {
    poll_set_.push_back({clients_[index].fd, POLLIN, 0});
  }
  for (const SnapConnection& snap : snaps_) poll_set_.push_back({snap.fd, POLLIN, 0});
  wait_for_events(poll_set_, WAIT_MS);
}

}  // namespace quorl
