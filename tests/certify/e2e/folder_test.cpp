// What a run leaves behind, and what its client is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "quorl/client/fix_message.h"
#include "quorl/client/json_lines.h"
#include "tests/certify/e2e/support/certification.h"
#include "tools/capture/capture_reader.h"

namespace certify_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using tools_test::Said;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class Folder : public testing::Test {
 protected:
  Certification certification;
  std::string text_of(const std::string& file) const { return certification.text_of("plan", file); }
};

TEST_F(Folder, holds_all_that_happened) {
  const std::string plan =
      certification.plan("plan", "title Folder\nmarket --seed 5\nstep at 0s drop 1\nlimit 20s\n");
  (void)certification.judge({plan}, strange_client("flood", "20"));
  const auto decisions = client::parse_order_events(text_of("truth/orders.jsonl"));
  EXPECT_EQ(decisions.size(), 20U);
  EXPECT_FALSE(client::parse_market_truths(text_of("truth/market.jsonl")).empty());
  EXPECT_EQ(client::parse_book_file(text_of("truth/book.json")).symbols.size(), 3U);
  EXPECT_THAT(text_of("exchange.log"), HasSubstr("bench: paused"));
  EXPECT_THAT(text_of("report.txt"), HasSubstr("Folder"));
  const auto report = nlohmann::json::parse(text_of("report.json"));
  EXPECT_EQ(report.at("seed"), 5);
}

TEST_F(Folder, has_one_timeline_in_order_of_time) {
  const std::string plan =
      certification.plan("plan", "title Time\nstep at 0s partial 2\nlimit 20s\n");
  (void)certification.judge({plan}, strange_client("flood", "20"));
  const std::vector<std::string> lines = lines_of(text_of("timeline.txt"));
  EXPECT_GT(lines.size(), 60U);
  EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end(), [](const auto& one, const auto& other) {
    return one.substr(0, 15) < other.substr(0, 15);
  }));
  EXPECT_THAT(text_of("timeline.txt"),
              AllOf(HasSubstr("35=A"), HasSubstr("partial 2"), HasSubstr("exit status 0")));
}

TEST_F(Folder, has_the_wire_as_a_log_of_fix_messages) {
  (void)certification.judge({certification.plan("plan", SHORT)}, strange_client("flood", "20"));
  unsigned orders = 0;
  for (const std::string& line : lines_of(text_of("fix.log"))) {
    const size_t begin = line.find("8=FIX");
    ASSERT_NE(begin, std::string::npos) << line;
    if (client::parse_fix(line.substr(begin)).type() == "D") ++orders;
  }
  EXPECT_EQ(orders, 20U);
}

TEST_F(Folder, has_the_feed_as_a_capture) {
  const std::string plan = certification.plan("plan", "title Feed\nlimit 1s\n");
  EXPECT_EQ(certification.judge_script({plan}, "exec sleep 100").status, 3);
  tools::CaptureReader capture(certification.path_of("plan", "feed.pcap"));
  unsigned frames = 0;
  while (capture.next()) ++frames;
  EXPECT_GT(frames, 10U);
}

TEST_F(Folder, is_never_written_twice) {
  const std::string plan = certification.plan("plan", SHORT);
  EXPECT_EQ(certification.judge_script({plan, plan}, "echo once").status, 3);
  EXPECT_EQ(text_of("client.out"), "once\n");
  EXPECT_EQ(certification.text_of("plan-2", "client.out"), "once\n");
}

TEST_F(Folder, tells_what_the_client_was_and_printed) {
  const std::string plan = certification.plan("plan", SHORT);
  (void)certification.judge_script({plan}, "echo one; echo other >&2; read word; exit 5");
  EXPECT_EQ(text_of("client.out"), "one\n");
  EXPECT_EQ(text_of("client.err"), "other\n");
  EXPECT_THAT(text_of("report.txt"), HasSubstr("exit status 5"));
}

TEST_F(Folder, a_client_is_told_where_the_exchange_is) {
  const std::string plan =
      certification.plan("plan", "title Told\nmarket --symbols ONE:10.00,TWO:20.00\nlimit 9s\n");
  const Said said = certification.judge(
      {plan}, {"sh", "-c",
               "echo $0 $QUORL_FIX_HOST $QUORL_FIX_PORT $QUORL_FEED_GROUP $QUORL_FEED_PORT "
               "$QUORL_INTERFACE $QUORL_SNAP_PORT $QUORL_GAPFILL_PORT $QUORL_CONTROL_PORT "
               "$QUORL_SESSION $QUORL_SYMBOLS $QUORL_RUN $QUORL_PLAN",
               "{fix_host} {fix_port} {group} {port} {interface} {snap_port} {gapfill_port} "
               "{control_port} {session} {symbols} {run} {plan}"});
  EXPECT_EQ(said.status, 3) << said.err;
  std::istringstream words(text_of("client.out"));
  std::vector<std::string> told{std::istream_iterator<std::string>(words), {}};
  ASSERT_EQ(told.size(), 24U);
  EXPECT_EQ(std::vector(told.begin(), told.begin() + 12),
            std::vector(told.begin() + 12, told.end()));
  EXPECT_EQ(told[0], "127.0.0.1");
  EXPECT_THAT(told[2], StartsWith("239."));
  EXPECT_EQ(told[9], "ONE,TWO");
  EXPECT_EQ(told[10], certification.place() + "/out/plan");
  EXPECT_EQ(told[11], "plan");
}

TEST_F(Folder, belief_is_copied_at_a_mark_and_at_the_end) {
  const std::string plan =
      certification.plan("plan",
                         "title Belief\nbelief positions {run}/now.csv at noon\n"
                         "step when connects >= 1 mark noon\nend after 0s\nlimit 60s\n");
  const Said said =
      certification.judge_script({plan},
                                 "echo 'cl_ord_id,state,cum,leaves,avg_px' >$QUORL_RUN/now.csv; "
                                 "cp $QUORL_RUN/now.csv $QUORL_RUN/positions.csv; exec " +
                                     strange_client("no-logon")[0] + " no-logon");
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_EQ(text_of("belief/mark-noon/positions.csv"), "cl_ord_id,state,cum,leaves,avg_px\n");
  EXPECT_EQ(text_of("belief/end/positions.csv"), "cl_ord_id,state,cum,leaves,avg_px\n");
  EXPECT_THAT(text_of("belief/end/truth-book.json"), StartsWith("{\"ts_ns\":"));
}

TEST_F(Folder, belief_is_looked_for_in_the_folder_and_missed_where_it_is_not) {
  const std::string plan =
      certification.plan("plan", "title Belief\nbelief positions mine.csv\nlimit 3s\n");
  const std::string head = "echo 'cl_ord_id,state,cum,leaves,avg_px' >$QUORL_RUN/";
  EXPECT_EQ(certification.judge_script({plan}, head + "mine.csv").status, 0);
  EXPECT_EQ(text_of("belief/end/positions.csv"), "cl_ord_id,state,cum,leaves,avg_px\n");
  EXPECT_EQ(certification.judge_script({plan}, head + "positions.csv").status, 3);
  EXPECT_THAT(certification.text_of("plan-2", "report.txt"),
              HasSubstr("what the client believes (there is no "));
}

TEST_F(Folder, what_is_no_file_is_not_waited_for) {
  const Said said = certification.judge_script({certification.plan("plan", SHORT)},
                                               "mkfifo $QUORL_RUN/positions.csv");
  EXPECT_EQ(said.status, 3) << said.err;
}

}  // namespace
}  // namespace certify_test
