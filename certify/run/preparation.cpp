#include "certify/run/preparation.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <system_error>

#include "certify/checks/check.h"
#include "certify/plan/market.h"
#include "certify/plan/words.h"
#include "certify/run/client_process.h"
#include "certify/run/run_folder.h"

namespace certify {
namespace {

namespace fs = std::filesystem;

/// Collects what is wrong, so that all of it is said at once.
class Preparing {
 public:
  Preparing(const CertifyOptions& options, Preparation& made) : options_(options), made_(made) {}

  void prepare();

 private:
  void complain(const std::string& what) { made_.mistakes.push_back("quorl-certify: " + what); }
  void look_at_kind_of_run();
  void look_at_command();
  void look_at_ports();
  void look_at_junit();
  void prepare_no_plan();
  void prepare_plans();
  void add_run(const std::string& plan);
  void apply_options(Plan& plan);
  std::string exchange();
  std::set<std::string> skipped();

  const CertifyOptions& options_;
  Preparation& made_;
  std::set<std::string> checks_;
};

fs::path own_folder() {
  std::error_code failed;
  return fs::read_symlink("/proc/self/exe", failed).parent_path();
}

bool is_file(const fs::path& path) {
  std::error_code failed;
  return fs::is_regular_file(path, failed);
}

/// A plan that comes along can be named without its path.
std::string path_of_plan(const std::string& word) {
  if (word.find('/') != std::string::npos || fs::exists(word)) return word;
  const fs::path installed = own_folder() / "../share/quorl/plans" / (word + ".plan");
  return is_file(installed) ? installed.lexically_normal().string() : word;
}

void Preparing::prepare() {
  for (const CheckKind& kind : all_checks()) checks_.insert(kind.name);
  if (options_.no_plan) {
    prepare_no_plan();
  } else {
    prepare_plans();
  }
  look_at_kind_of_run();
  look_at_junit();
}

void Preparing::look_at_kind_of_run() {
  if (options_.no_plan && !options_.plans.empty()) complain("--no-plan goes without a plan");
  if (!options_.no_plan && options_.plans.empty()) {
    complain("name a plan, or say --no-plan; quorl-certify --help tells more");
  }
  if (!options_.no_plan && !(options_.market.empty() && options_.scenario.empty())) {
    complain("--market and --scenario are for --no-plan: a plan says them itself");
  }
  if (options_.check_plan) return;
  if (options_.attach && options_.no_plan) complain("--attach needs a plan");
  look_at_command();
  look_at_ports();
}

void Preparing::look_at_command() {
  if (options_.attach) {
    if (options_.has_command) complain("--attach waits for a client and starts none");
    if (options_.jobs > 1) complain("--attach waits for one client at a time: leave out --jobs");
    return;
  }
  if (options_.command.empty()) {
    complain("name the command that starts the client behind --, or say --attach");
    return;
  }
  const std::string& program = options_.command.front();
  const bool known = program.find('{') == std::string::npos;
  if (known && !found_program(program)) {
    complain("cannot start the client: there is no program " + program);
  }
}

void Preparing::look_at_ports() {
  const ServicePorts& ports = options_.ports;
  const bool given = ports.fix != 0 || ports.images != 0 || ports.gap_fill != 0 ||
                     options_.feed_port != 0 || !options_.group.empty();
  if (given && !options_.attach) {
    complain("ports and group are for --attach: a client that is started is told them");
  }
}

void Preparing::look_at_junit() {
  if (options_.junit.empty() || options_.check_plan || !made_.mistakes.empty()) return;
  const std::ofstream file(options_.junit, std::ios::app);
  if (!file) complain("cannot write " + options_.junit);
}

std::string Preparing::exchange() {
  if (!options_.exchange.empty()) {
    if (!found_program(options_.exchange)) complain("there is no program " + options_.exchange);
    return found_program(options_.exchange).value_or("");
  }
  const std::string beside = (own_folder() / "quorl").string();
  if (found_program(beside)) return beside;
  if (const auto by_path = found_program("quorl")) return *by_path;
  complain("the program quorl is neither beside this one nor in PATH: --exchange names it");
  return "";
}

void Preparing::prepare_no_plan() {
  made_.no_plan = {.command = options_.command,
                   .market = {},
                   .scenario = options_.scenario,
                   .exchange = exchange(),
                   .out = options_.out};
  std::set<std::string> given;
  try {
    for (const std::string& line : options_.market) {
      Words words(split_words(line));
      take_market(words, given, made_.no_plan.market);
    }
    if (!options_.scenario.empty()) {
      Words words({options_.scenario});
      take_scenario(words);
    }
  } catch (const std::runtime_error& mistake) {
    complain(mistake.what());
  }
  if (!options_.seed) return;
  made_.no_plan.market.insert(made_.no_plan.market.end(),
                              {"--seed", std::to_string(*options_.seed)});
}

void Preparing::prepare_plans() {
  const std::set<std::string> skip = skipped();
  if (!options_.limit.empty() && !time_from(options_.limit)) {
    complain("--limit " + options_.limit + " is no time such as 90s or 5min");
  }
  for (const std::string& word : options_.plans) add_run(word);
  const std::string program = options_.check_plan ? "" : exchange();
  for (RunOptions& run : made_.runs) {
    run.exchange = program;
    run.plan.skip.insert(skip.begin(), skip.end());
  }
}

void Preparing::add_run(const std::string& word) {
  try {
    Plan plan = load_plan(path_of_plan(word), checks_);
    apply_options(plan);
    const std::string folder = folder_time(now_ns()) + "-" + plan.name;
    made_.runs.push_back({.plan = std::move(plan),
                          .command = options_.command,
                          .exchange = {},
                          .parent = options_.out.empty() ? "certify-runs" : options_.out,
                          .folder = options_.out.empty() ? folder : "",
                          .ports = options_.ports,
                          .group = options_.group,
                          .feed_port = options_.feed_port,
                          .seed = options_.seed});
    if (made_.runs.back().folder.empty()) made_.runs.back().folder = made_.runs.back().plan.name;
  } catch (const PlanError& mistakes) {
    std::istringstream lines(mistakes.what());
    for (std::string line; std::getline(lines, line);) made_.mistakes.push_back(line);
  }
}

void Preparing::apply_options(Plan& plan) {
  if (const auto limit = time_from(options_.limit); limit && !options_.limit.empty()) {
    plan.limit = *limit;
  }
  const auto add = [&plan](Belief::Kind kind, const std::string& path) {
    if (path.empty()) return;
    // A path on the command line is one of the shell's folder; a plan's is one of the run's.
    const std::string place =
        path.starts_with("{run}") ? path : std::filesystem::absolute(path).string();
    plan.belief.insert(plan.belief.begin(), {.kind = kind, .path = place, .mark = ""});
  };
  add(Belief::Kind::POSITIONS, options_.positions);
  add(Belief::Kind::EVENTS, options_.events);
  add(Belief::Kind::BOOK, options_.book);
}

/// A check, or all of a group: "feed".
std::set<std::string> Preparing::skipped() {
  std::set<std::string> skip;
  for (const std::string& word : options_.skip) {
    const size_t before = skip.size();
    for (const std::string& check : checks_) {
      if (check == word || check.starts_with(word + ".")) skip.insert(check);
    }
    if (skip.size() == before && !skip.contains(word)) {
      complain("--skip " + word + ": there is no such check; --list names all");
    }
  }
  return skip;
}

}  // namespace

Preparation prepare(const CertifyOptions& options) {
  Preparation made;
  Preparing(options, made).prepare();
  return made;
}

}  // namespace certify
