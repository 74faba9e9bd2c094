#include "certify/tap/link_order.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

#include "certify/tap/taps.h"

using namespace certify;

namespace {

using Services = std::array<bool, 3>;

LinkOrder order_of(std::string_view text) {
  EXPECT_EQ(flaw_of_link_order(text), std::nullopt) << text;
  return read_link_order(text).value_or(LinkOrder{});
}

TEST(LinkOrder, is_for_all_services_and_both_ways_unless_it_says_otherwise) {
  const LinkOrder order = order_of("delay 80ms jitter 20ms");
  EXPECT_EQ(order.kind, LinkOrder::Kind::DELAY);
  EXPECT_EQ(order.time, 80 * MILLISECOND);
  EXPECT_EQ(order.jitter, 20 * MILLISECOND);
  EXPECT_EQ(order.services, (Services{true, true, true}));
  EXPECT_TRUE(order.to_exchange);
  EXPECT_TRUE(order.to_client);
}

TEST(LinkOrder, names_services_in_any_order_and_one_way) {
  const LinkOrder order = order_of("  stall 1.5s   gapfill fix to  client ");
  EXPECT_EQ(order.kind, LinkOrder::Kind::STALL);
  EXPECT_EQ(order.time, 1500 * MILLISECOND);
  EXPECT_EQ(order.services, (Services{true, false, true}));
  EXPECT_FALSE(order.to_exchange);
  EXPECT_TRUE(order.to_client);
  EXPECT_TRUE(order_of("cut images to exchange").to_exchange);
  EXPECT_FALSE(order_of("cut images to exchange").to_client);
  EXPECT_EQ(order_of("clear").kind, LinkOrder::Kind::CLEAR);
  EXPECT_EQ(order_of("trickle 65536").bytes, 65536U);
  EXPECT_EQ(order_of("delay 0ms").time, 0);
  EXPECT_EQ(order_of("delay 0.25ms").time, 250'000);
  EXPECT_EQ(order_of("delay 60s jitter 60s").jitter, 60 * SECOND);
  EXPECT_EQ(order_of("stall 3600s").time, 3600 * SECOND);
}

TEST(LinkOrder, has_flaws_that_are_named_by_their_word) {
  struct Case {
    std::string_view text, word;
  };
  constexpr Case CASES[] = {
      {"", "missing"},
      {"slow 5s", "'slow'"},
      {"Cut", "'Cut'"},
      {"delay", "'delay'"},
      {"delay 80", "'80'"},
      {"delay ms", "'ms'"},
      {"delay -5ms", "'-5ms'"},
      {"delay 1e3s", "'1e3s'"},
      {"delay 1.2.3s", "'1.2.3s'"},
      {"delay .5s", "'.5s'"},
      {"delay 5.s", "'5.s'"},
      {"delay 5m", "'5m'"},
      {"delay 60.001s", "'60.001s'"},
      {"delay 80ms jitter", "'jitter'"},
      {"delay 80ms jitter 81ms", "'81ms'"},
      {"delay 80ms gitter 20ms", "'gitter'"},
      {"stall 3601s", "'3601s'"},
      {"stall 999999999999999999999s", "'999999999999999999999s'"},
      {"stall 5s jitter 1s", "'jitter'"},
      {"trickle", "'trickle'"},
      {"trickle 0", "'0'"},
      {"trickle 65537", "'65537'"},
      {"trickle 1x", "'1x'"},
      {"trickle -1", "'-1'"},
      {"cut feed", "'feed'"},
      {"cut fix fix", "'fix'"},
      {"cut to", "'to'"},
      {"cut to market", "'market'"},
      {"cut to client fix", "'fix'"},
      {"clear now", "'now'"},
  };
  for (const Case& wrong : CASES) {
    const auto flaw = flaw_of_link_order(wrong.text);
    ASSERT_TRUE(flaw) << wrong.text;
    EXPECT_NE(flaw->find(wrong.word), std::string::npos) << wrong.text << ": " << *flaw;
    EXPECT_EQ(flaw->find('\n'), std::string::npos);
    EXPECT_FALSE(read_link_order(wrong.text)) << wrong.text;
  }
}

TEST(LinkOrder, is_told_in_plain_words) {
  EXPECT_EQ(describe(order_of("delay 80ms jitter 20ms")), "delayed by 80 ms, jitter 20 ms");
  EXPECT_EQ(describe(order_of("stall 1.5s to client")), "stalled for 1.5 s, to the client");
  EXPECT_EQ(describe(order_of("trickle 1 to exchange")),
            "trickles, 1 byte at a time, to the exchange");
  EXPECT_EQ(describe(order_of("trickle 7")), "trickles, 7 bytes at a time");
  EXPECT_EQ(describe(order_of("cut")), "cut");
  EXPECT_EQ(describe(order_of("clear")), "plain again");
}

TEST(LinkOrder, says_spans_as_people_do) {
  EXPECT_EQ(span_text(0), "0 us");
  EXPECT_EQ(span_text(999), "0.999 us");
  EXPECT_EQ(span_text(MILLISECOND), "1 ms");
  EXPECT_EQ(span_text(999'999), "999.999 us");
  EXPECT_EQ(span_text(1'050 * MILLISECOND), "1.05 s");
  EXPECT_EQ(span_text(3600 * SECOND), "3600 s");
}

}  // namespace
