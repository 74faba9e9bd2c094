#include "driver/exchange.h"

#include <string>

#include "base/log.h"
#include "bench/control_port.h"
#include "bench/stats_text.h"
#include "driver/listener.h"
#include "fix/fix_codec.h"

namespace quorl {

Exchange::Exchange(const RunConfig& config)
    : config_(config),
      rng_(config_.seed),
      publisher_(config_.mcast, config_.port, config_.iface, config_.session),
      gap_fill_(publisher_, gap_fill_socket_.fd = open_gap_fill_port(config_.gapfill_port)),
      starting_faults_(fault_plan_of(config_)),
      engine_(publisher_, rng_, scenario_, config_.step_bps, config_.touch_hit) {
  publisher_.faults = starting_faults_;
  if (!config_.truth_out.empty()) engine_.truth.open_for_appending(config_.truth_out);
  listeners_.control_fd = open_control_port(config_.control_port);
  for (const Listing& listing : parse_symbols(config_.symbols)) {
    engine_.add_stock(listing.symbol, listing.price);
  }
  engine_.open_market();  // the first packets leave before either TCP service listens
  listeners_.fix_listen_fd = listen_or_exit(config_.fix_port, "FIX");
  listeners_.snap_listen_fd = listen_or_exit(config_.snap_port, "DEEP SNAP");
  print_banner();
}

void Exchange::begin() { driver_.emplace(config_, engine_, gap_fill_, listeners_); }

void Exchange::print_banner() const {
  print_log(
      "[quorl] DEEP/IEX-TP %s:%u (iface %s, session %u, gap fill udp :%u) · DEEP SNAP tcp "
      ":%u · FIX :%u as %s · %s\n",
      config_.mcast.c_str(), static_cast<unsigned>(config_.port), config_.iface.c_str(),
      config_.session, static_cast<unsigned>(config_.gapfill_port),
      static_cast<unsigned>(config_.snap_port), static_cast<unsigned>(config_.fix_port),
      std::string(EXCHANGE_COMP_ID).c_str(), config_.symbols.c_str());
}

void Exchange::print_final_lines() const {
  print_log("%s\nbench: stats %s next_seq=%llu\n[quorl] stopped\n",
            fault_stats_text(publisher_).c_str(), bench_stats_text(scenario_).c_str(),
            static_cast<unsigned long long>(publisher_.next_seq()));
}

}  // namespace quorl
