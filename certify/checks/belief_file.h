#pragma once

#include <optional>
#include <string>

#include "certify/record/events.h"

namespace certify {

/// The content of a file that the client had written at a mark or at the end; nothing if there is
/// none. What stands behind the first 64 MB is left out.
std::optional<std::string> read_belief(const BeliefTaken& taken, const char* name);

/// "positions.csv", or "positions.csv at mark noon".
std::string name_of(const BeliefTaken& taken, const char* name);

}  // namespace certify
