// Clients that get a verdict, or are told that they prove nothing, and never hang the judge.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/certify/e2e/support/certification.h"

namespace certify_test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using tools_test::Said;

constexpr int FAILED = 1;
constexpr int PROVES_NOTHING = 3;

class Hostile : public testing::Test {
 protected:
  Said judge(const std::vector<std::string>& client, const std::string& plan_text) {
    const Said said = certification.judge({certification.plan("plan", plan_text)}, client);
    EXPECT_TRUE(no_process_stays_with("CERTIFY_TEST", certification.place()));
    return said;
  }
  std::string report() const { return certification.text_of("plan", "report.txt"); }

  Certification certification;
};

TEST_F(Hostile, garbage_fails_the_frames) {
  const Said said = judge(strange_client("garbage"), "title Garbage\nlimit 60s\n");
  EXPECT_EQ(said.status, FAILED) << said.out << said.err;
  EXPECT_THAT(said.out, HasSubstr("session.frames"));
}

TEST_F(Hostile, a_client_that_never_logs_on_proves_nothing) {
  const Said said =
      judge(strange_client("no-logon"), "title No Logon\nlimit 1s\nrequire logons >= 1\n");
  EXPECT_EQ(said.status, PROVES_NOTHING) << said.out << said.err;
  EXPECT_THAT(report(), HasSubstr("logons >= 1 (logons is 0)"));
}

TEST_F(Hostile, a_client_that_closes_at_once_proves_nothing) {
  const Said said = judge(strange_client("close-at-once", "1"),
                          "title Closing\nlimit 20s\nrequire logons >= 1\n");
  EXPECT_EQ(said.status, PROVES_NOTHING) << said.out << said.err;
  EXPECT_THAT(report(), HasSubstr("the client ended"));
}

TEST_F(Hostile, a_storm_of_connections_is_a_storm) {
  const Said said = judge(strange_client("close-at-once", "200"), "title Storm\nlimit 20s\n");
  EXPECT_EQ(said.status, FAILED) << said.out << said.err;
  EXPECT_THAT(said.out, HasSubstr("session.reconnects"));
}

TEST_F(Hostile, a_client_that_never_reads_holds_up_nobody) {
  const Said said = judge(strange_client("never-reads", "5000"),
                          "title Never reading\nend when orders >= 4900\nlimit 100s\n");
  EXPECT_THAT(said.status, AnyOf(0, FAILED)) << said.out << said.err;
  EXPECT_THAT(report(), HasSubstr("orders >= 4900"));
}

TEST_F(Hostile, output_without_end_is_read_and_cut) {
  const Said said = judge({"yes", "a line of output that does not end, and one more, and one more"},
                          "title Output\nlimit 3s\n");
  EXPECT_EQ(said.status, 3) << said.out << said.err;
  const auto kept = std::filesystem::file_size(certification.path_of("plan", "client.out"));
  EXPECT_GT(kept, 0U);
  EXPECT_LE(kept, 64U * 1024 * 1024);
}

TEST_F(Hostile, a_client_that_ignores_sigterm_is_killed) {
  const Said said =
      judge(strange_client("stubborn"), "title Stubborn\nend when connects >= 1\nlimit 60s\n");
  EXPECT_EQ(said.status, 3) << said.out << said.err;
  EXPECT_THAT(report(), HasSubstr("killed: it did not end within 5 s of SIGTERM"));
}

TEST_F(Hostile, children_that_hold_the_pipes_open_end_with_it) {
  const Said said =
      judge({"sh", "-c", "sleep 1000 & sleep 1000 & exit 0"}, "title Children\nlimit 30s\n");
  EXPECT_EQ(said.status, 3) << said.out << said.err;
  EXPECT_THAT(report(), HasSubstr("the client ended"));
}

TEST_F(Hostile, a_child_that_left_the_group_does_not_hold_up_the_end) {
  const Said said =
      judge({"sh", "-c", "setsid sh -c 'sleep 3' & exit 0"}, "title Left\nlimit 30s\n");
  EXPECT_EQ(said.status, 3) << said.out << said.err;
}

}  // namespace
}  // namespace certify_test
