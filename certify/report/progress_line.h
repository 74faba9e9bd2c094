#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "certify/record/time.h"

namespace certify {

/// How far a run is.
struct Progress {
  std::string plan = {};  // its name
  TimeNs elapsed = 0;     // since the client was started
  uint64_t orders = 0;    // that the exchange has read
  uint64_t fills = 0;
  std::string armed = {};  // the latest step: "drop 3"; empty: none yet
  uint64_t replayed = 0;   // reports sent again
  uint64_t filled = 0;     // messages of the feed that gap fill brought
  uint64_t images = 0;     // taken
};

/// The one line that moves, without a line end: "lost-race  12.3 s  orders 40  fills 31  armed drop
/// 3  recovered 2 reports, 14 messages". At most `width` columns: what does not
/// fit is left out.
std::string progress_line(const Progress& progress, size_t width);

}  // namespace certify
