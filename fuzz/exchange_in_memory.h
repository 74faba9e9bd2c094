#pragma once

#include <memory>

#include "closed_exchange.h"
#include "day/day_clock.h"
#include "day/day_network.h"
#include "day/day_outputs.h"
#include "lives/machine.h"

namespace quorl::fuzz {

/// An exchange whose sockets are those of a network in memory, so that each reply is there at once
/// and whole. The network is that of the process as long as there is no later one.
struct ExchangeInMemory {
  static constexpr day::Network::Ports PORTS{
      .fix = 7001, .snap = 7002, .control = 7003, .gap_fill = 7004};
  static constexpr uint32_t SESSION = 1;

  ExchangeInMemory() {
    day::reset_clock(1'700'000'000'000'000'000);
    RunConfig config;
    config.symbols = "A:10";
    config.session = SESSION;
    exchange = open_exchange(config);
  }

  lives::Machine machine;
  day::Outputs outputs{""};
  day::Network network{PORTS, outputs};
  std::unique_ptr<ClosedExchange> exchange;
};

inline void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace quorl::fuzz
