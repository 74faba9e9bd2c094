#pragma once

#include <cstdint>
#include <string>

namespace tools {

/// "1 packet", "2 packets", "0 packets".
inline std::string counted(uint64_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace tools
