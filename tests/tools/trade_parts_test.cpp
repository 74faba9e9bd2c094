// What quorl-trade knows and keeps, without an exchange.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <variant>
#include <vector>

#include "quorl/client/fix_message.h"
#include "tools/trade/command.h"
#include "tools/trade/fix_names.h"
#include "tools/trade/incoming_numbers.h"
#include "tools/trade/line_reader.h"
#include "tools/trade/orders.h"

namespace client = quorl::client;

namespace tools {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Names.

std::string named(const std::string& text_with_bars) {
  return explained(client::with_soh(text_with_bars));
}

TEST(Explained, names_tags_and_coded_values) {
  EXPECT_EQ(named("35=8|39=2|150=2|54=1|59=3|851=2|9730=TL|"),
            "MsgType=ExecutionReport|OrdStatus=Filled|ExecType=Fill|Side=Buy|TimeInForce="
            "ImmediateOrCancel|LastLiquidityInd=RemovedLiquidity|LiquidityMark=TakerLiquidity|");
  EXPECT_EQ(named("35=9|102=0|434=2|373=11|103=3|"),
            "MsgType=OrderCancelReject|CxlRejReason=TooLateToCancel|CxlRejResponseTo="
            "OrderCancelReplaceRequest|SessionRejectReason=InvalidMsgType|OrdRejReason="
            "OrderExceedsLimit|");
}

TEST(Explained, leaves_free_values_unknown_codes_and_what_is_no_field) {
  EXPECT_EQ(named("55=2|39=Q|4711=x|plain|58=a=b|x=1|"),
            "Symbol=2|OrdStatus=Q|4711=x|plain|Text=a=b|x=1|");
  EXPECT_EQ(named("55=AAPL"), "Symbol=AAPL");
  EXPECT_EQ(named(""), "");
}

TEST(Explained, names_every_tag_that_the_pages_tell_of) {
  for (const int tag :
       {6,   7,   8,   9,   10,  11,  14,  16,  17,  18,  20,  30,  31,  32,  34,  35,  36, 37,
        38,  39,  40,  41,  43,  44,  45,  47,  49,  52,  54,  55,  56,  58,  59,  60,  98, 102,
        103, 108, 112, 114, 122, 123, 141, 150, 151, 373, 375, 382, 434, 851, 880, 9730}) {
    EXPECT_THAT(named(std::to_string(tag) + "=?|"), testing::MatchesRegex("[A-Za-z0-9]+=\\?\\|"));
    EXPECT_NE(named(std::to_string(tag) + "=?|"), std::to_string(tag) + "=?|");
  }
}

client::FixFields read(const std::string& text) {
  std::string complaint;
  return read_fields(text, complaint).value_or(client::FixFields{});
}

TEST(ReadFields, takes_numbers_and_names_on_both_sides) {
  EXPECT_EQ(read("35=8|39=2"), (client::FixFields{{35, "8"}, {39, "2"}}));
  EXPECT_EQ(read("MsgType=ExecutionReport|39=Filled|OrdStatus=2|"),
            (client::FixFields{{35, "8"}, {39, "2"}, {39, "2"}}));
  EXPECT_EQ(read("58=Too late to cancel|55="),
            (client::FixFields{{58, "Too late to cancel"}, {55, ""}}));
}

TEST(ReadFields, complains_of_what_is_no_field) {
  for (const char* text :
       {"", "8", "35=8|x", "=8", "0=8", "-1=8", "NoSuchTag=1", "3 5=8", "35=8||39=2"}) {
    std::string complaint;
    EXPECT_FALSE(read_fields(text, complaint).has_value()) << text;
    EXPECT_NE(complaint, "") << text;
  }
}

// Commands.

template <typename What>
What parsed(const std::string& line) {
  const auto result = command::parse(line);
  if (const auto* complaint = std::get_if<command::Complaint>(&result)) {
    throw std::runtime_error(line + ": " + complaint->text);
  }
  return std::get<What>(std::get<command::Command>(result));
}

std::string complaint(const std::string& line) {
  const auto result = command::parse(line);
  const auto* wrong = std::get_if<command::Complaint>(&result);
  return wrong == nullptr ? "" : wrong->text;
}

std::string bars(const client::FixFields& fields) {
  std::string text;
  for (const auto& [tag, value] : fields) text += std::to_string(tag) + "=" + value + "|";
  return text;
}

std::string place(const std::string& line) { return bars(parsed<command::Place>(line).fields); }

TEST(Command, places_a_limit_order_or_without_a_price_a_market_order) {
  EXPECT_EQ(place("buy AAPL 100 190.05"), "55=AAPL|54=1|38=100|40=2|44=190.05|59=0|18=i|47=P|");
  EXPECT_EQ(place("  sell\tAAPL  100 "), "55=AAPL|54=2|38=100|40=1|59=0|18=i|47=P|");
}

TEST(Command, places_all_that_the_exchange_reads_of_an_order) {
  EXPECT_EQ(place("buy AAPL 100 190 ioc agency id=mine"),
            "55=AAPL|54=1|38=100|40=2|44=190|59=3|18=i|47=A|11=mine|");
  EXPECT_EQ(place("sell AAPL 100 190 fok riskless short"),
            "55=AAPL|54=5|38=100|40=2|44=190|59=4|18=i|47=R|114=N|");
  EXPECT_EQ(place("sell AAPL 100 limit exempt principal day"),
            "55=AAPL|54=6|38=100|40=2|59=0|18=i|47=P|114=N|");
  EXPECT_EQ(place("buy AAPL 100 190 market 18=x 38=many TimeInForce=FillOrKill 4711=z"),
            "55=AAPL|54=1|38=many|40=1|44=190|59=4|18=x|47=P|4711=z|");
}

TEST(Command, complains_of_an_order_that_is_mistyped_and_shows_how_it_goes) {
  for (const auto& [line, part] : std::vector<std::pair<std::string, std::string>>{
           {"buy", "a symbol and a quantity are needed"},
           {"buy AAPL", "a symbol and a quantity are needed"},
           {"buy 100 AAPL", "'AAPL' is no quantity"},
           {"buy AAPL 1e3", "'1e3' is no quantity"},
           {"buy AAPL 100 19o", "'19o' is not understood"},
           {"buy AAPL 100 190 190", "'190' is not understood"},
           {"buy AAPL 100 190 gtc", "'gtc' is not understood"},
           {"buy AAPL 100 190 short", "a buy is not short"},
           {"buy AAPL - 190", "'-' is no quantity"},
           {"buy AAPL 1.2.3 190", "'1.2.3' is no quantity"}}) {
    EXPECT_THAT(complaint(line), HasSubstr(part)) << line;
    EXPECT_THAT(complaint(line), HasSubstr(": buy SYMBOL QTY [PRICE] [WORD...]")) << line;
  }
}

TEST(Command, cancels_and_replaces) {
  EXPECT_EQ(parsed<command::Cancel>("cancel o1").order, "o1");
  EXPECT_EQ(bars(parsed<command::Cancel>("cancel o1 id=c1 54=2").fields), "11=c1|54=2|");
  EXPECT_EQ(bars(parsed<command::Replace>("replace o1 200 190.5").fields), "38=200|44=190.5|");
  EXPECT_EQ(bars(parsed<command::Replace>("replace o1 200").fields), "38=200|");
  EXPECT_THAT(complaint("cancel"), HasSubstr("which order?: cancel ID"));
  EXPECT_THAT(complaint("cancel o1 ioc"), HasSubstr("'ioc' is not understood"));
  EXPECT_THAT(complaint("replace o1"), HasSubstr("replace ID QTY"));
  EXPECT_THAT(complaint("replace o1 x"), HasSubstr("'x' is no quantity"));
}

TEST(Command, sends_by_hand_with_a_head_of_its_own_or_as_it_stands) {
  EXPECT_EQ(bars(parsed<command::Raw>("raw 35=1|34=9|112=a b").fields), "35=1|34=9|112=a b|");
  EXPECT_EQ(parsed<command::RawBytes>("raw 8=FIX.4.2|9=5|35=0|10=000|").bytes,
            client::with_soh("8=FIX.4.2|9=5|35=0|10=000|"));
  EXPECT_THAT(complaint("raw"), HasSubstr("no fields"));
  EXPECT_THAT(complaint("raw hello"), HasSubstr("'hello' is no field"));
}

TEST(Command, asks_again_for_all_that_is_missing_or_for_what_it_is_told) {
  EXPECT_EQ(parsed<command::Resend>("resend").from, std::nullopt);
  EXPECT_EQ(parsed<command::Resend>("resend 5").from, 5U);
  EXPECT_EQ(parsed<command::Resend>("resend 5").to, 0U);
  EXPECT_EQ(parsed<command::Resend>("resend 5 7").to, 7U);
  EXPECT_NE(complaint("resend x"), "");
  EXPECT_NE(complaint("resend -1"), "");
  EXPECT_NE(complaint("resend 4294967296"), "");
  EXPECT_NE(complaint("resend 1 2 3"), "");
}

TEST(Command, waits_and_expects) {
  EXPECT_EQ(parsed<command::Wait>("wait Too late ").text, "Too late");
  EXPECT_EQ(bars(parsed<command::Expect>("expect MsgType=8|58=Too late").fields),
            "35=8|58=Too late|");
  (void)parsed<command::ExpectClosed>("expect closed");
  EXPECT_EQ(parsed<command::Sleep>("sleep 0.5").time, milliseconds(500));
  EXPECT_EQ(parsed<command::SetTimeout>("timeout 2").time, milliseconds(2000));
  EXPECT_NE(complaint("wait"), "");
  EXPECT_NE(complaint("expect"), "");
  EXPECT_NE(complaint("expect open"), "");
  EXPECT_NE(complaint("sleep"), "");
  EXPECT_NE(complaint("sleep long"), "");
  EXPECT_NE(complaint("sleep 1 2"), "");
}

TEST(Command, knows_the_rest) {
  EXPECT_FALSE(parsed<command::Reconnect>("reconnect").reset);
  EXPECT_TRUE(parsed<command::Reconnect>("reconnect reset").reset);
  EXPECT_NE(complaint("reconnect now"), "");
  EXPECT_EQ(parsed<command::SetNumber>("seq 7").next_out, 7U);
  EXPECT_NE(complaint("seq"), "");
  EXPECT_EQ(parsed<command::Test>("test").id, "");
  EXPECT_EQ(parsed<command::Test>("test me now").id, "me now");
  (void)parsed<command::LogOut>("logout");
  (void)parsed<command::Drop>("drop");
  (void)parsed<command::ShowOrders>("orders");
  (void)parsed<command::ShowStatus>("status");
  (void)parsed<command::Help>("help");
  (void)parsed<command::Quit>("quit");
  EXPECT_THAT(complaint("quit now"), HasSubstr("'now' is too much: quit"));
}

TEST(Command, passes_over_empty_lines_and_comments) {
  for (const char* line : {"", "   ", "\t", "# buy AAPL 100", "  #quit"}) {
    (void)parsed<command::Nothing>(line);
  }
}

TEST(Command, that_there_is_not_points_to_the_list) {
  EXPECT_EQ(complaint("Buy AAPL 100"), "there is no command 'Buy': 'help' lists them");
  EXPECT_NE(complaint(std::string(16385, 'x')), "");
  EXPECT_EQ(complaint("raw 35=1\x01"
                      "34=2"),
            "a control character in the line");
}

TEST(Command, help_lists_every_command) {
  const std::vector<std::string> help = command::help();
  EXPECT_THAT(help, testing::Contains(testing::StartsWith("expect FIELDS, expect closed  ")));
  EXPECT_THAT(help, testing::Each(testing::Not(testing::HasSubstr("\n"))));
  EXPECT_EQ(help.size(), 19U);
}

// Numbers.

client::FixMessage message(const std::string& type_and_rest, uint32_t seq) {
  const client::FixFields fields = client::fix_fields(type_and_rest);
  return client::parse_fix(client::compose_fix(
      {.type = fields[0].value, .seq = std::to_string(seq), .sender = "IEXG", .target = "ALPHA"},
      {fields.begin() + 1, fields.end()}));
}

class Numbers : public testing::Test {
 protected:
  Numbers() { numbers.begin_anew(); }
  std::string takes(uint32_t seq, const std::string& type_and_rest = "35=0|58=x") {
    return numbers.take(message(type_and_rest, seq));
  }
  IncomingNumbers numbers;
};

TEST_F(Numbers, without_a_break_leave_nothing_missing) {
  for (uint32_t seq = 1; seq <= 5; ++seq) EXPECT_EQ(takes(seq), "");
  EXPECT_TRUE(numbers.complete());
  EXPECT_EQ(numbers.next(), 6U);
}

TEST_F(Numbers, that_jump_leave_a_stretch_that_replays_and_gap_fills_fill) {
  EXPECT_EQ(takes(1), "");
  EXPECT_EQ(takes(8), "");
  EXPECT_EQ(takes(10), "");
  EXPECT_EQ(numbers.missing_text(), "2 to 7, 9");
  EXPECT_EQ(numbers.first_missing(), 2U);
  EXPECT_EQ(numbers.last_missing(), 9U);
  EXPECT_EQ(takes(4, "35=8|43=Y"), "");
  EXPECT_EQ(numbers.missing_text(), "2 to 3, 5 to 7, 9");
  EXPECT_EQ(takes(2, "35=4|43=Y|123=Y|36=6"), "");
  EXPECT_EQ(numbers.missing_text(), "6 to 7, 9");
  EXPECT_EQ(takes(7, "35=8|43=Y"), "");
  EXPECT_EQ(takes(6, "35=8|43=Y"), "");
  EXPECT_EQ(takes(9, "35=8"), "");  // overtaken, not replayed
  EXPECT_TRUE(numbers.complete());
  EXPECT_EQ(numbers.next(), 11U);
}

TEST_F(Numbers, go_on_behind_a_gap_fill_that_reaches_beyond_them) {
  (void)takes(1);
  EXPECT_EQ(takes(2, "35=4|43=Y|123=Y|36=9"), "");
  EXPECT_EQ(numbers.next(), 9U);
  EXPECT_TRUE(numbers.complete());
}

TEST_F(Numbers, of_the_past_are_remarked_unless_they_are_replays) {
  (void)takes(1);
  (void)takes(2);
  EXPECT_EQ(takes(1), "number 1 again, where 3 was due");
  EXPECT_EQ(takes(1, "35=8|43=Y"), "");
  EXPECT_EQ(numbers.next(), 3U);
}

TEST_F(Numbers, of_a_logon_in_the_past_mean_that_the_exchange_has_begun_anew) {
  (void)takes(1);
  (void)takes(20);
  EXPECT_EQ(takes(1, "35=A|108=30"),
            "the exchange's number is 1 where 21 was due: it has begun anew");
  EXPECT_EQ(numbers.next(), 2U);
  EXPECT_TRUE(numbers.complete());
}

TEST_F(Numbers, however_wild_cost_nothing) {
  (void)takes(1);
  EXPECT_EQ(takes(4000000000), "");
  EXPECT_EQ(numbers.missing_text(), "2 to 3999999999");
}

TEST(NumbersOfAnOldSession, begin_where_it_is_joined) {
  IncomingNumbers numbers;
  EXPECT_EQ(numbers.next(), std::nullopt);
  EXPECT_EQ(numbers.take(message("35=A|108=30", 20)), "");
  EXPECT_TRUE(numbers.complete());
  EXPECT_EQ(numbers.next(), 21U);
}

// Orders.

constexpr std::chrono::system_clock::time_point START{std::chrono::hours(500000)};

TEST(Orders, have_names_that_are_short_here_and_unique_over_starts) {
  Orders orders(START);
  Orders later(START + milliseconds(1));
  const std::string id = orders.new_id();
  EXPECT_THAT(id, testing::MatchesRegex("o1-[0-9a-z]+"));
  EXPECT_LE(id.size(), 20U);
  EXPECT_NE(later.new_id(), id);
  EXPECT_EQ(orders.resolved("o1"), id);
  EXPECT_EQ(orders.resolved(id), id);
  EXPECT_EQ(orders.resolved("o2"), "o2");  // not given yet
  EXPECT_EQ(orders.resolved("mine"), "mine");
  EXPECT_EQ(orders.resolved("o0"), "o0");
  EXPECT_EQ(orders.resolved("o1x"), "o1x");
  EXPECT_EQ(orders.resolved("o"), "o");
  EXPECT_NE(orders.new_id(), id);
}

TEST(Orders, stand_as_the_reports_say) {
  Orders orders(START);
  orders.note_sent({.id = "a",
                    .symbol = "AAPL",
                    .side = "1",
                    .status = "",
                    .leaves = "",
                    .quantity = "100",
                    .price = "185"});
  EXPECT_THAT(orders.lines(), ElementsAre("a Buy 100 AAPL @ 185: not answered"));
  orders.note_report(message("35=8|11=a|17=E1|39=0|150=0|151=100|38=100|44=185", 2));
  EXPECT_THAT(orders.lines(), ElementsAre("a Buy 100 AAPL @ 185: New, 100 open"));
  orders.note_report(message("35=8|11=a|17=E2|39=1|150=1|151=60|38=100|44=185", 3));
  orders.note_report(message("35=8|43=Y|11=a|17=E1|39=0|150=0|151=100|38=100|44=185", 2));
  EXPECT_THAT(orders.lines(), ElementsAre("a Buy 100 AAPL @ 185: PartiallyFilled, 60 open"));
  orders.note_sent({.id = "b",
                    .symbol = "AAPL",
                    .side = "1",
                    .status = "",
                    .leaves = "",
                    .quantity = "200",
                    .price = ""});
  orders.note_report(message("35=8|11=b|41=a|17=E3|39=5|150=5|151=160|38=200|44=185", 4));
  EXPECT_THAT(orders.lines(), ElementsAre("a Buy 100 AAPL @ 185: Replaced, 0 open",
                                          "b Buy 200 AAPL @ 185: Replaced, 160 open"));
  orders.note_report(message("35=8|11=c|41=b|17=E4|39=4|150=4|151=0|38=200|44=185", 5));
  EXPECT_EQ(orders.lines().at(1), "b Buy 200 AAPL @ 185: Canceled, 0 open");
}

// Lines.

class Lines : public testing::Test {
 protected:
  Lines() {
    if (::pipe(pipe_) != 0) throw std::runtime_error("pipe");
  }
  ~Lines() override {
    ::close(pipe_[0]);
    closes();
  }
  void writes(const std::string& text) {
    ASSERT_EQ(::write(pipe_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    reader().read();
  }
  void closes() {
    if (pipe_[1] >= 0) ::close(pipe_[1]);
    pipe_[1] = -1;
  }
  LineReader& reader() {
    if (!reader_) reader_.emplace(pipe_[0]);
    return *reader_;
  }

 private:
  int pipe_[2] = {-1, -1};
  std::optional<LineReader> reader_;
};

TEST_F(Lines, come_one_by_one_however_they_were_written) {
  writes("one\r\ntwo\nthr");
  EXPECT_EQ(reader().next(), "one");
  EXPECT_EQ(reader().next(), "two");
  EXPECT_EQ(reader().next(), std::nullopt);
  writes("ee\n\n");
  EXPECT_EQ(reader().next(), "three");
  EXPECT_EQ(reader().next(), "");
  EXPECT_FALSE(reader().at_end());
}

TEST_F(Lines, end_with_one_that_lacks_its_end) {
  writes("last");
  EXPECT_EQ(reader().next(), std::nullopt);
  closes();
  reader().read();
  EXPECT_FALSE(reader().at_end());
  EXPECT_EQ(reader().next(), "last");
  EXPECT_TRUE(reader().at_end());
  EXPECT_EQ(reader().next(), std::nullopt);
}

}  // namespace
}  // namespace tools
