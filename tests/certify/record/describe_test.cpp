#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "certify/record/events.h"
#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace certify {
namespace {

std::string line(EventKind what) { return describe({.at = 0, .what = std::move(what)}); }

FixHeard heard(Party from, const std::string& body) {
  return {.connection = 1, .from = from, .message = WireMessage::read(client::frame_fix(body))};
}

client::TpPacket packet(uint64_t first, uint16_t count) {
  client::TpPacket packet;
  packet.header.first_seq = first;
  packet.header.message_count = count;
  packet.messages.resize(count);
  return packet;
}

TEST(Describe, MessagesStandInColumnsWithTheirMeaning) {
  EXPECT_EQ(line(heard(Party::CLIENT, "35=D|34=2|11=o1|")),
            "FIX 1   > new order       35=D|34=2|11=o1");
  EXPECT_EQ(line(heard(Party::EXCHANGE, "35=8|34=2|150=2|")),
            "FIX 1   < fill            35=8|34=2|150=2");
  EXPECT_EQ(line(heard(Party::EXCHANGE, "35=9|34=2|434=2|")),
            "FIX 1   < replace refused 35=9|34=2|434=2");
  EXPECT_EQ(line(heard(Party::EXCHANGE, "35=4|34=2|123=Y|")),
            "FIX 1   < gap fill        35=4|34=2|123=Y");
  EXPECT_EQ(line(heard(Party::CLIENT, "35=AE|")), "FIX 1   > type AE         35=AE");
}

TEST(Describe, FlawsAndWhatTheExchangeDropsAreSaid) {
  const FixHeard bad{.connection = 1, .message = WireMessage::read("8=FIX.4.2\x01")};
  EXPECT_EQ(line(bad),
            "FIX 1   > no type           [BodyLength (9) is not the second field; CheckSum (10) is "
            "not the last field]  [dropped unread]");
}

TEST(Describe, TheLifeOfAConnection) {
  EXPECT_EQ(line(FixOpened{.connection = 3}), "FIX 3     connected");
  EXPECT_EQ(line(FixEnded{.connection = 3, .by = Party::EXCHANGE, .reset = true}),
            "FIX 3   < reset by the exchange");
  EXPECT_EQ(line(FixEnded{.connection = 3}), "FIX 3   > ended by the client");
  EXPECT_EQ(line(FixEnded{.connection = 3, .by_link = true}), "FIX 3   > ended by the link");
  EXPECT_EQ(line(FixGarbage{.connection = 3, .bytes = "a\n", .size = 2}),
            "FIX 3   > no message: 2 bytes 'a\\x0a'");
}

TEST(Describe, TheFeedAndItsRepair) {
  EXPECT_EQ(line(FeedHeard{packet(145, 4)}), "feed      packet 145 to 148");
  EXPECT_EQ(line(FeedHeard{packet(145, 1)}), "feed      packet 145");
  EXPECT_EQ(line(FeedFault{.first_seq = 7, .messages = 2}), "feed      packet 7 to 8 lost");
  EXPECT_EQ(line(GapRequested{.line = 1, .well_formed = true, .ranges = {{5, 9}, {12, 12}}}),
            "gap 1   > asks for 5 to 9, 12");
  EXPECT_EQ(line(GapRequested{.line = 1, .well_formed = true}), "gap 1   > asks for the status");
  EXPECT_EQ(line(GapRequested{.line = 1, .flaw = "it is empty"}),
            "gap 1   > malformed request: it is empty");
  EXPECT_EQ(line(GapReplied{.line = 1, .packet = packet(5, 5)}), "gap 1   < brings 5 to 9");
  EXPECT_EQ(line(GapReplied{.line = 1, .packet = packet(5, 0)}), "gap 1   < status: next is 5");
  EXPECT_EQ(line(ImageRequested{.connection = 2, .well_formed = true, .minimum_seq = 70}),
            "image 2 > asks for an image at 70 or later");
  EXPECT_EQ(line(ImageReplied{.connection = 2, .complete = true, .seq = 71, .bytes = 1748}),
            "image 2 < image at 71, 1748 bytes");
  EXPECT_EQ(line(ImageReplied{.connection = 2, .error = 'R', .bytes = 4}),
            "image 2 < refused: R, the feed is not so far yet");
  EXPECT_EQ(line(ImageReplied{.connection = 2, .client_left = true}),
            "image 2 < no answer: the client ended its side first");
}

TEST(Describe, WhatIsSaidAndDoneAroundIt) {
  client::OrderEvent order;
  order.ev = "fill";
  order.cl = "o1";
  order.oid = 12;
  order.symbol = "AAPL";
  order.side = "B";
  order.qty = 300;
  order.px = "190";
  order.cum = order.last_qty = 100;
  order.leaves = 200;
  EXPECT_EQ(line(Decision{order}),
            "decided   fill            o1 (12) AAPL B 300 @ 190, 100 now, done 100, open 200");
  EXPECT_EQ(line(Commanded{"drop 3", "ok"}), "control > drop 3 -> ok");
  EXPECT_EQ(line(ExchangeSaid{"bench: x\ty"}), "exchange  bench: x\\x09y");
  EXPECT_EQ(line(Counted{{{"drops", 0}, {"orders", 3}}}), "counters  orders=3");
  EXPECT_EQ(line(PlanSaid{"step 2: disconnect"}), "plan      step 2: disconnect");
  EXPECT_EQ(line(LinkSaid{"FIX 2: stalled for 5 s"}), "link      FIX 2: stalled for 5 s");
  EXPECT_EQ(line(BeliefTaken{.mark = "noon"}), "belief    taken at mark noon");
  EXPECT_EQ(line(ClientStarted{}), "client    started");
  EXPECT_EQ(line(ClientEnded{.how = "exit status 0", .by_itself = true}),
            "client    ended by itself: exit status 0");
  EXPECT_EQ(line(Closing{"the plan"}), "run       closing: the plan");
}

TEST(Describe, NoEventMakesMoreThanOneLine) {
  const std::string wild = "a\nb\r\n\x01" + std::string(100'000, '\n');
  client::OrderEvent order;
  order.cl = order.text = wild;
  order.ref = wild;
  for (const EventKind& what : std::initializer_list<EventKind>{
           FixGarbage{.bytes = wild, .size = wild.size()}, Decision{order}, Commanded{wild, wild},
           ExchangeSaid{wild}, LinkSaid{wild}, PlanSaid{wild}, BeliefTaken{.mark = wild},
           ClientEnded{.how = wild}, Closing{wild}, Counted{{{wild, 1}}}}) {
    const std::string text = line(what);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << what.index();
    EXPECT_LT(text.size(), 1000U) << what.index();
  }
}

TEST(TimeText, IsTheTimeOfDayInMicroseconds) {
  EXPECT_EQ(time_text(0), "00:00:00.000000");
  EXPECT_EQ(time_text(1'795'351'507'123'456'789), "12:45:07.123456");
  EXPECT_EQ(time_text(86'399 * SECOND + 999'999'999), "23:59:59.999999");
}

}  // namespace
}  // namespace certify
