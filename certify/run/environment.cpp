#include "certify/run/environment.h"

#include <unistd.h>

extern char** environ;

namespace certify {

std::map<std::string, std::string> own_environment() {
  std::map<std::string, std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const size_t equals = text.find('=');
    if (equals != std::string::npos) environment[text.substr(0, equals)] = text.substr(equals + 1);
  }
  environment.erase("QUORL_SCENARIO");
  environment.erase("BENCH_ORDER_TRUTH");
  return environment;
}

}  // namespace certify
