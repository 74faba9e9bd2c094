#include "certify/report/report_json.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/certify/report/support/sample_runs.h"

namespace certify {
namespace {

nlohmann::json json_of(const RunResult& run) {
  std::ostringstream out;
  write_report_json(run, out);
  return nlohmann::json::parse(out.str());
}

TEST(ReportJson, says_how_the_run_ended) {
  const auto report = json_of(nothing_run());
  EXPECT_EQ(report["status"], "proves nothing");
  EXPECT_EQ(report["plan"]["name"], "drop");
  EXPECT_EQ(report["seed"], UINT64_MAX);
  EXPECT_EQ(report["began"], SAMPLE_BEGAN);
  EXPECT_EQ(report["unmet"][0], "dropped >= 3: it was 0");
  EXPECT_EQ(report["not_done"][0], "step 2: drop 3");
  EXPECT_EQ(report["counters"]["orders"], 40);
  EXPECT_EQ(report["tap_delay_ns"]["most"], 803'000);
}

TEST(ReportJson, has_every_verdict_with_its_evidence) {
  const auto checks = json_of(failed_run())["checks"];
  ASSERT_EQ(checks.size(), 4U);
  EXPECT_EQ(checks[1]["outcome"], "not seen");
  EXPECT_EQ(checks[3]["check"], "feed.requests_formed");
  EXPECT_EQ(checks[3]["fault_count"], 12);
  EXPECT_EQ(checks[3]["faults"][0]["time"], "08:00:03.000000");
  EXPECT_EQ(checks[3]["faults"][0]["evidence"][3], "the fourth line");
  EXPECT_EQ(checks[3]["remarks"][0], "A remark.");
}

TEST(ReportJson, bears_bytes_that_are_no_text) {
  const auto report = json_of(hostile_run());
  const std::string what = report["checks"][0]["faults"][0]["what"];
  EXPECT_THAT(what, testing::StartsWith("]]> <b>&amp;\" ' \x1b[31m \r\n\t"));
  EXPECT_THAT(what, testing::HasSubstr("\xef\xbf\xbd"));
}

}  // namespace
}  // namespace certify
