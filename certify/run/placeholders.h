#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "certify/tap/taps.h"

namespace certify {

/// What a client must know of the exchange in front of it.
struct Surroundings {
  ServicePorts ports;         // of the taps, or of the exchange itself
  std::string group;          // of the feed
  uint16_t feed_port = 0;     // UDP
  uint16_t control_port = 0;  // UDP
  uint32_t session = 0;       // of the feed
  std::string symbols;        // "AAPL,MSFT"
  std::string folder;         // of the run, absolute
  std::string plan;           // its name; empty: none
};

/// A placeholder of the client's command, and the variable of its environment with the same value.
struct Placeholder {
  std::string_view name;      // "fix_port", written "{fix_port}"
  std::string_view variable;  // "QUORL_FIX_PORT"
  std::string (*value)(const Surroundings& surroundings);
};
std::span<const Placeholder> placeholders();

/// `word` with each placeholder filled in. Whatever else stands in braces stays as it is.
std::string filled_in(std::string_view word, const Surroundings& surroundings);

/// The variables for the client's environment.
std::map<std::string, std::string> variables_of(const Surroundings& surroundings);

}  // namespace certify
