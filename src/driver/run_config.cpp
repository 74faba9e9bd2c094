#include "driver/run_config.h"

#include <string_view>

#include "base/log.h"
#include "feed/fault_plan.h"

namespace quorl {
namespace {

constexpr double DEFAULT_PRICE = 100.0;

struct Option {
  std::string_view flag;
  void (*set)(RunConfig& config, const std::string& value);  // null for a flag without a value
};

template <std::string RunConfig::*field>
void set_text(RunConfig& config, const std::string& value) {
  config.*field = value;
}

/// Cut to the low 16 bits without a word: 70000 listens on 4464.
template <uint16_t RunConfig::*field>
void set_port(RunConfig& config, const std::string& value) {
  config.*field = static_cast<uint16_t>(std::stoi(value));
}

template <uint32_t RunConfig::*field>
void set_count(RunConfig& config, const std::string& value) {
  config.*field = static_cast<uint32_t>(std::stoul(value));
}

template <double RunConfig::*field>
void set_float(RunConfig& config, const std::string& value) {
  config.*field = std::stod(value);
}

constexpr std::string_view QUIET = "--quiet";  // the one flag that takes no value

constexpr Option OPTIONS[] = {
    {"--mcast", set_text<&RunConfig::mcast>},
    {"--port", set_port<&RunConfig::port>},
    {"--iface", set_text<&RunConfig::iface>},
    {"--snap-port", set_port<&RunConfig::snap_port>},
    {"--gapfill-port", set_port<&RunConfig::gapfill_port>},
    {"--fix-port", set_port<&RunConfig::fix_port>},
    {"--session", set_count<&RunConfig::session>},
    {"--symbols", set_text<&RunConfig::symbols>},
    {"--interval-ms",
     [](RunConfig& config, const std::string& value) { config.interval_ms = std::stoi(value); }},
    {"--step-bps", set_float<&RunConfig::step_bps>},
    {"--touch-hit", set_float<&RunConfig::touch_hit>},
    {"--book-out", set_text<&RunConfig::book_out>},
    {"--bbo-out", set_text<&RunConfig::bbo_out>},
    {"--seed", set_count<&RunConfig::seed>},
    {"--drop-every", set_count<&RunConfig::drop_every>},
    {"--drop-burst", set_text<&RunConfig::drop_burst>},
    {"--dup-every", set_count<&RunConfig::dup_every>},
    {"--reorder-every", set_count<&RunConfig::reorder_every>},
    {"--truth-out", set_text<&RunConfig::truth_out>},
    {"--control-port", set_port<&RunConfig::control_port>},
};

const Option* option_of(std::string_view flag) {
  for (const Option& option : OPTIONS) {
    if (option.flag == flag) return &option;
  }
  return nullptr;
}

}  // namespace

uint32_t default_session(uint64_t now_ns) {
  constexpr uint64_t NS_PER_S = 1'000'000'000;
  return static_cast<uint32_t>(now_ns / NS_PER_S & 0x7FFFFFFF);
}

std::optional<int> parse_options(int argc, const char* const* argv, RunConfig& config) {
  constexpr int USAGE_STATUS = 2;
  for (int i = 1; i < argc; ++i) {
    const char* const flag = argv[i];
    if (flag == QUIET) {
      config.quiet = true;
      continue;
    }
    const Option* const option = option_of(flag);
    if (option == nullptr) {
      print_log("unknown flag %s\n", flag);
      return USAGE_STATUS;
    }
    if (i + 1 >= argc) {
      print_log("%s needs a value\n", flag);
      return USAGE_STATUS;
    }
    option->set(config, argv[++i]);
  }
  if (config.gapfill_port == 0) config.gapfill_port = config.snap_port;
  return std::nullopt;
}

FaultPlan fault_plan_of(const RunConfig& config) {
  FaultPlan plan;
  plan.drop_every = config.drop_every;
  plan.dup_every = config.dup_every;
  plan.reorder_every = config.reorder_every;
  if (config.drop_burst.empty()) return plan;
  const size_t colon = config.drop_burst.find(':');
  plan.burst_start = std::stoull(config.drop_burst.substr(0, colon));
  plan.burst_len = colon == std::string::npos
                       ? 1
                       : static_cast<uint32_t>(std::stoul(config.drop_burst.substr(colon + 1)));
  return plan;
}

std::vector<Listing> parse_symbols(const std::string& symbols) {
  std::vector<Listing> listings;
  size_t pos = 0;
  while (pos < symbols.size()) {  // a trailing comma makes no further item
    const size_t comma = symbols.find(',', pos);
    const size_t end = comma == std::string::npos ? symbols.size() : comma;
    const std::string item = symbols.substr(pos, end - pos);
    const size_t colon = item.find(':');
    if (colon == std::string::npos) {
      listings.push_back({item, DEFAULT_PRICE});
    } else {
      listings.push_back({item.substr(0, colon), std::stod(item.substr(colon + 1))});
    }
    pos = end + 1;
  }
  return listings;
}

}  // namespace quorl
