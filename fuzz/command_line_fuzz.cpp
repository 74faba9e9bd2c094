#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "closed_exchange.h"

// A command line, one argument a line: the options and the list of symbols. A malformed number
// ends the program by its exception; whatever else is asked for, the market opens and walks.

namespace quorl {
namespace {

constexpr int TICKS = 5;

void start(std::string_view rest) {
  std::vector<std::string> arguments{"quorl"};
  while (!rest.empty()) arguments.emplace_back(fuzz::take_until(rest, '\n'));
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());

  RunConfig config;
  config.symbols = "A:10";
  config.session = default_session(1'700'000'000'000'000'000);
  if (parse_options(static_cast<int>(argv.size()), argv.data(), config)) return;
  const auto exchange = fuzz::open_exchange(config);
  for (int i = 0; i < TICKS; ++i) exchange->engine.walk_tick();
  exchange->publisher.flush_if_pending();
}

}  // namespace
}  // namespace quorl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    quorl::start(quorl::fuzz::text_of(data, size));
  } catch (const std::logic_error&) {  // as std::stoi and its sisters report
  }
  return 0;
}
