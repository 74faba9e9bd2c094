#include "certify/report/report_text.h"

#include <gmock/gmock.h>

#include <sstream>

#include "tests/certify/report/support/sample_runs.h"

namespace certify {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string report_of(const RunResult& run) {
  std::ostringstream out;
  write_report_text(run, out);
  return out.str();
}

TEST(ReportText, begins_with_the_verdict_and_counts_what_was_not_seen_apart) {
  EXPECT_THAT(report_of(failed_run()),
              StartsWith("FAILED  lost-race\nA day of lost-race\n\n4 checks: 1 failed, 1 passed, 1 "
                         "not seen, 1 skipped\n"));
}

TEST(ReportText, shows_each_fault_with_its_time_and_all_its_evidence) {
  EXPECT_THAT(report_of(failed_run()),
              HasSubstr("12 faults in 9 occasions\n"
                        "  08:00:03.000000  A request was refused.\n"
                        "      the first line\n      the second line\n      the third line\n"
                        "      the fourth line\n"
                        "  08:00:04.000000  Another one was.\n"
                        "  ... and 10 more\n  A remark.\n"));
}

TEST(ReportText, puts_what_failed_ahead_of_what_passed) {
  const std::string report = report_of(failed_run());
  EXPECT_LT(report.find("FAILED  feed.requests_formed"), report.find("\nPASSED\n"));
  EXPECT_LT(report.find("\nPASSED\n"), report.find("\nNOT SEEN\n"));
  EXPECT_LT(report.find("\nNOT SEEN\n"), report.find("\nSKIPPED\n"));
}

TEST(ReportText, says_why_a_run_proves_nothing_or_broke) {
  EXPECT_THAT(report_of(nothing_run()),
              AllOf(StartsWith("PROVES NOTHING  drop\n"), HasSubstr("dropped >= 3: it was 0"),
                    HasSubstr("step 2: drop 3")));
  EXPECT_THAT(report_of(broken_run()),
              AllOf(StartsWith("BROKEN  reset\n"), HasSubstr("could not be started")));
}

TEST(ReportText, tells_of_the_run) {
  EXPECT_THAT(report_of(passed_run()),
              AllOf(HasSubstr("took 12.3 s"), HasSubstr("21 us in the middle, 803 us at most"),
                    HasSubstr("orders=40 race_fills=2"), HasSubstr("18446744073709551615")));
}

TEST(ReportText, holds_no_control_character_whatever_the_client_sent) {
  const std::string report = report_of(hostile_run());
  for (const char c : report) EXPECT_FALSE(is_control(c)) << int{c};
  EXPECT_THAT(report, AllOf(HasSubstr("\\x1b[31m"), HasSubstr("é€"), Not(HasSubstr("\xff"))));
}

}  // namespace
}  // namespace certify
