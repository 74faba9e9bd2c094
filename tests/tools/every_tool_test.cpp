// What a script may rely on with each of the tools.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "quorl/client/port_slot.h"
#include "tests/e2e/support/built.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

namespace client = quorl::client;

using testing::EndsWith;
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

/// What a command of the shell says on its standard output, and behind it its exit status.
std::string told_by_shell(const std::string& command) {
  FILE* const shell = ::popen((command + "; echo $?").c_str(), "r");
  std::string text;
  char piece[256];
  while (std::fgets(piece, sizeof piece, shell) != nullptr) text += piece;
  ::pclose(shell);
  return text;
}

TEST_P(EveryTool, says_that_what_it_prints_finds_no_room) {
  const std::string program = "quorl-" + GetParam();
  for (const std::string option : {"--help", "--version"}) {
    const std::string said =
        told_by_shell(built_program(program) + " " + option + " 2>&1 >/dev/full");
    EXPECT_THAT(said, StartsWith(program + ": cannot write standard output"));
    EXPECT_THAT(said, EndsWith("\n1\n"));
  }
}

TEST(Tools, that_print_say_that_it_finds_no_room) {
  e2e::Exchange exchange(e2e::living());
  const client::Ports ports = exchange.ports();
  const std::string feed = ports.group + " " + std::to_string(ports.feed);
  const std::string commands[] = {
      "control --port " + std::to_string(ports.control) + " --timeout 60 stats --json",
      "watch --count 1 " + feed, "trade ALPHA " + std::to_string(ports.fix) + " </dev/null",
      "ladder --once --snap-port " + std::to_string(ports.snap) + " " + feed,
      "doctor --port " + std::to_string(ports.feed)};
  for (const std::string& command : commands) {
    const std::string said = told_by_shell(built_program("quorl-" + command) + " 2>&1 >/dev/full");
    EXPECT_THAT(said, HasSubstr(": cannot write standard output")) << command;
    EXPECT_THAT(said, EndsWith("\n1\n")) << command;
  }
}

INSTANTIATE_TEST_SUITE_P(Tools, EveryTool, testing::ValuesIn(tool_names()),
                         [](const auto& tool) { return tool.param; });

}  // namespace
}  // namespace tools_test
