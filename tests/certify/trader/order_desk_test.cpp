#include "certify/trader/order_desk.h"

#include <gtest/gtest.h>

#include "quorl/client/fix_message.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using std::chrono::milliseconds;

class OrderDeskTest : public testing::Test {
 protected:
  Order& sends(const std::string& name) {
    return desk.add({.name = name, .symbol = "AAPL", .quantity = 500, .sent = now});
  }
  /// What is not given is as in an acknowledgement.
  bool hears(const std::string& fields, uint32_t seq) {
    client::FixFields all = client::fix_fields(fields);
    const client::FixMessage given(all);
    const auto otherwise = [&](int tag, const std::string& value) {
      if (!given.has(tag)) all.push_back({tag, value});
    };
    otherwise(35, "8");
    if (given.find(35).value_or("8") == "8") {
      otherwise(17, "E" + std::to_string(seq));
      otherwise(55, "AAPL");
      otherwise(54, "1");
      otherwise(38, "500");
      otherwise(31, "0");
      otherwise(14, "0");
      otherwise(6, "0");
    }
    otherwise(37, "1120");
    return desk.on_report(client::FixMessage(all), {1, seq}, now);
  }

  Moment now = Moment{} + std::chrono::hours(1);
  OrderDesk desk;
};

TEST_F(OrderDeskTest, an_order_lives_once_it_is_acknowledged_and_is_filled_at_the_end) {
  const Order& order = sends("o1");
  EXPECT_EQ(order.state, Order::State::SENT);
  hears("11=o1|150=0|151=500", 2);
  EXPECT_EQ(order.state, Order::State::LIVE);
  hears("11=o1|150=1|32=300|31=190|151=200|14=300|6=190", 3);
  EXPECT_EQ(order.cum, 300u);
  EXPECT_EQ(desk.open_count(), 1u);
  hears("11=o1|150=2|32=200|31=190.01|151=0|14=500|6=190.004", 4);
  EXPECT_EQ(order.state, Order::State::FILLED);
  EXPECT_EQ(order.average, "190.004");
  EXPECT_EQ(desk.open_count(), 0u);
  EXPECT_EQ(desk.last_price("AAPL"), 1900100);
}

TEST_F(OrderDeskTest, a_report_counts_once_by_its_exec_id) {
  const Order& order = sends("o1");
  EXPECT_TRUE(hears("11=o1|150=1|17=E2|32=300|151=200|14=300", 3));
  EXPECT_FALSE(hears("11=o1|150=1|17=E2|32=300|151=200|14=300", 9));
  EXPECT_EQ(order.place.seq, 3u);
}

TEST_F(OrderDeskTest, a_replaced_that_overtakes_its_fills_is_not_undone_by_them) {
  Order& order = sends("o1");
  hears("11=o1|150=0|151=500", 2);
  desk.note_request(order, {"o2", "G", now});
  hears("11=o2|41=o1|150=5|151=0|14=500|6=190.004", 6);
  EXPECT_EQ(order.state, Order::State::FILLED);
  EXPECT_FALSE(order.request);
  hears("11=o2|150=1|32=300|31=190|151=200|14=300", 3);
  hears("11=o2|150=1|32=100|31=190|151=100|14=400", 4);
  hears("11=o2|150=2|32=100|31=190|151=0|14=500", 5);
  EXPECT_EQ(order.state, Order::State::FILLED);
  EXPECT_EQ(order.name, "o2");
  EXPECT_EQ(order.cum, 500u);
  EXPECT_EQ(desk.orders().size(), 1u);
}

TEST_F(OrderDeskTest, a_cancel_ends_the_order_under_its_own_name) {
  Order& order = sends("o1");
  hears("11=o1|150=0|151=500", 2);
  desk.note_request(order, {"c1", "F", now});
  hears("11=c1|41=o1|150=4|151=0", 3);
  EXPECT_EQ(order.state, Order::State::CANCELLED);
  EXPECT_EQ(order.name, "o1");
}

TEST_F(OrderDeskTest, a_refused_request_leaves_the_order_as_it_was) {
  Order& order = sends("o1");
  hears("11=o1|150=0|151=500", 2);
  desk.note_request(order, {"o2", "G", now});
  hears("35=9|11=o2|41=o1|39=0|102=2|434=2", 3);
  EXPECT_EQ(order.state, Order::State::LIVE);
  EXPECT_EQ(order.name, "o1");
  EXPECT_FALSE(order.request);
}

TEST_F(OrderDeskTest, an_order_that_the_exchange_does_not_know_is_left_alone) {
  Order& order = sends("o1");
  hears("11=o1|150=0|151=500", 2);
  desk.note_request(order, {"c1", "F", now});
  hears("35=9|11=c1|41=o1|39=8|102=1|434=1", 3);
  EXPECT_EQ(order.state, Order::State::LOST);
  EXPECT_EQ(desk.open_count(), 0u);
}

TEST_F(OrderDeskTest, what_is_unanswered_when_all_is_settled_never_arrived) {
  Order& lost = sends("o1");
  Order& asked = sends("o2");
  hears("11=o2|150=0|151=500", 2);
  desk.note_request(asked, {"c1", "F", now});
  EXPECT_EQ(desk.unanswered_since(), now);
  desk.settle(now);
  EXPECT_EQ(lost.state, Order::State::SENT);
  desk.settle(now + milliseconds(1));
  EXPECT_EQ(lost.state, Order::State::LOST);
  EXPECT_EQ(asked.state, Order::State::LIVE);
  EXPECT_FALSE(asked.request);
  EXPECT_FALSE(desk.unanswered_since());
  hears("11=o1|150=0|151=500", 3);
  EXPECT_EQ(lost.state, Order::State::LIVE) << "a line had held it back";
  EXPECT_EQ(desk.open_count(), 2u);
}

TEST_F(OrderDeskTest, the_refusal_of_a_second_order_under_its_name_does_not_touch_the_first) {
  const Order& order = sends("o1");
  hears("11=o1|150=0|151=500", 2);
  hears("11=o1|150=8|151=0", 3);
  EXPECT_EQ(order.state, Order::State::LIVE);
  EXPECT_EQ(order.leaves, 500u);
}

TEST_F(OrderDeskTest, an_order_of_an_earlier_start_is_taken_in) {
  hears("11=x9|41=x1|150=5|151=200|14=300|44=190", 7);
  ASSERT_EQ(desk.orders().size(), 1u);
  EXPECT_EQ(desk.orders()[0].cum, 300u);
  EXPECT_EQ(desk.find("x1"), desk.find("x9"));
}

}  // namespace
}  // namespace certify::trader
