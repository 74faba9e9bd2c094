// The verdicts of examples/certify/README.md on the client that comes back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

tools_test::Said verdict_on(const std::vector<std::string>& plans,
                            const std::vector<std::string>& options = {}) {
  const Certification certification;
  std::vector<std::string> words{"--skip", "feed", "--jobs", std::to_string(plans.size())};
  for (const std::string& plan : plans) words.push_back(QUORL_SOURCE "/plans/" + plan + ".plan");
  std::vector<std::string> client{"python3", "-B",
                                  QUORL_SOURCE "/examples/certify/recovering_client.py"};
  client.insert(client.end(), options.begin(), options.end());
  return certification.judge(words, client);
}

TEST(RecoveringClient, that_forgets_fails_for_what_it_did_not_ask) {
  const tools_test::Said said = verdict_on({"scripted-drop"}, {"--forget"});
  EXPECT_EQ(said.status, 1) << said.out << said.err;
  EXPECT_THAT(said.out, AllOf(HasSubstr("scripted-drop  1 failed"), HasSubstr("session.gap_asked"),
                              HasSubstr("no ResendRequest for that followed")));
}

TEST(RecoveringClient, keeps_its_session) {
  const tools_test::Said said =
      verdict_on({"calm", "scripted-drop", "sequence-ahead", "sequence-too-low"});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_THAT(said.out, HasSubstr("4 plans:  4 passed"));
}

TEST(RecoveringClient, takes_a_dead_line_for_a_quiet_one) {
  const tools_test::Said said = verdict_on({"lapse"});
  EXPECT_EQ(said.status, 1) << said.out << said.err;
  EXPECT_THAT(said.out, AllOf(HasSubstr("lapse  1 failed"), HasSubstr("recovery.lapse"),
                              HasSubstr("no TestRequest")));
}

}  // namespace
}  // namespace certify_test
