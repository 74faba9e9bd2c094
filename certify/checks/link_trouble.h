#pragma once

#include "certify/record/events.h"

namespace certify {

/// What the plan's link does to gap fill and images, by what it says: no client can be blamed for
/// what it could not have fetched.
class LinkTrouble {
 public:
  /// Whether it concerns gap fill or images at all.
  bool take(const LinkSaid& said);
  /// A stall, or a cut of one way, that is not over yet.
  bool lasts() const { return images_down_ || gap_fill_down_; }

 private:
  bool images_down_ = false;
  bool gap_fill_down_ = false;
};

}  // namespace certify
