// spoilt-trader CHECK [OPTION...]: quorl-trader with one bad habit, which that check finds.
#include <cstdio>
#include <exception>

#include "certify/trader/options.h"
#include "tests/certify/e2e/spoilt_habits.h"
#include "tools/command_line.h"

namespace certify::trader {

std::unique_ptr<Habits> spoilt_habits(const std::string& check) {
  for (const auto& group :
       {spoilt_sessions(), spoilt_orders(), spoilt_recovery(), spoilt_feeds()}) {
    for (const Spoilt& spoilt : group) {
      if (check == spoilt.check) return spoilt.make();
    }
  }
  return nullptr;
}

}  // namespace certify::trader

int main(int argc, char** argv) {
  tools::CommandLine line("spoilt-trader", "quorl-trader with one bad habit, named by its check.");
  certify::trader::TraderOptions options;
  std::string check;
  line.add_option("CHECK", check, "What is to be failed")->required();
  certify::trader::add_options(line, options);
  if (const auto status = line.read(argc, argv)) return *status;
  const auto habits = certify::trader::spoilt_habits(check);
  if (habits == nullptr) {
    std::fprintf(stderr, "spoilt-trader: no habit fails %s\n", check.c_str());
    return tools::USED_WRONGLY;
  }
  try {
    certify::trader::complete(options);
    return certify::trader::run_trader(options, *habits);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "spoilt-trader: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
