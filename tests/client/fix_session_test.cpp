#include "quorl/client/fix_session.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/fake_acceptor.h"

namespace quorl::client {
namespace {

using std::chrono::milliseconds;

class FixSessionTest : public testing::Test {
 protected:
  void SetUp() override {
    session.connect();
    acceptor.accept();
  }

  void logs_on() {
    acceptor.sends("35=A|34=1|98=0|108=30");
    session.logon();
    acceptor.hears();
  }

  FakeAcceptor acceptor;
  FixSession session{acceptor.port(), "ALPHA"};
};

TEST_F(FixSessionTest, a_logon_carries_its_fields_and_checks_the_echo) {
  acceptor.sends("35=A|34=1|98=0|108=30");
  session.logon();
  const FixMessage logon = acceptor.hears();
  EXPECT_EQ(logon.tags(), (std::vector<int>{8, 9, 35, 34, 49, 56, 52, 98, 108, 10}));
  EXPECT_EQ(logon.get(49), "ALPHA");
  EXPECT_EQ(logon.get(56), "IEXG");
  EXPECT_EQ(session.next_out, 2u);
  EXPECT_EQ(session.next_in, 2u);
}

TEST_F(FixSessionTest, a_logon_reply_with_another_interval_is_refused) {
  acceptor.sends("35=A|34=1|98=0|108=31");
  EXPECT_THROW(session.logon(), WireError);
}

TEST_F(FixSessionTest, a_reset_starts_both_numbers_over_and_is_echoed) {
  session.next_out = 9;
  session.next_in = 12;
  acceptor.sends("35=A|34=1|98=0|108=30|141=Y");
  session.logon({.reset = true});
  const FixMessage logon = acceptor.hears();
  EXPECT_EQ(logon.seq(), 1u);
  EXPECT_EQ(logon.get(141), "Y");
  EXPECT_EQ(session.next_in, 2u);
}

TEST_F(FixSessionTest, orders_and_changes_carry_what_they_are_given_and_nothing_empty) {
  session.new_order({.cl_ord_id = "a1", .price = "190.5"});
  EXPECT_EQ(acceptor.hears_body("D"), "11=a1|55=AAPL|54=1|38=100|40=2|44=190.5|59=0|18=i|47=P|");
  session.cancel({.cl_ord_id = "a2", .orig_cl_ord_id = "a1"});
  EXPECT_EQ(acceptor.hears_body("F"), "11=a2|41=a1|55=AAPL|54=1|");
  session.replace({.cl_ord_id = "a2", .orig_cl_ord_id = "a1", .quantity = "60", .price = "1"});
  EXPECT_EQ(acceptor.hears_body("G"), "11=a2|41=a1|55=AAPL|54=1|38=60|44=1|");
  EXPECT_EQ(session.next_out, 4u);
}

TEST_F(FixSessionTest, overrides_replace_the_header_and_do_not_take_a_number) {
  session.send_message("0", {},
                       {.seq = "77", .sender = "X", .target = "Y", .header_extra = {{43, "Y"}}});
  const FixMessage message = acceptor.hears();
  EXPECT_EQ(message.seq(), 77u);
  EXPECT_EQ(message.get(49), "X");
  EXPECT_EQ(message.get(56), "Y");
  EXPECT_EQ(message.get(43), "Y");
  EXPECT_EQ(session.next_out, 1u);
}

TEST_F(FixSessionTest, expect_passes_over_plain_heartbeats_only) {
  logs_on();
  acceptor.sends("35=0|34=2");
  acceptor.sends("35=8|34=3|" + fix_body::accepted("a1", 1));
  EXPECT_EQ(session.expect("8").get(11), "a1");
  acceptor.sends("35=0|34=4|112=x");
  EXPECT_THROW(session.expect("8"), WireError);
}

TEST_F(FixSessionTest, hears_compares_the_fields_named) {
  logs_on();
  acceptor.sends("35=8|34=2|" + fix_body::accepted("a1", 1));
  EXPECT_NO_THROW(session.hears("35=8|150=0|11=a1"));
  acceptor.sends("35=8|34=3|" + fix_body::accepted("a2", 2));
  EXPECT_THROW(session.hears("35=8|150=0|11=a1"), WireError);
}

TEST_F(FixSessionTest, silence_ends_at_the_deadline) {
  logs_on();
  EXPECT_FALSE(session.receive(milliseconds(0)).has_value());
  EXPECT_THROW(session.next(milliseconds(0)), Timeout);
}

TEST_F(FixSessionTest, a_drain_returns_what_came_before_the_answer) {
  logs_on();
  acceptor.sends("35=8|34=2|" + fix_body::accepted("a1", 1));
  acceptor.sends("35=0|34=3|112=barrier-1");
  acceptor.sends("35=8|34=4|" + fix_body::accepted("a2", 2));
  const std::vector<FixMessage> before = session.drain();
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(before[0].get(11), "a1");
  EXPECT_EQ(acceptor.hears_body("1"), "112=barrier-1|");
  acceptor.sends("35=0|34=5|112=barrier-2");
  EXPECT_THROW(session.hears_nothing(), WireError);
}

TEST_F(FixSessionTest, a_jump_or_a_repeat_of_the_incoming_number_is_refused) {
  logs_on();
  acceptor.sends("35=0|34=3");
  EXPECT_THROW(session.receive(), WireError);
  session.next_in = 4;
  acceptor.sends("35=0|34=3");
  EXPECT_THROW(session.receive(), WireError);
}

TEST_F(FixSessionTest, a_hook_is_told_of_a_jump_instead) {
  logs_on();
  std::vector<std::pair<uint32_t, uint32_t>> jumps;
  session.on_jump = [&](const FixMessage& m, uint32_t due) { jumps.emplace_back(m.seq(), due); };
  acceptor.sends("35=0|34=4");
  acceptor.sends("35=0|34=2");
  session.receive();
  session.receive();
  EXPECT_EQ(jumps, (std::vector<std::pair<uint32_t, uint32_t>>{{4, 2}, {2, 5}}));
  EXPECT_EQ(session.next_in, 5u);
}

TEST_F(FixSessionTest, tracking_notes_the_numbers_left_out_and_strikes_them_off_as_they_come) {
  logs_on();
  session.continuity = Continuity::TRACK;
  acceptor.sends("35=0|34=5");
  session.receive();
  EXPECT_EQ(session.missing(), (std::vector<uint32_t>{2, 3, 4}));
  acceptor.sends("35=0|34=3");
  session.receive();
  EXPECT_EQ(session.missing(), (std::vector<uint32_t>{2, 4}));
  acceptor.sends("35=0|34=3");
  EXPECT_THROW(session.receive(), WireError);
}

TEST_F(FixSessionTest, replays_and_gap_fills_fill_what_is_missing) {
  logs_on();
  session.continuity = Continuity::TRACK;
  acceptor.sends("35=0|34=6");
  acceptor.sends("35=4|34=2|43=Y|123=Y|36=4");
  acceptor.sends("35=8|34=4|" + std::string(fix_body::REPLAYED) + fix_body::accepted("a1", 1));
  for (int i = 0; i < 3; ++i) session.receive();
  EXPECT_EQ(session.missing(), (std::vector<uint32_t>{5}));
  EXPECT_EQ(session.next_in, 7u);
}

TEST_F(FixSessionTest, replays_of_old_numbers_pass_the_strict_check) {
  logs_on();
  acceptor.sends("35=8|34=2|" + fix_body::accepted("a1", 1));
  acceptor.sends("35=8|34=2|" + std::string(fix_body::REPLAYED) + fix_body::accepted("a1", 1));
  session.expect("8");
  EXPECT_TRUE(session.expect("8").is_possible_duplicate());
  EXPECT_EQ(session.next_in, 3u);
}

TEST_F(FixSessionTest, bytes_that_break_the_format_are_refused) {
  acceptor.sends_bytes("8=FIX.4.4\x01");
  EXPECT_THROW(session.receive(), WireError);
}

TEST_F(FixSessionTest, a_message_of_a_broken_layout_is_refused) {
  acceptor.sends("35=A|34=1|108=30|98=0");
  EXPECT_THROW(session.receive(), WireError);
}

TEST_F(FixSessionTest, a_connection_that_ends_inside_a_message_is_refused) {
  acceptor.sends_bytes(
      "8=FIX.4.2\x01"
      "9=5");
  acceptor.close();
  EXPECT_THROW(session.receive(), WireError);
}

TEST_F(FixSessionTest, a_close_is_seen_behind_the_last_message) {
  logs_on();
  acceptor.sends("35=5|34=2");
  acceptor.close();
  session.logout();
  EXPECT_FALSE(session.connected());
}

TEST_F(FixSessionTest, a_message_instead_of_a_close_is_told) {
  logs_on();
  acceptor.sends("35=8|34=2|" + fix_body::accepted("a1", 1));
  acceptor.close();
  EXPECT_THROW(session.expect_closed(), WireError);
}

TEST_F(FixSessionTest, a_close_that_does_not_come_is_a_time_out) {
  logs_on();
  EXPECT_THROW(session.expect_closed(milliseconds(0)), Timeout);
}

TEST_F(FixSessionTest, numbers_go_on_over_the_next_connection) {
  logs_on();
  session.abort();
  session.connect();
  acceptor.accept();
  acceptor.sends("35=A|34=2|98=0|108=30");
  session.logon();
  EXPECT_EQ(acceptor.hears().seq(), 2u);
}

}  // namespace
}  // namespace quorl::client
