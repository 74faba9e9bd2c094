#pragma once

#include <set>
#include <string>
#include <vector>

#include "certify/plan/words.h"

namespace certify {

/// Appends the options of one market line. `given` holds the options of the lines before. Throws
/// Mistake for what quorl does not know, does not bear or reads otherwise than it stands, and for
/// the options that the run itself sets.
void take_market(Words& words, std::set<std::string>& given, std::vector<std::string>& market);

/// QUORL_SCENARIO, one word. Throws Mistake likewise.
std::string take_scenario(Words& words);

}  // namespace certify
