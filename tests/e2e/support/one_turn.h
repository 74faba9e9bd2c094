#pragma once

#include <functional>
#include <vector>

#include "tests/e2e/support/exchange.h"

namespace e2e {

/// Stops the process between two turns, sends each of these to its FIX or control port, waits until
/// the kernel holds it there, and lets the process go on: its next turn finds them all.
void in_one_turn(Exchange& exchange, const std::vector<std::function<void()>>& sends);

}  // namespace e2e
