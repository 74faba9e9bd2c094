#include "certify/plan/market.h"

#include <algorithm>
#include <iterator>

#include "tools/doctor/numbers.h"
#include "tools/doctor/scenario.h"
#include "tools/doctor/start.h"
#include "tools/doctor/symbols.h"

namespace certify {
namespace {

namespace doctor = tools::doctor;

const std::vector<std::string> OF_PLANS = {
    "--symbols",    "--seed",       "--interval-ms", "--step-bps",      "--touch-hit",
    "--drop-every", "--drop-burst", "--dup-every",   "--reorder-every",
};

const std::vector<std::string> OF_THE_RUN = {
    "--mcast",        "--port",    "--iface",     "--snap-port", "--gapfill-port", "--fix-port",
    "--control-port", "--session", "--truth-out", "--book-out",  "--bbo-out",      "--quiet",
};

bool contains(const std::vector<std::string>& all, const std::string& word) {
  return std::find(all.begin(), all.end(), word) != all.end();
}

void check_option(const std::string& option) {
  if (contains(OF_PLANS, option)) return;
  if (contains(OF_THE_RUN, option)) {
    throw Mistake("is for the run to set, so that runs keep apart and are recorded", option);
  }
  throw Mistake(with_nearest("is no option of the exchange", option, OF_PLANS), option);
}

/// What the exchange would pass over in silence is a mistake in a plan.
void throw_first(const doctor::Findings& findings) {
  if (!findings.empty()) throw Mistake(findings.front().what, findings.front().where);
}

}  // namespace

void take_market(Words& words, std::set<std::string>& given, std::vector<std::string>& market) {
  if (words.empty()) throw Mistake("an option is missing behind", "market");
  std::vector<std::string> line;
  while (!words.empty()) {
    const std::string option = words.take("");
    check_option(option);
    if (!given.insert(option).second) throw Mistake("stands twice", option);
    const std::string value = words.take("a value is missing behind");
    if (value.starts_with("--")) throw Mistake("a value is missing behind", option);
    line.insert(line.end(), {option, value});
  }
  std::string complaint;
  const doctor::Start start = doctor::read_start(line, complaint);
  if (!complaint.empty()) throw std::runtime_error(complaint);
  using Rule = doctor::Findings (*)(const doctor::Start&);
  for (const Rule rule :
       {Rule{doctor::misread_numbers}, Rule{doctor::odd_floats}, Rule{doctor::odd_burst},
        Rule{doctor::empty_market}, Rule{doctor::odd_symbols}, Rule{doctor::same_symbols},
        Rule{doctor::odd_prices}}) {
    throw_first(rule(start));
  }
  std::move(line.begin(), line.end(), std::back_inserter(market));
}

std::string take_scenario(Words& words) {
  std::string scenario = words.take("key=value items are missing behind");
  words.expect_end();
  const doctor::Start start{.given = {}, .order_truth = {}, .scenario = scenario};
  throw_first(doctor::scenario_words(start));
  throw_first(doctor::scenario_numbers(start));
  throw_first(doctor::scenario_repetitions(start));
  throw_first(doctor::scenario_without_rule(start));
  return scenario;
}

}  // namespace certify
