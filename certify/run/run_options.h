#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "certify/plan/plan.h"
#include "certify/tap/taps.h"

namespace certify {

/// What one run is made of.
struct RunOptions {
  Plan plan;
  std::vector<std::string> command;  // the client's, its program first; empty: started by hand
  std::string exchange;              // path of the program quorl
  std::string parent;                // where the run's folder is made
  std::string folder;                // what it is called there
  ServicePorts ports;                // of the taps; 0: any
  std::string group;                 // of the feed; empty: any
  uint16_t feed_port = 0;            // 0: any
  std::optional<uint32_t> seed;      // instead of the plan's
  unsigned number_of_try = 1;
};

/// The seed that the market will have.
uint32_t seed_of(const RunOptions& options);
/// The options of quorl, with the seed among them.
std::vector<std::string> market_of(const RunOptions& options);
/// The names in an option --symbols of `market`, or quorl's own: "AAPL,MSFT".
std::string symbols_of(const std::vector<std::string>& market);

}  // namespace certify
