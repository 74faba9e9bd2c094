#pragma once

#include <cstdint>
#include <set>

namespace tools {

/// Which packets of a round are lost on purpose. They are numbered from 1 in the order of the
/// capture; heartbeats have no number and are never lost, as with the exchange.
struct DropPlan {
  std::set<uint64_t> packets;
  uint64_t every = 0;  // and each packet whose number is a multiple of this; 0: none

  bool drops(uint64_t number) const;
};

}  // namespace tools
