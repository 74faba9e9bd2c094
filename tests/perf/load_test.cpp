#include "perf/load.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/client/fake_acceptor.h"
#include "tests/client/fake_feed.h"

namespace client = quorl::client;

namespace perf {
namespace {

class LoadSession : public testing::Test {
 protected:
  void SetUp() override {
    session.connect(acceptor.port());
    acceptor.accept();
    acceptor.sends("35=A|34=1|98=0|108=3600|141=Y");
    session.log_on();
    acceptor.hears();
  }

  static std::string report(int seq, const std::string& cl_ord_id, char exec_type) {
    return "35=8|34=" + std::to_string(seq) + "|37=7|11=" + cl_ord_id +
           "|17=E1|20=0|150=" + std::string(1, exec_type) + "|39=0";
  }

  FakeAcceptor acceptor{"PERF"};
  Session session{"PERF", Waiting::SLEEPING};
};

TEST_F(LoadSession, an_order_carries_all_that_a_limit_order_needs) {
  acceptor.sends(report(2, "R0000000", '0'));
  session.new_order({.side = SELL, .price_cents = 19005, .quantity = 300}, ACCEPTED);
  session.exchange();
  EXPECT_EQ(acceptor.hears_body("D"),
            "11=R0000000|55=AAPL|54=2|38=300|40=2|44=190.05|59=0|18=i|47=P|"
            "60=20260101-00:00:00.000|");
}

TEST_F(LoadSession, an_order_without_a_price_is_a_market_order) {
  acceptor.sends(report(2, "R0000000", '0'));
  session.new_order({}, ACCEPTED);
  session.exchange();
  EXPECT_EQ(acceptor.hears_body("D"),
            "11=R0000000|55=AAPL|54=1|38=100|40=1|59=0|18=i|47=P|60=20260101-00:00:00.000|");
}

TEST_F(LoadSession, a_cancel_names_its_order_and_has_an_id_of_its_own) {
  acceptor.sends(report(2, "R0000000", '0'));
  acceptor.sends(report(3, "R0000001", '4'));
  session.cancel(session.new_order({.price_cents = 100}, ACCEPTED));
  session.exchange();
  EXPECT_EQ(acceptor.hears().type(), "D");
  EXPECT_EQ(acceptor.hears_body("F"),
            "11=R0000001|41=R0000000|55=AAPL|54=1|60=20260101-00:00:00.000|");
}

TEST_F(LoadSession, nothing_leaves_before_it_is_sent) {
  session.new_order({}, ACCEPTED);
  EXPECT_EQ(session.queued(), 1u);
  EXPECT_FALSE(acceptor.hears_more());
  session.send();
  EXPECT_EQ(session.queued(), 0u);
  EXPECT_EQ(acceptor.hears().type(), "D");
}

TEST_F(LoadSession, another_exec_type_than_the_one_owed_is_wrong) {
  acceptor.sends(report(2, "R0000000", '8'));
  session.new_order({}, ACCEPTED);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_fill_ahead_of_the_acceptance_is_wrong) {
  acceptor.sends(report(2, "R0000000", '2'));
  acceptor.sends(report(3, "R0000000", '0'));
  session.new_order({}, ACCEPTED_AND_FILLED);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_report_for_another_order_is_wrong) {
  acceptor.sends(report(2, "R0000001", '0'));
  session.new_order({}, ACCEPTED);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_second_acceptance_is_wrong) {
  acceptor.sends(report(2, "R0000000", '0'));
  acceptor.sends(report(3, "R0000000", '0'));
  session.new_order({}, ACCEPTED);
  session.new_order({}, ACCEPTED);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_number_left_out_is_wrong) {
  acceptor.sends(report(3, "R0000000", '0'));
  session.new_order({}, ACCEPTED);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_cancel_reject_is_wrong) {
  acceptor.sends("35=9|34=2|37=NONE|11=R0000000|41=R0000000|39=8|102=1|434=1|58=Unknown order");
  session.cancel(0);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_connection_that_ends_with_replies_owed_is_wrong) {
  session.new_order({}, ACCEPTED);
  session.send();
  acceptor.close();
  EXPECT_THROW(session.await_replies(), WrongReply);
}

TEST_F(LoadSession, what_is_no_message_is_wrong) {
  acceptor.sends_bytes("HTTP/1.1 200 OK\x01");
  session.new_order({}, ACCEPTED);
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_heartbeat_that_nobody_asked_for_settles_nothing) {
  acceptor.sends("35=0|34=2");
  acceptor.sends(report(3, "R0000000", '8'));
  session.new_order({}, ACCEPTED);
  EXPECT_THROW(session.exchange(), WrongReply);  // it went on to the report
  EXPECT_EQ(session.heartbeats(), 1u);
}

TEST_F(LoadSession, the_answer_to_a_test_request_settles_it) {
  acceptor.sends("35=0|34=2|112=now");
  session.test_request();
  session.exchange();
  EXPECT_EQ(acceptor.hears_body("1"), "112=now|");
  EXPECT_EQ(session.heartbeats(), 0u);
}

TEST_F(LoadSession, a_later_fill_of_a_resting_order_is_owed_only_once_it_is_announced) {
  acceptor.sends(report(2, "R0000000", '0'));
  const RequestId order = session.new_order({}, ACCEPTED);
  session.exchange();
  session.will_hear(order, PARTLY_FILLED[0]);
  acceptor.sends(report(3, "R0000000", '1'));
  session.exchange();
  acceptor.sends(report(4, "R0000000", '1'));
  session.test_request();
  EXPECT_THROW(session.exchange(), WrongReply);
}

TEST_F(LoadSession, a_sweep_lets_any_number_of_partial_fills_through) {
  acceptor.sends(report(2, "R0000000", '0'));
  acceptor.sends(report(3, "R0000000", '1'));
  acceptor.sends(report(4, "R0000000", '1'));
  acceptor.sends(report(5, "R0000000", '4'));
  session.sweep(BUY);
  EXPECT_EQ(acceptor.hears().type(), "D");
}

TEST_F(LoadSession, a_message_in_pieces_is_read_as_one) {
  const std::string whole =
      client::compose_fix({.type = "8", .seq = "2", .sender = "IEXG", .target = "PERF"},
                          client::fix_fields("37=7|11=R0000000|17=E1|20=0|150=0|39=0"));
  acceptor.sends_bytes(whole.substr(0, 11));
  acceptor.sends_bytes(whole.substr(11));
  session.new_order({}, ACCEPTED);
  session.exchange();
  session.new_order({}, ACCEPTED);
  acceptor.sends(report(3, "R0000001", '0'));
  session.exchange();
}

TEST_F(LoadSession, everything_again_counts_replays_and_steps_over_gap_fills) {
  acceptor.sends(report(2, "R0000000", '0'));
  session.new_order({}, ACCEPTED);
  session.exchange();
  acceptor.sends("35=4|34=1|43=Y|123=Y|36=2");
  acceptor.sends("35=8|34=2|43=Y|37=7|11=R0000000|150=0");
  EXPECT_EQ(session.fetch_again(1, 2), 1u);
}

TEST_F(LoadSession, a_replay_left_out_is_wrong) {
  acceptor.sends(report(2, "R0000000", '0'));
  session.new_order({}, ACCEPTED);
  session.exchange();
  acceptor.sends("35=8|34=2|43=Y|37=7|11=R0000000|150=0");
  EXPECT_THROW(session.fetch_again(1, 2), WrongReply);
}

TEST_F(LoadSession, the_next_burst_waits_for_every_reply_to_the_one_before) {
  FakeFeed exchange_feed;
  FeedCounter feed(exchange_feed.ports());
  acceptor.sends(report(2, "R0000000", '0'));
  acceptor.sends(report(3, "R0000001", '0'));
  acceptor.close();  // nobody answers the second burst
  const auto queue = [&](size_t) { session.new_order({}, ACCEPTED); };
  EXPECT_THROW(send_in_bursts(session, feed, 3, 2, queue), WrongReply);
  EXPECT_EQ(session.requests(), 3u);
}

TEST(FeedCounter, counts_packets_and_messages_but_no_heartbeats) {
  FakeFeed exchange_feed;
  FeedCounter feed(exchange_feed.ports());
  exchange_feed.bid(1000000, 100);
  exchange_feed.bid(1000100, 100);
  exchange_feed.sends(exchange_feed.packet());
  exchange_feed.sends(exchange_feed.heartbeat());
  exchange_feed.bid(1000000, 0);
  exchange_feed.sends(exchange_feed.packet());
  feed.await_packets(2);
  EXPECT_EQ(feed.packets(), 2u);
  EXPECT_EQ(feed.messages(), 3u);
}

TEST(FeedCounter, a_packet_left_out_is_wrong) {
  FakeFeed exchange_feed;
  FeedCounter feed(exchange_feed.ports());
  exchange_feed.bid(1000000, 100);
  exchange_feed.sends(exchange_feed.packet());
  feed.await_packets(1);
  exchange_feed.bid(1000000, 200);
  exchange_feed.packet();
  exchange_feed.bid(1000000, 300);
  exchange_feed.sends(exchange_feed.packet());
  EXPECT_THROW(feed.await_packets(2), WrongReply);
}

}  // namespace
}  // namespace perf
