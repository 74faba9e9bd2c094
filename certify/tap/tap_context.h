#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "certify/record/time.h"
#include "certify/tap/delay_figures.h"
#include "certify/tap/poller.h"
#include "certify/tap/tap_listener.h"

namespace certify {

/// What all taps of a run share.
struct TapContext {
  TapContext(TapListener& hears, uint64_t seed) : listener(hears), random(seed) {}

  Poller poller;
  TapListener& listener;
  std::mt19937_64 random;  // of the jitter
  DelayFigures delay;
  TimeNs now = 0;                                       // of the call that is being served
  std::vector<char> buffer = std::vector<char>(65536);  // of one read; holds any datagram
};

/// "FIX", "images", "gap fill".
std::string_view name_of(Service service);
/// "FIX 2".
std::string name_of(Line line);

}  // namespace certify
