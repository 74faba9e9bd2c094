// quorl-trader beside a real exchange that misbehaves: it ends up knowing what the exchange
// decided.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "quorl/client/json_lines.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/exchange.h"
#include "tests/tools/support/tool.h"

namespace tools_test {
namespace {

using testing::HasSubstr;

class TraderTest : public testing::Test {
 protected:
  static client::SimulatorOptions options() {
    client::SimulatorOptions options = e2e::living({"--symbols", "AAPL:190.00,MSFT:400.00"});
    options.order_truth = true;
    return options;
  }

  std::map<std::string, std::string> environment() const {
    const client::Ports& ports = exchange.ports();
    return {{"QUORL_RUN", folder.path()},
            {"QUORL_FIX_PORT", std::to_string(ports.fix)},
            {"QUORL_FEED_GROUP", ports.group},
            {"QUORL_FEED_PORT", std::to_string(ports.feed)},
            {"QUORL_SNAP_PORT", std::to_string(ports.snap)},
            {"QUORL_GAPFILL_PORT", std::to_string(ports.gap_fill)},
            {"QUORL_SYMBOLS", "AAPL,MSFT"}};
  }
  Said trades(const std::vector<std::string>& arguments) {
    return run_tool("trader", arguments, "", environment());
  }

  /// Order events without their times.
  static std::vector<std::string> events_of(const std::string& path) {
    std::vector<std::string> lines;
    for (const client::OrderEvent& event : client::parse_order_events(client::read_file(path))) {
      lines.push_back(event.ev + " " + event.cl + " " + std::to_string(event.oid) + " " +
                      event.symbol + " " + event.side + " " + std::to_string(event.qty) + " @ " +
                      event.px + " cum " + std::to_string(event.cum) + " leaves " +
                      std::to_string(event.leaves) + " last " + std::to_string(event.last_qty) +
                      " " + event.text + " " + event.ref.value_or(""));
    }
    return lines;
  }
  /// Each may have been filled, or cancelled by the trader, ahead of the exchange's turn: that of
  /// an exchange that stands still for 400 ms is too late.
  void trades_on_until_one_is_cancelled_unasked() {
    const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
    while (exchange.counter("unsolicited_cancels") == 0 && !deadline.expired()) {
      exchange.control().ok("unsolicited_cancel 4");
      EXPECT_EQ(trades({"--orders", "8", "--rate", "100", "--no-reset"}).status, 0);
    }
    EXPECT_GE(exchange.counter("unsolicited_cancels"), 1u);
  }
  void expect_that_it_believes_the_truth() {
    EXPECT_EQ(events_of(folder.path() + "/events.jsonl"),
              events_of(exchange.simulator().order_truth_path()));
  }

  e2e::Exchange exchange{options()};
  client::TempDirectory folder;
};

TEST_F(TraderTest, trades_until_its_last_order_has_an_end_and_knows_what_became_of_each) {
  const Said said = trades({"--orders", "24", "--rate", "100"});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_EQ(exchange.counter("orders"), 24u);
  EXPECT_GT(exchange.counter("fills"), 0u);
  EXPECT_GT(exchange.counter("cancels"), 0u);
  EXPECT_GT(exchange.counter("replaces"), 0u);
  expect_that_it_believes_the_truth();
  EXPECT_THAT(client::read_file(folder.path() + "/positions.csv"), HasSubstr(",filled,"));
  EXPECT_EQ(client::parse_book_file(client::read_file(folder.path() + "/book.json")).symbols.size(),
            2u);
}

TEST_F(TraderTest, loses_nothing_whatever_the_exchange_does) {
  for (const char* command : {"disconnect", "fill_on_cancel 2", "partial 2", "reject 2",
                              "replace_reject 1", "unsolicited_cancel 4", "drop 3", "dup 2"}) {
    exchange.control().ok(command);
  }
  const Said said = trades({"--orders", "32", "--rate", "100"});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_GE(exchange.counter("logons"), 2u);
  EXPECT_EQ(exchange.counter("rejects"), 2u);
  EXPECT_EQ(exchange.counter("race_fills"), 2u);
  // The counter has those too that come too late, behind a fill.
  EXPECT_EQ(exchange.count_lines("bench: scripted replace reject for "), 1u);
  trades_on_until_one_is_cancelled_unasked();
  expect_that_it_believes_the_truth();
}

TEST_F(TraderTest, tests_a_silent_line_and_logs_on_again) {
  Tool trader("trader", {"--rate", "20"}, environment());
  trader.prints("logged on");
  const size_t from = exchange.simulator().line_count();
  exchange.control().ok("lapse 600000");
  trader.prints("silence: testing the line");
  trader.prints("still silent: dropping the line");
  // The answer to its Logon is swallowed as well.
  exchange.simulator().wait_for_line("bench: logon TRADER", from);
  const size_t before = trader.lines_printed();
  exchange.control().ok("lapse 0");
  trader.prints("nothing is missing any more", before);
  exchange.control().ok("pause");
  trader.signal(SIGTERM);
  EXPECT_EQ(trader.end().status, 0);
  expect_that_it_believes_the_truth();
}

TEST_F(TraderTest, trades_by_its_fills_where_there_is_no_feed) {
  const Said said = trades({"--orders", "16", "--rate", "100", "--no-feed"});
  EXPECT_EQ(said.status, 0) << said.out << said.err;
  EXPECT_GT(exchange.counter("cancels"), 0u);
  expect_that_it_believes_the_truth();
  EXPECT_EQ(client::read_file(folder.path() + "/book.json"), "");
}

TEST_F(TraderTest, goes_on_where_another_start_has_left_the_session) {
  EXPECT_EQ(trades({"--orders", "8", "--rate", "100"}).status, 0);
  const Said said = trades({"--orders", "8", "--rate", "100", "--no-reset"});
  EXPECT_EQ(said.status, 0);
  EXPECT_THAT(said.out, HasSubstr("MsgSeqNum too low"));
  expect_that_it_believes_the_truth();  // of both starts
}

TEST_F(TraderTest, logs_out_at_a_signal_and_leaves_what_rests) {
  Tool trader("trader", {"--rate", "50"}, environment());
  trader.prints("logged on");
  const size_t from = exchange.simulator().line_count();
  trader.signal(SIGTERM);
  EXPECT_EQ(trader.end().status, 0);
  exchange.simulator().wait_for_line("client TRADER logged out", from);
}

TEST(Trader, that_finds_nobody_says_so_and_ends_in_its_time) {
  const client::PortSlot slot;  // on whose ports nobody listens
  const Said said = run_tool("trader", {"--fix-port", std::to_string(slot.ports().fix), "--mcast",
                                        slot.ports().group, "--seconds", "0.4"});
  EXPECT_EQ(said.status, 3);
  EXPECT_THAT(said.out, HasSubstr("Connection refused"));
}

TEST(Trader, refuses_what_is_no_address) {
  EXPECT_EQ(run_tool("trader", {"--host", "localhost"}).status, 2);
  EXPECT_EQ(run_tool("trader", {"--mcast", "10.0.0.1"}).status, 2);
}

}  // namespace
}  // namespace tools_test
