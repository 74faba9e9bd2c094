#include "quorl/client/recovering_fix_client.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/fake_acceptor.h"

namespace quorl::client {
namespace {

using std::chrono::milliseconds;

class RecoveringFixClientTest : public testing::Test {
 protected:
  void SetUp() override {
    client.log_on();
    acceptor.accept();
    acceptor.hears_body("A");
    acceptor.sends("35=A|34=1|98=0|108=30");
    pump();
  }

  /// Takes over all that the acceptor has sent; it is all here, as both ends are on one machine.
  void pump() { client.pump(milliseconds(1000)); }

  void report(int seq, const std::string& cl_ord_id, int exec_number) {
    acceptor.sends("35=8|34=" + std::to_string(seq) + "|" +
                   fix_body::accepted(cl_ord_id, exec_number));
  }

  void replay(int seq, const std::string& cl_ord_id, int exec_number) {
    acceptor.sends("35=8|34=" + std::to_string(seq) + "|" + fix_body::REPLAYED +
                   fix_body::accepted(cl_ord_id, exec_number));
  }

  FakeAcceptor acceptor;
  RecoveringFixClient client{acceptor.port(), "ALPHA"};
};

TEST_F(RecoveringFixClientTest, what_a_gap_left_out_is_asked_for_and_filled) {
  report(2, "a1", 1);
  acceptor.sends("35=0|34=6");
  client.pump(milliseconds(1000));
  if (client.missing().empty()) pump();  // the two may come in two pieces
  EXPECT_EQ(client.missing(), (std::set<uint32_t>{3, 4, 5}));

  // Sent ahead: the client reads it once it has asked.
  replay(3, "a2", 2);
  acceptor.sends("35=4|34=4|43=Y|123=Y|36=5");
  replay(5, "a3", 3);
  acceptor.sends("35=0|34=7|112=recover-1");
  client.recover();
  EXPECT_TRUE(client.complete());
  EXPECT_EQ(client.exec_ids(), (std::vector<std::string>{"E1", "E2", "E3"}));
  EXPECT_EQ(client.replays_received(), 2u);
}

TEST_F(RecoveringFixClientTest, the_request_names_the_first_and_the_last_missing_number) {
  acceptor.sends("35=0|34=5");
  pump();
  EXPECT_FALSE(client.run_until([] { return false; }, milliseconds(20)));
  EXPECT_EQ(acceptor.hears_body("2"), "7=2|16=4|");
  EXPECT_FALSE(acceptor.hears_more()) << "it asks again only after a while";
}

TEST_F(RecoveringFixClientTest, a_report_that_comes_twice_is_kept_once) {
  report(2, "a1", 1);
  replay(2, "a1", 1);
  acceptor.sends("35=0|34=3|112=recover-1");
  client.recover();
  EXPECT_EQ(client.reports().size(), 1u);
}

TEST_F(RecoveringFixClientTest, a_replay_that_differs_is_refused) {
  report(2, "a1", 1);
  replay(2, "a2", 1);
  acceptor.sends("35=0|34=3|112=recover-1");
  EXPECT_THROW(client.recover(), WireError);
}

TEST_F(RecoveringFixClientTest, an_exec_id_under_two_numbers_is_refused) {
  report(2, "a1", 1);
  report(3, "a2", 1);
  acceptor.sends("35=0|34=4|112=recover-1");
  EXPECT_THROW(client.recover(), WireError);
}

TEST_F(RecoveringFixClientTest, a_gap_fill_over_a_report_is_refused) {
  report(2, "a1", 1);
  acceptor.sends("35=4|34=2|43=Y|123=Y|36=3");
  acceptor.sends("35=0|34=3|112=recover-1");
  EXPECT_THROW(client.recover(), WireError);
}

TEST_F(RecoveringFixClientTest, a_number_used_twice_without_the_mark_is_refused) {
  report(2, "a1", 1);
  report(2, "a1", 1);
  acceptor.sends("35=0|34=3|112=recover-1");
  EXPECT_THROW(client.recover(), WireError);
}

TEST_F(RecoveringFixClientTest, it_comes_back_with_its_next_number_after_the_connection_is_gone) {
  acceptor.close();
  EXPECT_TRUE(client.run_until([this] { return client.logons() == 2; }));
  acceptor.accept();
  const FixMessage logon = acceptor.hears();
  EXPECT_EQ(logon.type(), "A");
  EXPECT_EQ(logon.seq(), 2u);
  EXPECT_FALSE(logon.has(141));
}

TEST_F(RecoveringFixClientTest, the_exchanges_own_request_is_answered_by_one_gap_fill_to_the_top) {
  client.session().next_out = 9;
  acceptor.sends("35=2|34=2|7=4|16=8");
  pump();
  const FixMessage answer = acceptor.hears();
  EXPECT_EQ(answer.type(), "4");
  EXPECT_EQ(answer.seq(), 4u);
  EXPECT_EQ(answer.get(43), "Y");
  EXPECT_EQ(answer.body(), (FixFields{{123, "Y"}, {36, "9"}}));
  EXPECT_EQ(client.session().next_out, 9u);
}

TEST_F(RecoveringFixClientTest, a_refused_logon_is_told) {
  acceptor.sends("35=5|34=2|58=Logon rejected: MsgSeqNum too low, expecting 7 but received 1");
  EXPECT_THROW(pump(), WireError);
}

}  // namespace
}  // namespace quorl::client
