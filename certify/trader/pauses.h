#pragma once

#include <algorithm>

#include "certify/trader/moment.h"

namespace certify::trader {

/// How long to wait before the next attempt to connect: twice as long each time, so that an
/// exchange in trouble is not stormed, and short again once a session has held for a while.
class Pauses {
 public:
  static constexpr Milliseconds SHORTEST{250};
  static constexpr Milliseconds LONGEST{5000};
  static constexpr Milliseconds HELD{2000};

  /// Behind an attempt that gave a session for `up`, 0 if none.
  Milliseconds next(Milliseconds up) {
    pause_ = up >= HELD ? SHORTEST : std::min(2 * pause_, LONGEST);
    return pause_;
  }

 private:
  Milliseconds pause_ = SHORTEST / 2;
};

}  // namespace certify::trader
