#include "certify/report/summary_table.h"

#include <gmock/gmock.h>

#include <sstream>

#include "certify/report/clean_text.h"
#include "tests/certify/report/support/sample_runs.h"

namespace certify {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

std::string table_of(const std::vector<RunResult>& runs, const TableStyle& style = {}) {
  std::ostringstream out;
  write_summary_table(runs, style, out);
  return out.str();
}

TEST(SummaryTable, shows_what_failed_first_and_what_proves_it) {
  EXPECT_EQ(table_of({passed_run(), nothing_run(), failed_run()}),
            "FAILED          lost-race  1 failed  1 passed  1 not seen  1 skipped  12.3 s\n"
            "    feed.requests_formed  at 08:00:03.000000 in timeline.txt, and 11 more\n"
            "        A request was refused.\n"
            "          the first line\n"
            "          the second line\n"
            "          the third line\n"
            "    see certify-runs/lost-race\n"
            "PROVES NOTHING  drop       0 failed  1 passed  1 not seen  1 skipped  12.3 s\n"
            "    required: dropped >= 3: it was 0\n"
            "    not done: step 2: drop 3\n"
            "    see certify-runs/drop\n"
            "passed          calm       0 failed  1 passed  1 not seen  1 skipped  12.3 s\n"
            "\n"
            "3 plans:  1 failed  1 proves nothing  1 passed\n"
            "not seen in any plan: feed.only_missing\n");
}

TEST(SummaryTable, is_plain_unless_colours_are_asked_for) {
  EXPECT_THAT(table_of({failed_run()}), Not(HasSubstr("\x1b")));
  EXPECT_THAT(table_of({failed_run(), passed_run()}, {.width = 80, .colours = true}),
              AllOf(HasSubstr("\x1b[31mFAILED\x1b[0m  "), HasSubstr("\x1b[32mpassed\x1b[0m")));
}

TEST(SummaryTable, keeps_to_the_width) {
  for (const bool colours : {false, true}) {
    std::istringstream lines(table_of(sample_runs(), {.width = 40, .colours = colours}));
    for (std::string line; std::getline(lines, line);) {
      for (size_t at = 0; (at = line.find("\x1b[")) != std::string::npos;) {
        line.erase(at, line.find('m', at) + 1 - at);
      }
      const bool one_word =
          line.find_first_of(' ', line.find_first_not_of(' ')) == std::string::npos;
      EXPECT_TRUE(columns_of(line) <= 40 || one_word) << line;
    }
  }
}

TEST(SummaryTable, holds_no_control_character_whatever_the_client_sent) {
  for (const char c : table_of({hostile_run()})) EXPECT_FALSE(is_control(c));
}

}  // namespace
}  // namespace certify
