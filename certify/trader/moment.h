#pragma once

#include <chrono>

namespace certify::trader {

/// Of the steady clock. What the trader decides is told the time and never asks for it.
using Moment = std::chrono::steady_clock::time_point;
using Milliseconds = std::chrono::milliseconds;

}  // namespace certify::trader
