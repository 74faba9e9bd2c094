#include "certify/report/summary_table.h"

#include <algorithm>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "certify/report/clean_text.h"
#include "certify/report/words.h"

namespace certify {
namespace {

constexpr size_t LINES_THAT_PROVE = 3;
constexpr size_t WIDEST_NAME = 24;

constexpr std::string_view RED = "\x1b[31m";
constexpr std::string_view GREEN = "\x1b[32m";
constexpr std::string_view YELLOW = "\x1b[33m";
constexpr std::string_view PLAIN = "\x1b[0m";

struct StatusLook {
  RunResult::Status status;
  std::string_view word;
  std::string_view colour;
};
/// In this order they are shown.
constexpr StatusLook STATUSES[] = {
    {RunResult::Status::FAILED, "FAILED", RED},
    {RunResult::Status::BROKEN, "BROKEN", YELLOW},
    {RunResult::Status::PROVES_NOTHING, "PROVES NOTHING", YELLOW},
    {RunResult::Status::PASSED, "passed", GREEN},
};
constexpr size_t STATUS_WIDTH = 14;

std::string padded(std::string text, size_t width) {
  const size_t used = columns_of(text);
  if (used < width) text.append(width - used, ' ');
  return text;
}

class Table {
 public:
  Table(std::span<const RunResult> runs, const TableStyle& style, std::ostream& out)
      : runs_(runs), style_(style), out_(out) {
    for (const RunResult& run : runs) {
      name_width_ = std::max(name_width_, columns_of(clean_text(run.plan.name)));
    }
    name_width_ = std::min(name_width_, WIDEST_NAME);
  }

  void write() {
    for (const StatusLook& look : STATUSES) {
      for (const RunResult& run : runs_) {
        if (run.status == look.status) write_run(run, look);
      }
    }
    write_sum();
  }

 private:
  void put(const std::string& line) { out_ << cut_to(line, style_.width) << "\n"; }

  /// The colour is put around what has been cut: it takes no columns.
  void put_coloured(const std::string& line, size_t columns, std::string_view colour) {
    const std::string cut = cut_to(line, style_.width);
    if (!style_.colours || columns_of(cut) < columns) {
      out_ << cut << "\n";
    } else {
      out_ << colour << cut.substr(0, columns) << PLAIN << cut.substr(columns) << "\n";
    }
  }

  void write_run(const RunResult& run, const StatusLook& look) {
    const Tally tally = tally_of(run);
    put_coloured(padded(std::string(look.word), STATUS_WIDTH) + "  " +
                     padded(cut_to(clean_text(run.plan.name), name_width_), name_width_) + "  " +
                     std::to_string(tally.failed) + " failed  " + std::to_string(tally.passed) +
                     " passed  " + std::to_string(tally.not_seen) + " not seen  " +
                     std::to_string(tally.skipped) + " skipped  " +
                     about_seconds(run.ended - run.began),
                 look.word.size(), look.colour);
    if (run.status == RunResult::Status::PASSED) return;
    for (const std::string& doubt : doubts_of(run)) put("    " + clean_text(doubt));
    for (const Verdict* verdict : verdicts_with(run, Outcome::FAILED)) write_failure(*verdict);
    put("    see " + clean_text(run.folder));
  }

  void write_failure(const Verdict& verdict) {
    if (verdict.faults.empty()) return;
    const Fault& first = verdict.faults.front();
    const uint64_t others = verdict.fault_count - 1;
    put_coloured("    " + verdict.check + "  at " + time_text(first.at) + " in timeline.txt" +
                     (others == 0 ? "" : ", and " + std::to_string(others) + " more"),
                 4 + verdict.check.size(), RED);
    out_ << fold(clean_text(first.what), style_.width, 8) << "\n";
    const size_t lines = std::min(first.evidence.size(), LINES_THAT_PROVE);
    for (size_t i = 0; i < lines; ++i) put("          " + clean_text(first.evidence[i]));
  }

  void write_sum() {
    put("");
    std::string line = counted(runs_.size(), "plan") + ":";
    for (const StatusLook& look : STATUSES) {
      const auto count = std::count_if(runs_.begin(), runs_.end(), [&look](const RunResult& run) {
        return run.status == look.status;
      });
      if (count > 0) line += "  " + std::to_string(count) + " " + word_of(look.status);
    }
    put(line);
    write_never_seen();
  }

  /// What no plan has given occasion to is not proved by any of them.
  void write_never_seen() {
    std::vector<std::string> never;
    std::set<std::string> seen;
    for (const RunResult& run : runs_) {
      for (const Verdict& verdict : run.verdicts) {
        if (verdict.outcome != Outcome::NOT_SEEN) seen.insert(verdict.check);
      }
    }
    for (const RunResult& run : runs_) {
      for (const Verdict& verdict : run.verdicts) {
        if (seen.insert(verdict.check).second) never.push_back(verdict.check);
      }
    }
    if (never.empty()) return;
    std::string line = "not seen in any plan:";
    for (const std::string& check : never) line += " " + check;
    out_ << fold(line, style_.width, 0) << "\n";
  }

  std::span<const RunResult> runs_;
  TableStyle style_;
  std::ostream& out_;
  size_t name_width_ = 0;
};

}  // namespace

void write_summary_table(std::span<const RunResult> runs, const TableStyle& style,
                         std::ostream& out) {
  Table(runs, style, out).write();
}

}  // namespace certify
