#pragma once

#include <cstdint>
#include <map>

#include "certify/checks/feed_map.h"
#include "certify/record/events.h"

namespace certify {

/// What the exchange says it dropped or held back. A hole that it does not explain is one of the
/// judge's own hearing. Memory grows with the stretches, not with the packets.
class FeedLosses {
 public:
  void add(const FeedFault& fault);
  /// Whether what was dropped and held back there is as much as is missing.
  bool explain(const FeedHole& hole) const;
  /// What lies below this number is of no interest any more.
  void forget_below(uint64_t number);

 private:
  struct Stretch {
    uint64_t end = 0;    // the number behind it, as announced
    uint64_t count = 0;  // of messages
    bool held = false;   // of what is held back the count is not said
  };
  std::map<uint64_t, Stretch> stretches_;  // by the first number, as announced
};

}  // namespace certify
