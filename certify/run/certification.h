#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "certify/tap/taps.h"

namespace certify {

/// What quorl-certify was asked for.
struct CertifyOptions {
  std::vector<std::string> plans;    // paths, or names of plans that come along
  std::vector<std::string> command;  // the client's
  bool has_command = false;          // "--" was there
  bool attach = false;
  bool no_plan = false;
  std::vector<std::string> market;  // with no_plan: "--symbols AAPL:190.00 --seed 7"
  std::string scenario;             // with no_plan: QUORL_SCENARIO
  std::optional<uint32_t> seed;
  std::string limit;  // "90s"; empty: the plan's
  std::vector<std::string> skip;
  unsigned jobs = 1;
  std::string exchange;  // empty: the one beside this program, or by PATH
  std::string out;       // empty: certify-runs, with the time in each run's name
  std::string junit;
  std::string positions;
  std::string events;
  std::string book;
  bool list = false;
  std::string explain;
  bool check_plan = false;
  ServicePorts ports;
  std::string group;
  uint16_t feed_port = 0;
};

/// Does what was asked and returns the exit status. Whatever is wrong with the options or the plans
/// is said on standard error before anything is started, a line each. Throws what the system
/// refuses: quorl::client::SystemError.
int certify(const CertifyOptions& options);

}  // namespace certify
