#include "quorl/client/json_lines.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "tests/client/replaced.h"

namespace quorl::client {
namespace {

const std::string FILL_LINE =
    R"({"t":1700000000000000001,"ev":"fill","cl":"a1","oid":7,"symbol":"AAPL","side":"B",)"
    R"("qty":500,"px":189.99,"cum":300,"leaves":200,"last_qty":300,"text":""})";
const std::string REPLACE =
    R"({"t":5,"ev":"replace","cl":"a2","oid":7,"symbol":"AAPL","side":"S","qty":600,"px":190,)"
    R"("cum":0,"leaves":600,"last_qty":0,"text":"","ref":"a1"})";
const std::string CANCEL_REJECT_LINE =
    R"({"t":5,"ev":"cancel_reject","cl":"a1","oid":0,"symbol":"","side":" ","qty":0,"px":0,)"
    R"("cum":0,"leaves":0,"last_qty":0,"text":"Unknown order"})";

TEST(OrderEvents, a_line_is_read_key_by_key) {
  const OrderEvent event = parse_order_event(FILL_LINE);
  EXPECT_EQ(event.t_ns, 1700000000000000001u);
  EXPECT_EQ(event.ev, "fill");
  EXPECT_EQ(event.cl, "a1");
  EXPECT_EQ(event.oid, 7u);
  EXPECT_EQ(event.symbol, "AAPL");
  EXPECT_EQ(event.side, "B");
  EXPECT_EQ(event.qty, 500u);
  EXPECT_EQ(event.px, "189.99");
  EXPECT_EQ(event.cum, 300u);
  EXPECT_EQ(event.leaves, 200u);
  EXPECT_EQ(event.last_qty, 300u);
  EXPECT_EQ(event.text, "");
  EXPECT_FALSE(event.ref.has_value());
  EXPECT_EQ(parse_order_event(REPLACE).ref, "a1");
  EXPECT_EQ(parse_order_event(CANCEL_REJECT_LINE).text, "Unknown order");
}

TEST(OrderEvents, a_line_that_differs_in_form_is_refused) {
  EXPECT_THROW(parse_order_event(FILL_LINE + " "), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"t\":", "\"t\": ")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"fill\"", "\"filled\"")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"oid\":7", "\"oid\":\"7\"")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"oid\":7", "\"oid\":07")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"side\":\"B\"", "\"side\":\"X\"")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "189.99", "189.9900")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "189.99", "1234.567")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "189.99", "nan")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"qty\":500", "\"qty\":-1")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"qty\":500", "\"qty\":4294967296")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"cum\":300,", "")), WireError);
  EXPECT_THROW(parse_order_event(with(REPLACE, "\"ref\":\"a1\"", "\"ref\":\"\"")), WireError);
}

TEST(OrderEvents, keys_come_once_and_in_their_order) {
  EXPECT_THROW(
      parse_order_event(with(FILL_LINE, R"("cum":300,"leaves":200)", R"("leaves":200,"cum":300)")),
      WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"oid\":7", "\"oid\":7,\"oid\":7")), WireError);
  EXPECT_THROW(parse_order_event(with(FILL_LINE, "\"text\":\"\"", "\"text\":\"\",\"more\":1")),
               WireError);
  EXPECT_THROW(parse_order_event(FILL_LINE + FILL_LINE), WireError);
}

TEST(OrderEvents, what_a_client_put_into_its_names_is_read_as_it_stands) {
  for (const std::string name : {"a\"1", "a\\1", "\\u0061", "\t", "\xe4"}) {
    EXPECT_EQ(parse_order_event(with(FILL_LINE, "\"a1\"", '"' + name + '"')).cl, name);
  }
}

TEST(OrderEvents, every_line_of_a_file_must_be_whole) {
  EXPECT_EQ(parse_order_events(FILL_LINE + "\n" + REPLACE + "\n").size(), 2u);
  EXPECT_TRUE(parse_order_events("").empty());
  EXPECT_THROW(parse_order_events(FILL_LINE + "\n" + REPLACE), WireError);
  EXPECT_THROW(parse_order_events(FILL_LINE + "\n\n"), WireError);
}

const std::string BOOK =
    R"({"seq":812,"secid":1,"symbol":"AAPL","bid":[[189.9900,300],[189.9800,100]],)"
    R"("ask":[[190.0000,500]]})";

TEST(MarketTruth, a_book_line_shows_both_sides_from_the_best) {
  const auto line = std::get<BookLine>(parse_market_truth(BOOK));
  EXPECT_EQ(line.seq, 812u);
  EXPECT_EQ(line.secid, 1u);
  EXPECT_EQ(line.symbol, "AAPL");
  EXPECT_EQ(line.bids, (std::vector<TruthLevel>{{1899900, 300}, {1899800, 100}}));
  EXPECT_EQ(line.asks, (std::vector<TruthLevel>{{1900000, 500}}));
}

TEST(MarketTruth, empty_sides_and_prices_below_zero_have_their_form) {
  const auto line = std::get<BookLine>(parse_market_truth(
      R"({"seq":1,"secid":2,"symbol":"X","bid":[],"ask":[[-0.0100,5],[0.0000,6]]})"));
  EXPECT_TRUE(line.bids.empty());
  EXPECT_EQ(line.asks, (std::vector<TruthLevel>{{-100, 5}, {0, 6}}));
}

TEST(MarketTruth, a_mark_is_told_from_a_book) {
  const auto mark = std::get<MarkLine>(parse_market_truth(R"({"mark":"a b","seq":9})"));
  EXPECT_EQ(mark.label, "a b");
  EXPECT_EQ(mark.seq, 9u);
}

TEST(MarketTruth, a_line_that_differs_in_form_is_refused) {
  EXPECT_THROW(parse_market_truth(with(BOOK, "189.9900", "189.99")), WireError);
  EXPECT_THROW(parse_market_truth(with(BOOK, "189.9800", "189.9900")), WireError);
  EXPECT_THROW(parse_market_truth(with(BOOK, "189.9800", "190.0100")), WireError);
  EXPECT_THROW(parse_market_truth(with(BOOK, ",500]", ",0]")), WireError);
  EXPECT_THROW(parse_market_truth(with(BOOK, "],[", "], [")), WireError);
  EXPECT_THROW(parse_market_truth(BOOK + "\n"), WireError);
  EXPECT_THROW(parse_market_truth(R"({"mark":"x","seq":9)"), WireError);
  std::string eleven = R"({"seq":1,"secid":1,"symbol":"X","bid":[],"ask":[)";
  for (int i = 0; i < 11; ++i) {
    eleven += (i == 0 ? "[" : ",[") + std::to_string(i + 1) + ".0000,1]";
  }
  EXPECT_THROW(parse_market_truth(eleven + "]}"), WireError);
}

TEST(MarketTruth, a_torn_last_line_of_a_file_is_left_out) {
  EXPECT_EQ(parse_market_truths(BOOK + "\n" + BOOK.substr(0, 20)).size(), 1u);
}

TEST(BookFileText, the_whole_file_is_read_symbol_by_symbol) {
  const BookFile file = parse_book_file(
      R"({"ts_ns":1700000000000000000,"symbols":{"AAPL":{"bid":[[189.99,300],[189.98,100]],)"
      R"("ask":[[190,500]],"last":190,"volume":1200},"MSFT":{"bid":[],"ask":[],"last":0,)"
      R"("volume":0}}})"
      "\n");
  EXPECT_EQ(file.ts_ns, 1700000000000000000u);
  ASSERT_EQ(file.symbols.size(), 2u);
  EXPECT_EQ(file.symbols[0].symbol, "AAPL");
  ASSERT_EQ(file.symbols[0].bids.size(), 2u);
  EXPECT_EQ(file.symbols[0].bids[1].price, "189.98");
  EXPECT_EQ(file.symbols[0].asks[0].size, 500u);
  EXPECT_EQ(file.symbols[0].last, "190");
  EXPECT_EQ(file.symbols[0].volume, 1200u);
  EXPECT_TRUE(file.symbols[1].bids.empty());
}

TEST(BookFileText, half_a_file_is_refused_wherever_it_ends) {
  const std::string whole =
      R"({"ts_ns":1,"symbols":{"A":{"bid":[[1,2]],"ask":[],"last":0,"volume":0}}})"
      "\n";
  EXPECT_NO_THROW(parse_book_file(whole));
  for (size_t size = 0; size < whole.size(); ++size) {
    SCOPED_TRACE(size);
    EXPECT_THROW(parse_book_file(whole.substr(0, size)), WireError);
  }
  EXPECT_THROW(parse_book_file(whole + whole), WireError);
}

TEST(BookFileText, a_market_of_no_symbols_has_its_form) {
  EXPECT_TRUE(parse_book_file("{\"ts_ns\":1,\"symbols\":{}}\n").symbols.empty());
}

TEST(BboFile, each_line_has_a_symbol_and_two_prices) {
  const std::vector<BboLine> lines = parse_bbo_file("AAPL 189.99 190\nX 0 0\n");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].symbol, "AAPL");
  EXPECT_EQ(lines[0].bid, "189.99");
  EXPECT_EQ(lines[0].ask, "190");
  EXPECT_EQ(lines[1].ask, "0");
  EXPECT_THROW(parse_bbo_file("AAPL 189.99 190"), WireError);
  EXPECT_THROW(parse_bbo_file("AAPL 189.99\n"), WireError);
  EXPECT_THROW(parse_bbo_file("AAPL 189.990 190\n"), WireError);
}

TEST(SixDigits, prices_are_rounded_to_six_significant_digits) {
  EXPECT_EQ(six_digit_text(1900000), "190");
  EXPECT_EQ(six_digit_text(1899900), "189.99");
  EXPECT_EQ(six_digit_text(12345670), "1234.57");
  EXPECT_EQ(six_digit_text(123456700), "12345.7");
  EXPECT_EQ(six_digit_text(0), "0");
}

}  // namespace
}  // namespace quorl::client
