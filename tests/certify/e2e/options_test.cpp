// What is said before anything is started.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/certify/e2e/support/certification.h"
#include "tests/e2e/support/built.h"

namespace certify_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using tools_test::Said;

class Options : public testing::Test {
 protected:
  /// That it was used wrongly, for this reason, and has made nothing.
  void refuses(const std::vector<std::string>& options, const std::vector<std::string>& client,
               const std::string& reason) {
    const Said said = certification.judge(options, client);
    EXPECT_EQ(said.status, 2) << said.err;
    EXPECT_EQ(said.out, "");
    EXPECT_THAT(said.err, HasSubstr(reason));
    EXPECT_FALSE(std::filesystem::exists(certification.place() + "/out"));
  }

  Certification certification;
  std::string good = certification.plan("good", SHORT);
};

TEST_F(Options, all_mistakes_of_all_plans_are_named_with_line_and_word) {
  const std::string one = certification.plan("one", "title One\nstep when orderz >= 3 drop\n");
  const std::string other =
      certification.plan("other", "title Other\nlimit 9s\nstep at 1s dropp 3\nskip feed.nothing\n");
  const Said said = certification.judge({one, good, other}, {"true"});
  EXPECT_EQ(said.status, 2);
  EXPECT_THAT(said.err,
              AllOf(HasSubstr(one + ":2:"), HasSubstr("orderz"), HasSubstr(other + ":3:"),
                    HasSubstr("dropp"), HasSubstr(other + ":4:"), HasSubstr("feed.nothing")));
  EXPECT_FALSE(std::filesystem::exists(certification.place() + "/out"));
}

TEST_F(Options, a_plan_that_is_not_there) {
  refuses({certification.place() + "/nowhere.plan"}, {"true"}, "nowhere.plan");
}

TEST_F(Options, no_plan_at_all) { refuses({}, {"true"}, "name a plan"); }

TEST_F(Options, no_command) { refuses({good}, {}, "name the command"); }

TEST_F(Options, a_command_that_is_not_there) {
  refuses({good}, {"no-such-program-at-all"}, "there is no program no-such-program-at-all");
}

TEST_F(Options, a_check_that_is_not_there) {
  refuses({good, "--skip", "feed.nothing"}, {"true"}, "--skip feed.nothing");
}

TEST_F(Options, a_plan_behind_a_check_to_skip_is_a_plan) {
  const Said said = certification.judge({"--check-plan", "--skip", "feed", good}, {});
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_EQ(said.out, good + ": Short\n");
}

TEST_F(Options, an_exchange_that_is_not_there) {
  refuses({good, "--exchange", "/nowhere/quorl"}, {"true"}, "there is no program /nowhere/quorl");
}

TEST_F(Options, a_junit_file_that_cannot_be_written) {
  refuses({good, "--junit", "/nowhere/out.xml"}, {"true"}, "cannot write /nowhere/out.xml");
}

TEST_F(Options, words_that_contradict_each_other) {
  refuses({good, "--attach"}, {"true"}, "--attach waits for a client and starts none");
  refuses({good, "--no-plan"}, {"true"}, "--no-plan goes without a plan");
  refuses({good, "--market", "--seed 3"}, {"true"}, "--market and --scenario are for --no-plan");
  refuses({good, "--fix-port", "4001"}, {"true"}, "are for --attach");
  refuses({"--no-plan", "--market", "--sead 3"}, {"true"}, "--sead");
  refuses({good, "--limit", "soon"}, {"true"}, "--limit soon is no time");
}

TEST_F(Options, plans_are_read_without_a_client_if_that_is_all) {
  const Said said = certification.judge({good, "--check-plan"}, {});
  EXPECT_EQ(said.status, 0) << said.err;
  EXPECT_EQ(said.out, good + ": Short\n");
  EXPECT_FALSE(std::filesystem::exists(certification.place() + "/out"));
}

TEST_F(Options, checks_are_listed_and_explained) {
  const Said list = tools_test::run_tool("certify", {"--list"});
  EXPECT_EQ(list.status, 0);
  EXPECT_THAT(list.out, AllOf(HasSubstr("session.logon"), HasSubstr("belief.book")));
  const Said page = tools_test::run_tool("certify", {"--explain", "session.logon"});
  EXPECT_EQ(page.status, 0);
  EXPECT_THAT(page.out, HasSubstr("session.logon"));
  const Said none = tools_test::run_tool("certify", {"--explain", "session.nothing"});
  EXPECT_EQ(none.status, 2);
  EXPECT_THAT(none.err, HasSubstr("there is no check session.nothing"));
}

TEST_F(Options, that_tell_find_no_room) {
  const std::string command = built_program("quorl-certify") + " --list 2>&1 >/dev/full";
  const Said said = tools_test::run_tool("certify", {"--no-plan", "--", "sh", "-c", command});
  EXPECT_THAT(said.out, HasSubstr("cannot write standard output"));
  EXPECT_EQ(said.status, 1);
}

}  // namespace
}  // namespace certify_test
