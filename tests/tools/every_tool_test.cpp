// What a script may rely on with each of the tools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::vector<std::string> tool_names() {
  std::istringstream words(QUORL_TOOL_NAMES);
  std::vector<std::string> names;
  for (std::string name; words >> name;) names.push_back(name.substr(std::string("quorl-").size()));
  return names;
}

class EveryTool : public testing::TestWithParam<std::string> {};

TEST_P(EveryTool, tells_its_version_which_is_that_of_the_whole) {
  const Said said = run_tool(GetParam(), {"--version"});
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.out, "quorl-" + GetParam() + " " + QUORL_VERSION + "\n");
  EXPECT_EQ(said.err, "");
}

TEST_P(EveryTool, explains_itself_and_points_to_the_page_of_the_exchange) {
  const Said said = run_tool(GetParam(), {"--help"});
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.out, HasSubstr("Usage: quorl-" + GetParam()));
  EXPECT_THAT(said.out, HasSubstr("man quorl"));
  EXPECT_EQ(said.err, "");
}

TEST_P(EveryTool, refuses_an_option_that_there_is_not_in_one_line) {
  const Said said = run_tool(GetParam(), {"--no-such-option"});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.out, "");
  EXPECT_THAT(said.err, StartsWith("quorl-" + GetParam() + ": "));
  EXPECT_THAT(said.err, HasSubstr("no option --no-such-option"));
  EXPECT_EQ(said.err.find('\n'), said.err.size() - 1);
}

INSTANTIATE_TEST_SUITE_P(Tools, EveryTool, testing::ValuesIn(tool_names()),
                         [](const auto& tool) { return tool.param; });

}  // namespace
}  // namespace tools_test
