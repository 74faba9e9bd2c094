// JUnit XML, as a CI reads it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pugixml.hpp>
#include <string>

#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using tools_test::Said;

TEST(Junit, has_a_suite_for_each_plan_and_a_case_for_each_check) {
  const Certification certification;
  const std::string good = certification.plan("good", SHORT);
  const std::string doubtful =
      certification.plan("doubtful", "title Doubtful\nlimit 60s\nrequire orders >= 3\n");
  const std::string path = certification.place() + "/out.xml";
  const Said said =
      certification.judge({good, doubtful, "--junit", path}, strange_client("garbage"));
  EXPECT_EQ(said.status, 1) << said.err;
  pugi::xml_document document;
  ASSERT_TRUE(document.load_file(path.c_str()));
  const auto suites = document.select_nodes("//testsuite");
  ASSERT_EQ(suites.size(), 2U);
  for (const auto& suite : suites) {
    EXPECT_GT(suite.node().select_nodes("testcase").size(), 25U);
    EXPECT_EQ(suite.node().select_nodes("testcase[@name='session.frames']/failure").size(), 1U);
  }
}

}  // namespace
}  // namespace certify_test
