#pragma once

#include <map>
#include <string>

namespace certify {

/// Our own environment for a process that we start, without what would make an exchange another
/// than the plan says.
std::map<std::string, std::string> own_environment();

}  // namespace certify
