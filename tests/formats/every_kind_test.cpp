// A run in which the exchange says everything that it can say. It leaves what was said behind, for
// the checks of the published formats: messages.txt, orders.jsonl, market.jsonl, book.json.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "quorl/client/errors.h"
#include "quorl/client/fix_session.h"
#include "quorl/client/json_lines.h"
#include "quorl/client/temp_directory.h"
#include "tests/e2e/support/exchange.h"

namespace client = quorl::client;

namespace formats {
namespace {

using client::FixSession;
using e2e::Exchange;

client::SimulatorOptions with_all_files() {
  client::SimulatorOptions options = e2e::still();
  options.order_truth = true;
  options.market_truth = true;
  options.book_file = true;
  return options;
}

/// Two clients of an exchange in whose AAPL only they trade.
struct TwoClients {
  TwoClients() {
    exchange.empty_book("AAPL");
    for (FixSession* session : {&alpha, &beta}) session->continuity = client::Continuity::TRACK;
    alpha.logon({.reset = true});
    beta.logon();
  }

  Exchange exchange{with_all_files()};
  FixSession alpha = exchange.session("ALPHA");
  FixSession beta = exchange.session("BETA");
  FixSession gamma = exchange.session("GAMMA");
};

void fills(TwoClients& run) {
  run.alpha.new_order({.cl_ord_id = "a1", .quantity = "500", .price = "190"});
  run.alpha.hears("35=8|150=0|44=190");
  run.beta.new_order({.cl_ord_id = "b1", .side = "2", .quantity = "200", .price = "190"});
  run.alpha.hears("35=8|150=1|851=1|9730=ML");
  run.beta.new_order({.cl_ord_id = "b2", .side = "2", .quantity = "400", .price = "190"});
  run.alpha.hears("35=8|150=2");
  run.beta.hears("35=8|150=0");
  run.beta.hears("35=8|150=2|851=2|9730=TL");
  run.beta.hears("35=8|150=0");
  run.beta.hears("35=8|150=1|151=100");
  run.beta.cancel({.cl_ord_id = "b2c", .orig_cl_ord_id = "b2", .side = "2"});
  run.beta.hears("35=8|150=4|41=b2");
}

void orders_that_do_not_rest(TwoClients& run) {
  run.alpha.new_order({.cl_ord_id = "m1", .type = "1"});
  run.alpha.hears("35=8|150=0|40=1");
  run.alpha.hears("35=8|150=4|58=UnmatchedIOC");
  run.alpha.new_order({.cl_ord_id = "i1", .price = "180", .tif = "3"});
  run.alpha.hears("35=8|150=0|59=3");
  run.alpha.hears("35=8|150=4|58=UnmatchedIOC");
  run.alpha.new_order({.cl_ord_id = "k1", .price = "180", .tif = "4", .capacity = "A"});
  run.alpha.hears("35=8|150=0|59=4");
  run.alpha.hears("35=8|150=4|58=UnmatchedIOC");
  for (const std::string side : {"5", "6"}) {
    run.alpha.new_order({.cl_ord_id = "s" + side,
                         .side = side,
                         .price = "200",
                         .tif = "3",
                         .capacity = "R",
                         .locate = "N"});
    run.alpha.hears("35=8|150=0|54=" + side);
    run.alpha.hears("35=8|150=4|58=UnmatchedIOC");
  }
}

void replaces(TwoClients& run) {
  run.alpha.new_order({.cl_ord_id = "r1", .quantity = "300", .price = "180"});
  run.alpha.hears("35=8|150=0");
  run.beta.new_order({.cl_ord_id = "b3", .side = "2", .quantity = "200", .price = "185.5"});
  run.beta.hears("35=8|150=0");
  run.alpha.replace(
      {.cl_ord_id = "r2", .orig_cl_ord_id = "r1", .quantity = "300", .price = "185.5"});
  const client::FixMessage replaced = run.alpha.hears("35=8|150=5|11=r2|41=r1|151=100|14=200");
  EXPECT_GT(replaced.seq(), run.alpha.hears("35=8|150=1|11=r2").seq()) << "it overtakes its fill";

  const auto refused = [&run](const client::ChangeOrder& replace, const std::string& with) {
    run.alpha.replace(replace);
    run.alpha.hears("35=9|434=2|" + with);
  };
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "r2", .quantity = "200"}, "39=1|102=2");
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "r2", .quantity = "0"}, "39=0|102=2");
  refused({.cl_ord_id = "r2", .orig_cl_ord_id = "r2", .quantity = "400"}, "39=0|102=2");
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "r1", .quantity = "400"}, "39=2|102=0");
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "none", .quantity = "400"}, "39=8|102=1");
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "r2", .quantity = "400", .price = "-1"},
          "58=InvalidPrice");
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "r2", .side = "2", .quantity = "400"},
          "58=Side / Symbol must match the original");
  run.exchange.control().ok("replace_reject");
  refused({.cl_ord_id = "r3", .orig_cl_ord_id = "r2", .quantity = "400"},
          "58=bench:scripted_replace_reject");
  run.alpha.cancel({.cl_ord_id = "r4", .orig_cl_ord_id = "r2"});
  run.alpha.hears("35=8|150=4|14=200");
}

void cancels_that_fail(TwoClients& run) {
  run.alpha.new_order({.cl_ord_id = "c1", .price = "180"});
  run.alpha.hears("35=8|150=0");
  run.exchange.control().ok("fill_on_cancel");
  run.alpha.cancel({.cl_ord_id = "c2", .orig_cl_ord_id = "c1"});
  run.alpha.hears("35=8|150=2");
  EXPECT_NE(run.alpha.hears("35=9|434=1|39=2|102=0").get(37), "NONE");
  run.alpha.cancel({.cl_ord_id = "c3", .orig_cl_ord_id = "c1"});
  run.alpha.hears("35=9|434=1|39=2|102=0|37=NONE");
  run.alpha.cancel({.cl_ord_id = "c4", .orig_cl_ord_id = "none"});
  run.alpha.hears("35=9|434=1|39=8|102=1");
}

void a_cancel_that_nobody_asked_for(TwoClients& run) {
  run.exchange.control().ok("unsolicited_cancel");
  run.alpha.new_order({.cl_ord_id = "u1", .price = "180"});
  run.alpha.hears("35=8|150=0");
  run.alpha.hears("35=8|150=4|11=u1|41=u1|58=AdminCancel");
}

void refused_orders(TwoClients& run) {
  const auto refused = [&run](const client::NewOrder& order, const std::string& with) {
    run.alpha.new_order(order);
    run.alpha.hears("35=8|150=8|37=NONE|" + with);
  };
  refused({.cl_ord_id = "a-name-of-21-letters-", .price = "180"}, "103=0");
  refused({.cl_ord_id = "n", .symbol = "NONE", .price = "180"}, "103=1");
  refused({.cl_ord_id = "n", .quantity = "0", .price = "180"}, "103=3");
  refused({.cl_ord_id = "n", .side = "7", .price = "180"}, "58=BrokerOption: invalid Side");
  refused({.cl_ord_id = "n", .side = "", .price = "180"}, "54= ");
  refused({.cl_ord_id = "n", .side = "5", .price = "180"}, "58=MissingLocate");
  refused({.cl_ord_id = "n", .price = "180", .exec_inst = "G"}, "58=InvalidExecInst");
  refused({.cl_ord_id = "n", .type = "3", .price = "180"}, "58=InvalidExecInst");
  refused({.cl_ord_id = "n", .price = "180.001"}, "58=InvalidPrice");
  refused({.cl_ord_id = "n", .price = "180", .tif = "1"}, "58=OrderInvalidInCurrentMarketSession");
  refused({.cl_ord_id = "n", .type = "1", .tif = "6"}, "58=InvalidTagCombinationForMarketOrder");
  refused({.cl_ord_id = "n", .price = "180", .capacity = "I"},
          "58=BrokerOption: invalid OrderCapacity");
  run.exchange.control().ok("reject");
  refused({.cl_ord_id = "n", .price = "180"}, "58=bench:scripted_reject");
  run.alpha.new_order({.cl_ord_id = "d1", .price = "180"});
  run.alpha.hears("35=8|150=0");
  refused({.cl_ord_id = "d1", .price = "180"},
          "58=BrokerOption: duplicate ClOrdID among live orders");
}

void session_messages(TwoClients& run) {
  run.alpha.test_request("are you there");
  run.alpha.hears("35=0|112=are you there");
  run.alpha.test_request("");
  const auto plain = run.alpha.receive();
  ASSERT_TRUE(plain);
  EXPECT_EQ(plain->type(), "0");
  run.alpha.send_message("Q", {});
  run.alpha.hears("35=3|373=11");
  run.alpha.next_out += 2;
  run.alpha.heartbeat();
  run.alpha.hears("35=2");

  // Of alpha's: both kinds of application messages, and a number that none of them has.
  run.alpha.resend_request("1", "0");
  unsigned replays = 0;
  unsigned gap_fills = 0;
  for (const client::FixMessage& message : run.alpha.drain()) {
    ++(message.type() == "4" ? gap_fills : replays);
    EXPECT_TRUE(message.is_possible_duplicate()) << message.text();
  }
  EXPECT_GT(replays, 40u);
  EXPECT_GE(gap_fills, 2u);
  run.alpha.logout();

  run.gamma.connect();
  run.gamma.send_message("A", {}, {.target = "NOBODY"});
  run.gamma.hears("35=5|58=Logon rejected: TargetCompID 'NOBODY' is not IEXG");
}

/// A request without a ClOrdID is answered with an empty 11. No engine sends the one or takes the
/// other: what this client hears is not left for the checks, but its line is.
void a_replace_without_a_name(TwoClients& run) {
  FixSession delta = run.exchange.logs_on("DELTA");
  delta.replace({.orig_cl_ord_id = "none", .quantity = "400"});
  delta.hears("35=9|434=2|11=|39=8|102=2");
}

/// The book file is written four times a second: the one that tells of a trade.
std::string book_file_with_a_trade(const client::Simulator& simulator) {
  const client::Deadline deadline = client::Deadline::after(client::PATIENCE);
  for (;;) {
    std::string content = client::read_file(simulator.book_path());
    if (!content.empty() && client::parse_book_file(content).symbols.front().volume > 0) {
      return content;
    }
    if (deadline.expired()) throw client::Timeout("no book file tells of the trades");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void leave(const std::string& name, const std::string& content) {
  std::ofstream file(std::string(QUORL_RUN_DIRECTORY) + "/" + name, std::ios::binary);
  file << content;
  ASSERT_TRUE(file.flush()) << name;
}

TEST(EveryKind, is_sent_and_written_down_for_the_formats_to_be_checked_by) {
  TwoClients run;
  fills(run);
  orders_that_do_not_rest(run);
  replaces(run);
  cancels_that_fail(run);
  a_cancel_that_nobody_asked_for(run);
  refused_orders(run);
  session_messages(run);
  a_replace_without_a_name(run);
  run.exchange.control().ok("mark a-label");
  run.exchange.control().ok("mark");
  std::string messages;
  for (const FixSession* session : {&run.alpha, &run.beta, &run.gamma}) {
    for (const client::FixMessage& message : session->received()) messages += message.raw() + "\n";
  }
  std::filesystem::create_directories(QUORL_RUN_DIRECTORY);
  const client::Simulator& simulator = run.exchange.simulator();
  leave("messages.txt", messages);
  leave("orders.jsonl", client::read_file(simulator.order_truth_path()));
  leave("market.jsonl", client::read_file(simulator.market_truth_path()));
  leave("book.json", book_file_with_a_trade(simulator));
}

}  // namespace
}  // namespace formats
