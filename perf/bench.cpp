// Starts the exchange and what it is compared with, in turn, measures, and prints the tables:
// scripts/bench builds and runs it. docs/performance.md says how to read them.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "perf/against_floor.h"
#include "perf/call_counts.h"
#include "perf/figures.h"
#include "perf/growth.h"
#include "perf/settings.h"
#include "perf/side_by_side.h"

namespace perf {
namespace {

struct Choices {
  bool quick = false;
  unsigned rounds = 0;
  std::string json;
  std::string binary = QUORL_BINARY;
  std::string before;
  std::string only;
  bool calls = false;
  bool side_by_side = false;
};

Settings settings_of(const Choices& choices) {
  Settings settings;
  settings.builds.push_back({"exchange", choices.binary});
  if (!choices.before.empty()) settings.builds.push_back({"before", choices.before});
  settings.floor_binary = FLOOR_BINARY;
  settings.cpus = allowed_cpus();
  const std::vector<int>& cpus = settings.cpus;
  settings.one_cpu = {cpus.back(), cpus.back()};
  settings.two_cpus = {cpus.back(), cpus.front()};
  settings.quick = choices.quick;
  settings.only = choices.only;
  settings.rounds = choices.rounds != 0 ? choices.rounds : choices.quick ? 1 : 5;
  return settings;
}

/// Prints the tables; returns the exit status.
int publish(const Settings& settings, const Report& report, const Choices& choices,
            const std::vector<std::string>& sections) {
  std::printf("%s\nmedian (least .. most) of %u rounds, fewer where one is slow\n",
              machine_description().c_str(), settings.rounds);
  for (const std::string& section : sections) report.print(section);
  report.print_failures();
  if (!choices.json.empty()) report.write_json(choices.json);
  return report.complete() ? 0 : 1;
}

int run(const Choices& choices) {
  const Settings settings = settings_of(choices);
  // What is written is not to be the disk's figure.
  if (std::filesystem::is_directory("/dev/shm")) ::setenv("TMPDIR", "/dev/shm", 0);
  yield_to_the_server();
  std::vector<std::string> names;
  for (const Build& build : settings.builds) names.push_back(build.name);
  Report report(names);
  if (choices.calls) {
    compare_call_counts(settings, report);
    report.print_failures();
    return report.failed() ? 1 : 0;
  }
  if (choices.side_by_side) {
    measure_side_by_side(settings, report);
    return publish(settings, report, choices, {"side by side"});
  }
  for (const auto measure :
       {measure_against_floor, measure_depth, measure_walk, measure_connections,
        measure_scheduled_cancels, measure_truth, measure_resend, measure_memory, measure_start}) {
    measure(settings, report);
  }

  return publish(settings, report, choices, {"against the floor", "growth"});
}

}  // namespace
}  // namespace perf

int main(int argc, char** argv) {
  perf::Choices choices;
  CLI::App app("Measures the exchange from outside");
  app.add_flag("--quick", choices.quick, "fewer rounds, smaller sizes: does it work?");
  app.add_option("--rounds", choices.rounds, "rounds of each figure");
  app.add_option("--json", choices.json, "writes the figures to this file, too");
  app.add_option("--exchange", choices.binary, "the program to measure");
  app.add_option("--before", choices.before, "another one, measured in the same rounds");
  app.add_option("--only", choices.only, "figures whose name has this in it");
  app.add_flag("--calls", choices.calls, "counts system calls instead, with strace");
  app.add_flag("--side-by-side", choices.side_by_side,
               "measures several exchanges on this machine instead");
  CLI11_PARSE(app, argc, argv);
  try {
    return perf::run(choices);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 1;
  }
}
