#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/replay/drop_plan.h"
#include "tools/replay/recording.h"

namespace tools {

struct ReplayOptions {
  std::string file;
  FeedWish wish;

  std::string group;  // to send to: a dotted quad
  uint16_t port = 0;
  std::string interface = "127.0.0.1";
  std::optional<uint32_t> session;  // of the first round; nothing: the recording's

  std::optional<double> speed = 1.0;  // nothing: as fast as it goes
  bool step = false;
  uint64_t rounds = 1;  // 0: until stopped
  DropPlan drops;
  std::chrono::nanoseconds stay{0};  // behind the last round; max(): until stopped

  uint16_t snap_port = 25479;             // 0: none
  std::optional<uint16_t> gap_fill_port;  // 0: none; nothing: the number of the snap port
};

}  // namespace tools
