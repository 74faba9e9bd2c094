#include "perf/tick_counter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string_view>
#include <vector>

#include "perf/load.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/port_slot.h"
#include "tests/client/hand_made.h"

namespace client = quorl::client;

namespace perf {
namespace {

class TickCounterTest : public testing::Test {
 protected:
  void comes(const std::vector<std::string_view>& symbols) {
    std::vector<client::Bytes> messages;
    for (const std::string_view symbol : symbols) {
      messages.push_back(hand_made::level({.symbol = symbol}));
    }
    counter.take(client::encode_tp_packet(hand_made::header(0, 1), messages));
  }

  client::PortSlot slot;
  TickCounter counter{slot.ports(), 3};
};

TEST(SymbolList, lists_as_many_as_asked_for) { EXPECT_EQ(symbol_list(3), "S0:190,S1:190,S2:190"); }

TEST_F(TickCounterTest, a_tick_has_ended_when_the_last_symbol_shows) {
  comes({"S0", "S0", "S1"});
  EXPECT_EQ(counter.ticks(), 0u);
  comes({"S1", "S2"});
  EXPECT_EQ(counter.ticks(), 1u);
}

TEST_F(TickCounterTest, more_of_the_last_symbol_is_no_further_tick) {
  comes({"S0", "S1", "S2", "S2"});
  comes({"S2"});
  EXPECT_EQ(counter.ticks(), 1u);
}

TEST_F(TickCounterTest, two_ticks_in_one_packet_are_two) {
  comes({"S0", "S1", "S2", "S0", "S1", "S2"});
  EXPECT_EQ(counter.ticks(), 2u);
}

TEST_F(TickCounterTest, a_message_of_no_book_counts_for_nothing) {
  counter.take(client::encode_tp_packet(
      hand_made::header(0, 1), {hand_made::system_event('O'), hand_made::directory("S2")}));
  EXPECT_EQ(counter.ticks(), 0u);
}

TEST_F(TickCounterTest, a_symbol_of_another_list_is_wrong) {
  EXPECT_THROW(comes({"AAPL"}), WrongReply);
}

TEST_F(TickCounterTest, a_tick_that_does_not_come_is_wrong) {
  EXPECT_THROW(counter.await_ticks(1, std::chrono::milliseconds(1)), WrongReply);
}

}  // namespace
}  // namespace perf
