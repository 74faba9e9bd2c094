#include "certify/record/wire_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "quorl/client/fix_message.h"

namespace client = quorl::client;

namespace certify {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string GOOD =
    client::frame_fix("35=D|34=12|49=T|56=IEXG|52=20261121-12:17:15.929|11=o7|");

WireMessage read(const std::string& text_with_bars) {
  return WireMessage::read(client::with_soh(text_with_bars));
}

std::vector<std::string> flaws_of_body(const std::string& body) {
  return WireMessage::read(client::frame_fix(body)).flaws();
}

TEST(WireMessage, AGoodFrameHasNoFlawsAndIsTaken) {
  const auto message = WireMessage::read(GOOD);
  EXPECT_THAT(message.flaws(), IsEmpty());
  EXPECT_TRUE(message.taken_by_exchange());
  EXPECT_EQ(message.type(), "D");
  EXPECT_EQ(message.number(34), 12U);
  EXPECT_EQ(message.raw(), GOOD);
  EXPECT_EQ(message.brief(), "35=D|34=12|11=o7");
}

TEST(WireMessage, NoByteThatIsChangedGoesUnnoticed) {
  for (size_t i = 0; i < GOOD.size(); ++i) {
    std::string frame = GOOD;
    frame[i] = static_cast<char>(frame[i] ^ 0x04);
    EXPECT_THAT(WireMessage::read(frame).flaws(), Not(IsEmpty())) << "at " << i;
  }
}

TEST(WireMessage, NoPieceOfAFrameIsTakenForAFrame) {
  for (size_t size = 0; size < GOOD.size(); ++size) {
    const auto message = WireMessage::read(std::string_view(GOOD).substr(0, size));
    EXPECT_THAT(message.flaws(), Not(IsEmpty())) << size;
    EXPECT_FALSE(message.taken_by_exchange()) << size;
  }
}

TEST(WireMessage, AWrongCheckSumIsNamedWithTheRightOne) {
  const auto message = read("8=FIX.4.2|9=5|35=0|10=000|");
  EXPECT_THAT(message.flaws(), ElementsAre("CheckSum (10) is 000 where the bytes add up to 161"));
  EXPECT_FALSE(message.taken_by_exchange());
}

TEST(WireMessage, TheExchangeTakesAShortCheckSumThatIsAFlawAllTheSame) {
  std::string frame;
  for (char c = '!'; c <= '~' && !frame.ends_with("10=007\x01"); ++c) {
    for (char d = '!'; d <= '~' && !frame.ends_with("10=007\x01"); ++d) {
      frame = client::frame_fix("35=0|58=" + std::string{c, d, 'A'} + "|");
    }
  }
  ASSERT_THAT(frame, testing::EndsWith("10=007\x01"));
  frame.replace(frame.size() - 4, 4, "7\x01xx");
  EXPECT_TRUE(WireMessage::read(frame).taken_by_exchange());
  EXPECT_THAT(WireMessage::read(frame).flaws(), Not(IsEmpty()));
}

TEST(WireMessage, AnotherVersionIsAFlawThatTheExchangeTakes) {
  const auto message = WireMessage::read(client::frame_fix("35=0|34=1|", "FIX.4.4"));
  EXPECT_THAT(message.flaws(), ElementsAre(HasSubstr("'FIX.4.4', not FIX.4.2")));
  EXPECT_TRUE(message.taken_by_exchange());
}

TEST(WireMessage, FlawsOfFieldsAreNamed) {
  EXPECT_THAT(flaws_of_body("35=0|34=1|34=2|"), ElementsAre("tag 34 comes more than once"));
  EXPECT_THAT(flaws_of_body("35=0|x4=1|"), ElementsAre("'x4' is no tag"));
  EXPECT_THAT(flaws_of_body("35=0|034=1|"), ElementsAre("'034' is no tag"));
  EXPECT_THAT(flaws_of_body("35=0|0=1|"), ElementsAre("'0' is no tag"));
  EXPECT_THAT(flaws_of_body("35=0|58=|"), ElementsAre("tag 58 has no value"));
  EXPECT_THAT(flaws_of_body("35=0|stray|"), ElementsAre(HasSubstr("'stray' is no field")));
  EXPECT_THAT(flaws_of_body("35=D|78=2|79=a|80=1|79=b|80=2|"), IsEmpty());
}

TEST(WireMessage, ALengthThatDoesNotFitIsNamed) {
  const auto message = read("8=FIX.4.2|9=4|35=0|10=162|");
  EXPECT_THAT(message.flaws(), Contains(HasSubstr("BodyLength (9) is 4")));
  EXPECT_FALSE(message.taken_by_exchange());
  EXPECT_THAT(read("8=FIX.4.2|35=0|9=5|10=162|").flaws(),
              Contains("BodyLength (9) is not the second field"));
  EXPECT_THAT(read("8=FIX.4.2|9=-5|35=0|10=162|").flaws(),
              Contains("BodyLength (9) is '-5', no plain number"));
}

TEST(WireMessage, TheLastOfTwoFieldsCountsAsForTheExchange) {
  const auto message = read("8=FIX.4.2|9=5|35=0|34=1|34=2|");
  EXPECT_EQ(message.value(34), "2");
  EXPECT_EQ(message.find(99), nullptr);
  EXPECT_EQ(message.value(99), "");
}

TEST(WireMessage, OnlyAPlainNumberIsANumber) {
  const auto of = [](const std::string& value) { return read("34=" + value + "|").number(34); };
  EXPECT_EQ(of("0"), 0U);
  EXPECT_EQ(of("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(of("18446744073709551616"), std::nullopt);
  for (const char* bad : {"", "-1", "+1", " 1", "1 ", "1.0", "x"}) EXPECT_EQ(of(bad), std::nullopt);
}

TEST(WireMessage, BriefIsOnePrintableLineOfBoundedLength) {
  const std::string long_text = "35=D|58=a\nb\xff" + std::string(100'000, 'x') + "|";
  const std::string brief = WireMessage::read(client::frame_fix(long_text)).brief();
  EXPECT_THAT(brief, testing::StartsWith("35=D|58=a\\x0ab\\xffxxx"));
  EXPECT_EQ(brief.size(), 300U);
  EXPECT_THAT(brief, testing::EndsWith("x..."));
}

TEST(WireMessage, AnyBytesAreReadWithoutAThrow) {
  uint32_t state = 1;
  constexpr std::string_view LIKELY = "8=FIX|9105=\x01\x01\x01==-34";
  for (size_t round = 0; round < 20'000; ++round) {
    std::string bytes = round % 2 == 0 ? "" : client::with_soh("8=FIX.4.2|9=");
    for (size_t i = 0; i < round % 60; ++i) {
      state = state * 1664525U + 1013904223U;
      const bool likely = state >> 30 != 0;
      bytes += likely ? LIKELY[(state >> 8) % LIKELY.size()] : static_cast<char>(state >> 16);
    }
    const auto message = WireMessage::read(bytes);
    EXPECT_LE(message.brief().size(), 300U);
    EXPECT_EQ(message.raw(), bytes);
  }
}

TEST(WireMessage, AMegabyteOfFieldsIsReadInProportionToItsSize) {
  std::string body = "35=D|";
  for (int i = 0; body.size() < 1'000'000; ++i) body += std::to_string(i % 90'000 + 1) + "=1|";
  const auto message = WireMessage::read(client::frame_fix(body));
  EXPECT_LE(message.flaws().size(), 20U);
  EXPECT_TRUE(message.taken_by_exchange());
}

}  // namespace
}  // namespace certify
