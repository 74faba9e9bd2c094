#include <cstdlib>
#include <stdexcept>
#include <string>

#include "bench/scenario.h"
#include "closed_exchange.h"

// The text of QUORL_SCENARIO. A malformed number ends the program by its exception; nothing else
// may happen.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string variable = "QUORL_SCENARIO=" + std::string(quorl::fuzz::text_of(data, size));
  ::putenv(variable.data());  // setenv would keep a copy of every text for ever
  try {
    const quorl::Scenario scenario;
  } catch (const std::logic_error&) {  // as std::stoi and std::stoul report both
  }
  ::unsetenv("QUORL_SCENARIO");
  return 0;
}
