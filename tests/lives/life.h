#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lives/act.h"

namespace quorl {
struct Engine;
}

namespace lives {

/// How a life went.
struct Course {
  std::optional<std::string> broken;  // what should have held and did not
  size_t acts = 0;                    // done, the one that broke it included
  uint64_t turns = 0;
  uint64_t orders = 0;  // accepted
  uint64_t fills = 0;
  uint64_t trades = 0;
  uint64_t images = 0;
};

/// The whole exchange lives through a script, on clocks, sockets and files in memory; after every
/// turn all that always holds is looked at. The script decides everything: the same script is the
/// same life. Not for two threads.
Course live(const Script& script);

/// For those who test the witnesses: what the exchange sends or holds may be changed on its way to
/// them.
/// Empty: as it is.
struct Tampering {
  std::function<void(std::string& datagram)> feed = {};
  std::function<void(std::string& message)> fix = {};
  std::function<void(std::string& order_events)> truth = {};  // the whole file, before each look
  std::function<void(quorl::Engine&)> inside = {};            // before each look
};
Course live(const Script& script, const Tampering& tampering);

}  // namespace lives
