#include <stdexcept>

#include "bench/scenario.h"
#include "closed_exchange.h"

// The text of QUORL_SCENARIO. A malformed number ends the program by its exception; nothing else
// may happen.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const quorl::fuzz::ScenarioVariable variable(quorl::fuzz::text_of(data, size));
  try {
    const quorl::Scenario scenario;
  } catch (const std::logic_error&) {  // as std::stoi and std::stoul report both
  }
  return 0;
}
