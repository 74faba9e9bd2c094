#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bench/scenario.h"
#include "driver/run_config.h"
#include "feed/fault_plan.h"
#include "feed/tp_publisher.h"
#include "fix/stream_records.h"
#include "market/engine.h"
#include "support/inside.h"

namespace quorl::fuzz {

/// What a target gives the program to read, as characters.
inline std::string_view text_of(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Takes the part in front of the first `separator` out of `rest`, and the separator with it.
inline std::string_view take_until(std::string_view& rest, char separator) {
  const std::string_view part = rest.substr(0, rest.find(separator));
  rest.remove_prefix(std::min(rest.size(), part.size() + 1));
  return part;
}

/// QUORL_SCENARIO in the environment, for as long as this lives.
class ScenarioVariable {
 public:
  explicit ScenarioVariable(std::string_view text)
      : assignment_("QUORL_SCENARIO=" + std::string(text)) {
    ::putenv(assignment_.data());  // setenv would keep a copy of every text for ever
  }
  ScenarioVariable(const ScenarioVariable&) = delete;
  ScenarioVariable& operator=(const ScenarioVariable&) = delete;
  ~ScenarioVariable() { ::unsetenv("QUORL_SCENARIO"); }

 private:
  std::string assignment_;  // the environment points into it
};

/// The exchange that a command line asks for, cut off from the network: its feed is sent to port 0,
/// where nobody can be. The market is not open yet and has no symbols.
struct ClosedExchange {
  explicit ClosedExchange(const RunConfig& run_config)
      : config(run_config),
        rng(config.seed),
        publisher("127.0.0.1", 0, config.iface, config.session),
        engine(publisher, rng, scenario, config.step_bps, config.touch_hit) {}

  RunConfig config;
  std::mt19937_64 rng;
  TpPublisher publisher;
  Scenario scenario;
  Engine engine;
  std::vector<Client> clients;
};

/// One with the given symbols, open for trading.
inline std::unique_ptr<ClosedExchange> open_exchange(const RunConfig& config) {
  auto exchange = std::make_unique<ClosedExchange>(config);
  exchange->publisher.faults = fault_plan_of(config);
  for (const Listing& listing : parse_symbols(config.symbols)) {
    exchange->engine.add_stock(listing.symbol, listing.price);
  }
  exchange->engine.open_market();
  return exchange;
}

}  // namespace quorl::fuzz
