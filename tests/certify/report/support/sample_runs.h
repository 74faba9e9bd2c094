#pragma once

#include <string>
#include <vector>

#include "certify/report/run_result.h"

namespace certify {

// Runs that never were, with everything that a report can show.

constexpr TimeNs SAMPLE_BEGAN = 1'800'000'000 * SECOND;  // 08:00:00 UTC

inline RunResult sample_run(RunResult::Status status, const std::string& plan) {
  RunResult run;
  run.status = status;
  run.plan.name = plan;
  run.plan.path = "plans/" + plan + ".plan";
  run.plan.title = "A day of " + plan;
  run.plan.market = {"--symbols", "AAPL:190.00"};
  run.plan.scenario = "fill_on_cancel=2";
  run.folder = "certify-runs/" + plan;
  run.ended_by = "the plan: logons >= 2 and quiet for 2s";
  run.began = SAMPLE_BEGAN;
  run.ended = SAMPLE_BEGAN + 12'340 * MILLISECOND;
  run.counters = {{"orders", 40}, {"race_fills", 2}};
  run.tap_delay_median = 21'000;
  run.tap_delay_most = 803'000;
  run.client_command = "./my-client --fix 4711";
  run.client_ended = "exit status 0";
  run.seed = UINT64_MAX;
  return run;
}

inline Verdict sample_verdict(const std::string& check, Outcome outcome, uint64_t occasions) {
  Verdict verdict;
  verdict.check = check;
  verdict.outcome = outcome;
  verdict.occasions = occasions;
  return verdict;
}

inline RunResult passed_run() {
  RunResult run = sample_run(RunResult::Status::PASSED, "calm");
  run.verdicts = {sample_verdict("feed.recovered", Outcome::PASSED, 3),
                  sample_verdict("feed.only_missing", Outcome::NOT_SEEN, 0),
                  sample_verdict("feed.late_join", Outcome::SKIPPED, 0)};
  return run;
}

inline RunResult failed_run() {
  RunResult run = sample_run(RunResult::Status::FAILED, "lost-race");
  run.verdicts = passed_run().verdicts;
  run.verdicts.push_back(
      {.check = "feed.requests_formed",
       .outcome = Outcome::FAILED,
       .occasions = 9,
       .fault_count = 12,
       .faults = {{.at = SAMPLE_BEGAN + 3 * SECOND,
                   .what = "A request was refused.",
                   .evidence = {"the first line", "the second line", "the third line",
                                "the fourth line"}},
                  {.at = SAMPLE_BEGAN + 4 * SECOND, .what = "Another one was.", .evidence = {}}},
       .remarks = {"A remark."}});
  return run;
}

inline RunResult nothing_run() {
  RunResult run = sample_run(RunResult::Status::PROVES_NOTHING, "drop");
  run.unmet = {"dropped >= 3: it was 0"};
  run.not_done = {"step 2: drop 3"};
  run.verdicts = passed_run().verdicts;
  return run;
}

inline RunResult broken_run() {
  RunResult run = sample_run(RunResult::Status::BROKEN, "reset");
  run.broken = "the client could not be started: no such file";
  run.client_ended = "";
  return run;
}

/// All that a client can do to a report's letters.
inline std::string hostile_text() {
  std::string text = "]]> <b>&amp;\" ' \x1b[31m \r\n\t";
  text += '\0';
  text +=
      "\x7f \xff\xfe \xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x80\xae \xef\xbf\xbf \xc2\x9b é€";
  return text;
}

inline RunResult hostile_run() {
  const std::string text = hostile_text();
  RunResult run = sample_run(RunResult::Status::FAILED, "hostile " + text);
  run.plan.title = run.folder = run.ended_by = run.client_command = run.client_ended = text;
  run.unmet = run.not_done = {text};
  run.broken = text;
  run.counters = {{text, 1}};
  run.verdicts = {{.check = "feed.recovered",
                   .outcome = Outcome::FAILED,
                   .occasions = 1,
                   .fault_count = 1,
                   .faults = {{.at = SAMPLE_BEGAN, .what = text, .evidence = {text, text}}},
                   .remarks = {text}}};
  return run;
}

inline std::vector<RunResult> sample_runs() {
  return {passed_run(), failed_run(), nothing_run(), broken_run(), hostile_run()};
}

/// A line end is none: reports have lines.
inline bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return c != '\n' && (byte < ' ' || byte == 0x7f);
}

}  // namespace certify
