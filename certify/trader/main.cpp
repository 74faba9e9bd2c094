// quorl-trader: a small complete trading client, which certification passes.

#include <cstdio>
#include <exception>

#include "certify/trader/options.h"
#include "tools/command_line.h"
#include "tools/standard_streams.h"
#include "tools/stop_signal.h"

int main(int argc, char** argv) {
  tools::CommandLine line("quorl-trader",
                          "A small complete trading client: places orders, follows the feed, and "
                          "loses nothing, whatever the exchange does. Until SIGTERM.");
  certify::trader::TraderOptions options;
  certify::trader::add_options(line, options);
  if (const auto status = line.read(argc, argv)) return *status;
  try {
    certify::trader::Habits habits;
    certify::trader::complete(options);
    const int status = certify::trader::run_trader(options, habits);
    return tools::status_behind_output(line.get_name(), status);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-trader: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
