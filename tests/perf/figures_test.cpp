#include "perf/figures.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace perf {
namespace {

TEST(Spread, the_median_of_an_even_number_lies_between_the_middle_two) {
  const Spread spread = spread_of({4, 1, 3, 10});
  EXPECT_EQ(spread.median, 3.5);
  EXPECT_EQ(spread.least, 1);
  EXPECT_EQ(spread.most, 10);
}

TEST(Spread, one_value_is_its_own_median) {
  const Spread spread = spread_of({7});
  EXPECT_EQ(spread.median, 7);
  EXPECT_EQ(spread.least, 7);
  EXPECT_EQ(spread.most, 7);
}

const Heading WITH_RATIO{"growth", "an order", "us", "alone"};
const Heading WITHOUT_RATIO{"growth", "memory", "bytes", ""};

TEST(Report, nothing_measured_is_not_complete) { EXPECT_FALSE(Report({"exchange"}).complete()); }

TEST(Report, a_figure_with_its_reference_is_complete) {
  Report report({"exchange"});
  report.add(WITH_RATIO, "exchange", {4, 2});
  report.add(WITHOUT_RATIO, "exchange", {800});
  EXPECT_TRUE(report.complete());
}

TEST(Report, a_figure_that_is_no_number_is_not_complete) {
  Report report({"exchange"});
  report.add(WITHOUT_RATIO, "exchange", {std::numeric_limits<double>::infinity()});
  EXPECT_FALSE(report.complete());
}

TEST(Report, a_ratio_without_its_reference_is_not_complete) {
  Report report({"exchange"});
  report.add(WITH_RATIO, "exchange", {4});
  EXPECT_FALSE(report.complete());
}

TEST(Report, a_figure_that_one_of_two_builds_lacks_is_not_complete) {
  Report report({"exchange", "before"});
  report.add(WITHOUT_RATIO, "exchange", {800});
  EXPECT_FALSE(report.complete());
  report.add(WITHOUT_RATIO, "before", {900});
  EXPECT_TRUE(report.complete());
}

TEST(Report, work_that_throws_is_a_failure_and_the_rest_goes_on) {
  Report report({"exchange"});
  report.add(WITHOUT_RATIO, "exchange", {800});
  report.attempt("depth", [] { throw std::runtime_error("a wrong reply"); });
  EXPECT_TRUE(report.failed());
  EXPECT_FALSE(report.complete());
}

}  // namespace
}  // namespace perf
