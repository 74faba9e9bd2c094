// Puts a client in front of an exchange that misbehaves, and judges it.
//
//   quorl-certify PLAN... [OPTION...] -- COMMAND [WORD...]

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "certify/run/certification.h"
#include "quorl/client/errors.h"
#include "tools/command_line.h"
#include "tools/standard_streams.h"

namespace {

void add_ports(CLI::App& line, certify::CertifyOptions& options) {
  tools::add_port(line, "--fix-port", options.ports.fix, "Port of FIX, for --attach");
  tools::add_port(line, "--snap-port", options.ports.images, "Port of images, for --attach");
  tools::add_port(line, "--gapfill-port", options.ports.gap_fill, "Port of gap fill, for --attach");
  line.add_option("--mcast", options.group, "Multicast group of the feed, for --attach");
  tools::add_port(line, "--port", options.feed_port, "UDP port of the feed, for --attach");
}

void add_what_to_run(CLI::App& line, certify::CertifyOptions& options) {
  line.add_option("PLAN", options.plans, "Files with plans, or the names of those that come along");
  line.add_flag("--attach", options.attach, "Wait for a client that somebody starts by hand");
  line.add_flag("--no-plan", options.no_plan, "Only an exchange for the command: no verdict");
  line.add_option("--market", options.market,
                  "With --no-plan: options of the exchange, as a plan has")
      ->allow_extra_args(false);
  line.add_option("--scenario", options.scenario, "With --no-plan: what QUORL_SCENARIO says");
  line.add_option("--seed", options.seed, "Seed of the market, instead of the plan's");
  line.add_option("--limit", options.limit,
                  "Longest time of a run, instead of the plan's: 90s, 5min");
  line.add_option("--skip", options.skip, "Leave out a check, or a group of them")
      ->allow_extra_args(false);
  line.add_option("--jobs,-j", options.jobs, "Runs beside each other")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  line.add_option("--exchange", options.exchange, "The program quorl, if not the one beside this");
}

void add_what_to_write(CLI::App& line, certify::CertifyOptions& options) {
  line.add_option("--out", options.out,
                  "Folder for the folders of the runs, instead of certify-runs");
  line.add_option("--junit", options.junit, "File for the verdicts as JUnit XML");
  line.add_option("--positions", options.positions, "What the client believes: its positions");
  line.add_option("--events", options.events, "What the client believes: its order events");
  line.add_option("--book", options.book, "What the client believes: the book");
}

void add_what_to_tell(CLI::App& line, certify::CertifyOptions& options) {
  line.add_flag("--list", options.list, "List the checks");
  line.add_option("--explain", options.explain, "Print the page of a check");
  line.add_flag("--check-plan", options.check_plan, "Read the plans, and start nothing");
}

/// All behind the first "--" is the client's, whatever it looks like.
std::optional<int> read(certify::CertifyOptions& options, int argc, char** argv) {
  char** const end = argv + argc;
  char** const dashes = std::find(argv + 1, end, std::string_view("--"));
  if (dashes != end) options.command.assign(dashes + 1, end);
  options.has_command = dashes != end;
  tools::CommandLine line(
      "quorl-certify",
      "Does a trading client survive a market that misbehaves? Behind -- stands "
      "the command that starts it.");
  add_what_to_run(line, options);
  add_what_to_write(line, options);
  add_what_to_tell(line, options);
  add_ports(line, options);
  return line.read(static_cast<int>(dashes - argv), argv);
}

}  // namespace

int main(int argc, char** argv) {
  certify::CertifyOptions options;
  if (const auto status = read(options, argc, argv)) return *status;
  // A reader that has gone and a limit on the size of files are told of as errors of writing.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
  try {
    return tools::status_behind_output("quorl-certify", certify::certify(options));
  } catch (const std::exception& failure) {
    std::cerr << "quorl-certify: " << failure.what() << '\n';
    return tools::NOBODY_ANSWERED;
  }
}
