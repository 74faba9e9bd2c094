#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace certify {

/// What is wrong with a FIX frame as a frame, a sentence each, the first twenty; see
/// WireMessage::flaws(). Takes time in proportion to its size, whatever it holds.
std::vector<std::string> flaws_of_frame(std::string_view frame);

}  // namespace certify
