#include "certify/report/report_text.h"

#include <ostream>
#include <string>

#include "certify/report/clean_text.h"
#include "certify/report/words.h"

namespace certify {
namespace {

constexpr Outcome IN_THIS_ORDER[] = {Outcome::FAILED, Outcome::PASSED, Outcome::NOT_SEEN,
                                     Outcome::SKIPPED};

std::string upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

void write_heading(const RunResult& run, std::ostream& out) {
  out << upper(word_of(run.status)) << "  " << clean_text(run.plan.name) << "\n";
  if (!run.plan.title.empty()) out << clean_text(run.plan.title) << "\n";
  const Tally tally = tally_of(run);
  out << "\n"
      << counted(run.verdicts.size(), "check") << ": " << tally.failed << " failed, "
      << tally.passed << " passed, " << tally.not_seen << " not seen, " << tally.skipped
      << " skipped\n";
}

void write_doubts(const RunResult& run, std::ostream& out) {
  const auto doubts = doubts_of(run);
  if (doubts.empty()) return;
  out << (run.status == RunResult::Status::BROKEN ? "\nThe run broke:\n"
                                                  : "\nWhat the plan meant did not all happen:\n");
  for (const std::string& doubt : doubts) out << "  " << clean_text(doubt) << "\n";
}

void write_fault(const Fault& fault, std::ostream& out) {
  out << "  " << time_text(fault.at) << "  " << clean_text(fault.what) << "\n";
  for (const std::string& line : fault.evidence) out << "      " << clean_text(line) << "\n";
}

void write_verdict(const Verdict& verdict, std::ostream& out) {
  out << "  " << verdict.check;
  if (verdict.occasions > 0) out << " (" << counted(verdict.occasions, "occasion") << ")";
  out << "\n";
  for (const std::string& text : verdict.remarks) out << "    " << clean_text(text) << "\n";
}

/// A failure has a paragraph of its own, with what a good client does and all its evidence.
void write_failure(const Verdict& verdict, std::ostream& out) {
  out << "\nFAILED  " << verdict.check << "\n"
      << meaning_of(verdict.check) << "\n"
      << counted(verdict.fault_count, "fault") << " in " << counted(verdict.occasions, "occasion")
      << "\n";
  for (const Fault& fault : verdict.faults) write_fault(fault, out);
  if (verdict.fault_count > verdict.faults.size()) {
    out << "  ... and " << verdict.fault_count - verdict.faults.size() << " more\n";
  }
  for (const std::string& text : verdict.remarks) out << "  " << clean_text(text) << "\n";
}

void write_verdicts(const RunResult& run, Outcome outcome, std::ostream& out) {
  const auto verdicts = verdicts_with(run, outcome);
  if (verdicts.empty()) return;
  if (outcome == Outcome::FAILED) {
    for (const Verdict* verdict : verdicts) write_failure(*verdict, out);
    return;
  }
  out << "\n" << upper(word_of(outcome)) << "\n";
  for (const Verdict* verdict : verdicts) write_verdict(*verdict, out);
}

void write_run(const RunResult& run, std::ostream& out) {
  out << "\nTHE RUN\n"
      << "  began       " << time_text(run.began) << " UTC, took "
      << about_seconds(run.ended - run.began) << "\n"
      << "  ended by    " << clean_text(run.ended_by) << "\n"
      << "  client      " << clean_text(run.client_command) << "\n"
      << "  it ended    " << clean_text(run.client_ended) << "\n"
      << "  seed        " << run.seed << "\n"
      << "  taps added  " << run.tap_delay_median / 1000 << " us in the middle, "
      << run.tap_delay_most / 1000 << " us at most\n"
      << "  folder      " << clean_text(run.folder) << "\n";
  if (run.number_of_try > 1 || run.stood_still >= SECOND) {
    out << "  machine     stood still for " << about_seconds(run.stood_still)
        << " at most; this is try " << run.number_of_try << "\n";
  }
  out << "  counters   ";
  for (const auto& [name, value] : run.counters) out << " " << clean_text(name) << "=" << value;
  out << "\n";
}

}  // namespace

void write_report_text(const RunResult& run, std::ostream& out) {
  write_heading(run, out);
  write_doubts(run, out);
  for (const Outcome outcome : IN_THIS_ORDER) write_verdicts(run, outcome, out);
  write_run(run, out);
}

}  // namespace certify
