#include "certify/run/certification.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "certify/report/check_pages.h"
#include "certify/report/junit.h"
#include "certify/report/summary_table.h"
#include "certify/run/no_plan.h"
#include "certify/run/preparation.h"
#include "certify/run/runs.h"
#include "certify/run/terminal.h"
#include "certify/run/verdict.h"
#include "tools/exit_status.h"
#include "tools/stop_signal.h"

namespace certify {
namespace {

int say_mistakes(const std::vector<std::string>& mistakes) {
  for (const std::string& mistake : mistakes) std::cerr << mistake << '\n';
  return tools::USED_WRONGLY;
}

int explain(const std::string& check) {
  const std::optional<std::string> page = page_of_check(check);
  if (!page)
    return say_mistakes({"quorl-certify: there is no check " + check + "; --list names all"});
  std::cout << *page;
  return tools::GOOD;
}

int tell_of_plans(const Preparation& preparation) {
  for (const RunOptions& run : preparation.runs) {
    std::cout << run.plan.path << ": " << run.plan.title << '\n';
  }
  return tools::GOOD;
}

void show_table(const std::vector<RunResult>& results) {
  const char* const no_colour = std::getenv("NO_COLOR");
  const bool colours = ::isatty(STDOUT_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0');
  write_summary_table(results, {.width = columns_of(STDOUT_FILENO), .colours = colours}, std::cout);
}

bool write_junit_file(const std::string& path, const std::vector<RunResult>& results) {
  std::ofstream file(path);
  write_junit(results, file);
  file.close();
  if (file.fail()) std::cerr << "quorl-certify: cannot write " << path << '\n';
  return !file.fail();
}

int certify_client(const CertifyOptions& options, const Preparation& preparation) {
  const tools::StopSignal stop;
  std::vector<RunResult> results;
  {
    Terminal terminal(preparation.runs.size(), options.attach);
    results = make_runs(preparation.runs, options.jobs, stop, terminal);
  }
  show_table(results);
  int status = exit_status_of(results);
  if (!options.junit.empty() && !write_junit_file(options.junit, results) &&
      status == tools::GOOD) {
    status = tools::SAID_NO;
  }
  return status;
}

}  // namespace

int certify(const CertifyOptions& options) {
  if (options.list) {
    write_check_list(columns_of(STDOUT_FILENO), std::cout);
    return tools::GOOD;
  }
  if (!options.explain.empty()) return explain(options.explain);
  const Preparation preparation = prepare(options);
  if (!preparation.mistakes.empty()) return say_mistakes(preparation.mistakes);
  if (options.check_plan) return tell_of_plans(preparation);
  if (!options.no_plan) return certify_client(options, preparation);
  const tools::StopSignal stop;
  return run_without_plan(preparation.no_plan, stop);
}

}  // namespace certify
