#pragma once

#include <optional>
#include <string>
#include <vector>

namespace certify {

/// What a step can do, all words in lower case:
///   the commands of the control port, with the numbers that it takes;
///   "mark NAME", which takes the client's belief, too;
///   "link ...", see certify/tap/taps.h;
///   "intrude N": another connection logs on at the exchange under the SenderCompID that the client
///   used last, with a number N above the client's next one, and goes again. The exchange then
///   expects more than the client will send.
/// Throws Mistake with what is wrong.
void check_action(const std::vector<std::string>& words);

/// The first words of actions.
const std::vector<std::string>& action_names();

/// NAME of "mark NAME", nothing of any other action.
std::optional<std::string> mark_of(const std::string& action);

}  // namespace certify
