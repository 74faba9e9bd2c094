#include "certify/report/junit.h"

#include <gmock/gmock.h>

#include <pugixml.hpp>
#include <sstream>

#include "tests/certify/report/support/sample_runs.h"

namespace certify {
namespace {

using ::testing::HasSubstr;

std::string xml_of(const std::vector<RunResult>& runs) {
  std::ostringstream out;
  write_junit(runs, out);
  return out.str();
}

struct JUnit : public ::testing::Test {
  void read(const std::vector<RunResult>& runs) {
    const auto result = document.load_string(xml_of(runs).c_str());
    ASSERT_TRUE(result) << result.description();
  }
  pugi::xml_node suite(const char* name) const {
    return document.child("testsuites").find_child_by_attribute("testsuite", "name", name);
  }
  pugi::xml_node check(const char* plan, const char* name) const {
    return suite(plan).find_child_by_attribute("testcase", "name", name);
  }
  pugi::xml_document document;
};

TEST_F(JUnit, has_a_suite_for_each_plan_and_a_case_for_each_check_and_the_run) {
  read({passed_run(), failed_run()});
  EXPECT_EQ(suite("calm").attribute("tests").as_int(), 4);
  EXPECT_EQ(suite("lost-race").attribute("tests").as_int(), 5);
  EXPECT_STREQ(suite("calm").attribute("timestamp").value(), "2027-01-15T08:00:00");
  EXPECT_STREQ(suite("calm").attribute("time").value(), "12.340");
  EXPECT_STREQ(check("calm", "feed.recovered").attribute("classname").value(), "calm");
  EXPECT_FALSE(check("calm", "feed.recovered").first_child());
  EXPECT_FALSE(check("calm", "run").first_child());
}

TEST_F(JUnit, counts_over_all_suites) {
  read(sample_runs());
  const auto all = document.child("testsuites");
  EXPECT_EQ(all.attribute("tests").as_int(), 4 + 5 + 4 + 1 + 2);
  EXPECT_EQ(all.attribute("failures").as_int(), 2);
  EXPECT_EQ(all.attribute("errors").as_int(), 2);
  EXPECT_EQ(all.attribute("skipped").as_int(), 6);
}

TEST_F(JUnit, a_failure_says_what_and_proves_it) {
  read({failed_run()});
  const auto failure = check("lost-race", "feed.requests_formed").child("failure");
  EXPECT_STREQ(failure.attribute("message").value(), "A request was refused.");
  EXPECT_THAT(failure.text().get(), HasSubstr("08:00:03.000000  A request was refused.\n"
                                              "    the first line\n"));
  EXPECT_THAT(failure.text().get(), HasSubstr("certify-runs/lost-race/timeline.txt"));
}

TEST_F(JUnit, what_was_not_seen_is_never_a_pass) {
  read({passed_run()});
  EXPECT_STREQ(check("calm", "feed.only_missing").child("skipped").attribute("message").value(),
               "not seen: its occasion never came");
  EXPECT_STREQ(check("calm", "feed.late_join").child("skipped").attribute("message").value(),
               "skipped by the plan");
}

TEST_F(JUnit, a_run_that_proves_nothing_or_broke_is_an_error) {
  read({nothing_run(), broken_run()});
  const auto nothing = check("drop", "run").child("error");
  EXPECT_STREQ(nothing.attribute("type").value(), "proves nothing");
  EXPECT_THAT(nothing.text().get(), HasSubstr("not done: step 2: drop 3"));
  EXPECT_THAT(check("reset", "run").child("error").attribute("message").value(),
              HasSubstr("could not be started"));
}

TEST_F(JUnit, hostile_text_comes_through_as_text) {
  read({hostile_run()});
  const auto failure =
      document.child("testsuites").child("testsuite").last_child().child("failure");
  EXPECT_THAT(failure.attribute("message").value(), HasSubstr("]]> <b>&amp;\" ' \\x1b[31m"));
  EXPECT_THAT(failure.text().get(), HasSubstr("]]> <b>&amp;\" ' \\x1b[31m"));
  EXPECT_FALSE(
      failure.find_node([](pugi::xml_node node) { return node.name() == std::string("b"); }));
}

TEST_F(JUnit, holds_nothing_that_xml_forbids) {
  const std::string xml = xml_of({hostile_run()});
  for (const char c : xml) EXPECT_FALSE(is_control(c)) << int{c};
  EXPECT_THAT(xml, testing::Not(HasSubstr("&#")));
}

TEST_F(JUnit, of_no_run_is_an_empty_document) {
  read({});
  EXPECT_STREQ(document.child("testsuites").attribute("tests").value(), "0");
}

}  // namespace
}  // namespace certify
