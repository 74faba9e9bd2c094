// Looks at a start of the exchange before it happens, and says what the exchange would not.
//
//   quorl-doctor [the options of quorl]

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "tools/command_line.h"
#include "tools/doctor/rules.h"
#include "tools/doctor/standard_error.h"
#include "tools/doctor/start.h"
#include "tools/standard_streams.h"

namespace doctor = tools::doctor;

namespace {

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// --help and --version are ours only if they stand alone: all other words are the exchange's.
bool asks_about_ourselves(const std::vector<std::string>& words) {
  return words.size() == 1 && (words[0] == "--help" || words[0] == "--version");
}

int tell(const doctor::Findings& findings) {
  for (const doctor::Finding& finding : findings) std::printf("%s\n", finding.line().c_str());
  if (findings.empty()) std::printf("the start looks good\n");
  return tools::status_behind_output("quorl-doctor",
                                     findings.empty() ? tools::GOOD : tools::SAID_NO);
}

}  // namespace

int main(int argc, char** argv) {
  const doctor::Findings about_standard_error = doctor::odd_standard_error(STDERR_FILENO);
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (asks_about_ourselves(words)) {
    tools::CommandLine line("quorl-doctor",
                            "Looks at a start of the exchange before it happens: takes the "
                            "options of quorl, and starts nothing.");
    return line.read(argc, argv).value_or(tools::GOOD);
  }
  try {
    std::string complaint;
    doctor::Start start = doctor::read_start(words, complaint);
    if (!complaint.empty()) {
      std::fprintf(stderr, "quorl-doctor: %s\n", complaint.c_str());
      return tools::USED_WRONGLY;
    }
    start.order_truth = variable("BENCH_ORDER_TRUTH");
    start.scenario = variable("QUORL_SCENARIO");
    doctor::Findings findings = doctor::look_at(start);
    append(findings, about_standard_error);
    return tell(findings);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quorl-doctor: %s\n", failure.what());
    return tools::SAID_NO;
  }
}
