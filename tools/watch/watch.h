#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/watch/view.h"

namespace tools {

struct WatchOptions {
  std::string group = {};
  uint16_t port = 0;
  std::string interface_address = {};
  ViewOptions view = {};
  std::chrono::milliseconds duration{0};  // 0: without an end
};

/// Prints the feed on standard output until it is told to end: by the options, by Ctrl-C or
/// SIGTERM, or because nobody reads. Ends with a summary on standard error. Returns the exit
/// status.
int watch(const WatchOptions& options);

}  // namespace tools
