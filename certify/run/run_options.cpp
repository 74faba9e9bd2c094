#include "certify/run/run_options.h"

#include <cstdlib>
#include <sstream>

namespace certify {
namespace {

// quorl's own.
constexpr uint32_t DEFAULT_SEED = 42;
constexpr const char* DEFAULT_SYMBOLS = "AAPL,MSFT,SPY";

const std::string* value_of(const std::vector<std::string>& market, const std::string& option) {
  const std::string* value = nullptr;
  for (size_t i = 0; i + 1 < market.size(); ++i) {
    if (market[i] == option) value = &market[i + 1];  // the last one wins
  }
  return value;
}

}  // namespace

uint32_t seed_of(const RunOptions& options) {
  if (options.seed) return *options.seed;
  const std::string* const given = value_of(options.plan.market, "--seed");
  return given == nullptr ? DEFAULT_SEED
                          : static_cast<uint32_t>(std::strtoul(given->c_str(), nullptr, 10));
}

std::vector<std::string> market_of(const RunOptions& options) {
  std::vector<std::string> market = options.plan.market;
  market.insert(market.end(), {"--seed", std::to_string(seed_of(options))});
  return market;
}

std::string symbols_of(const std::vector<std::string>& market) {
  const std::string* const given = value_of(market, "--symbols");
  if (given == nullptr) return DEFAULT_SYMBOLS;
  std::string symbols;
  std::istringstream items(*given);
  for (std::string item; std::getline(items, item, ',');) {
    symbols += (symbols.empty() ? "" : ",") + item.substr(0, item.find(':'));
  }
  return symbols;
}

}  // namespace certify
