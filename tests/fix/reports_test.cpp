#include "fix/reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fix/outbox.h"
#include "market/engine.h"
#include "support/exchange.h"
#include "support/fix_wire.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

/// The fields between header and trailer, as they stand.
std::string body_of(const std::string& message) {
  const size_t begin = message.find('\x01', message.find("\x01"
                                                         "52=") +
                                                1) +
                       1;
  return message.substr(begin, message.size() - 7 - begin);
}

/// An order of the client ALPHA, and the order event file.
class Reports : public testing::Test {
 protected:
  Reports() { exchange.scenario.order_truth.open_for_appending(truth_path); }
  ~Reports() override { std::remove(truth_path.c_str()); }

  SessionMemory stream(const std::string& comp_id = "ALPHA") { return {exchange.engine, comp_id}; }

  /// The lines of the order event file since the last look.
  std::string events() {
    std::ostringstream text;
    text << std::ifstream(truth_path).rdbuf();
    const std::string unseen = text.str().substr(events_seen);
    events_seen = text.str().size();
    return unseen;
  }

  /// The value of a key of the one event since the last look, as it stands in the line.
  std::string event_value(const std::string& key) {
    const std::string line = events();
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1) << line;
    return value_in_event(line, key);
  }

  /// "(absent)" for a key that the line lacks.
  static std::string value_in_event(const std::string& line, const std::string& key) {
    const std::string name = "\"" + key + "\":";
    const size_t found = line.find(name);
    if (found == std::string::npos) return "(absent)";
    const size_t begin = found + name.size();
    return line.substr(begin, line.find_first_of(",}", begin) - begin);
  }

  ReportTarget to(Outbox& out, const std::string& comp_id = "ALPHA") {
    return {exchange.engine, exchange.engine.stream_named(comp_id), out};
  }

  /// The one message that `build` adds to an outbox.
  template <typename Build>
  std::string composed(const Build& build) {
    Outbox out;
    build(to(out));
    EXPECT_EQ(out.size(), 1U);
    return std::string(out[0]);
  }

  std::string new_report(std::string_view symbol = "AAPL") {
    return composed([&](const ReportTarget& to) { build_new_report(to, order, symbol); });
  }
  std::string reject_report(std::string_view symbol, std::string_view text,
                            std::string_view reason) {
    return composed(
        [&](const ReportTarget& to) { build_reject_report(to, order, symbol, text, reason); });
  }
  std::string fill_report(const Fill& fill, std::string_view symbol = "AAPL") {
    return composed([&](const ReportTarget& to) { build_fill_report(to, order, symbol, fill); });
  }
  std::string unmatched_report(std::string_view symbol = "AAPL") {
    return composed([&](const ReportTarget& to) { build_unmatched_report(to, order, symbol); });
  }
  std::string cancel_report(std::string_view cl_ord_id, std::string_view symbol = "AAPL") {
    return composed(
        [&](const ReportTarget& to) { build_cancel_report(to, order, symbol, cl_ord_id); });
  }
  std::string unsolicited_cancel_report(std::string_view symbol = "AAPL") {
    return composed(
        [&](const ReportTarget& to) { build_unsolicited_cancel_report(to, order, symbol); });
  }
  std::string replace_report(std::string_view cl_ord_id, std::string_view symbol = "AAPL") {
    return composed(
        [&](const ReportTarget& to) { build_replace_report(to, order, symbol, cl_ord_id); });
  }

  std::string cancel_reject(const CancelReject& reject) {
    return composed([&](const ReportTarget& to) { build_cancel_reject(to, reject); });
  }
  std::string replace_reject(const CancelReject& reject) {
    return composed([&](const ReportTarget& to) { build_replace_reject(to, reject); });
  }

  /// Every kind of ExecutionReport on `order`, with the request's ClOrdID "c9" where there is one.
  std::vector<std::pair<std::string, std::function<std::string()>>> kinds_but_fills() {
    return {{"new", [this] { return new_report(); }},
            {"reject", [this] { return reject_report("AAPL", "UnknownSymbol", "1"); }},
            {"unmatched", [this] { return unmatched_report(); }},
            {"cancel", [this] { return cancel_report("c9"); }},
            {"unsolicited", [this] { return unsolicited_cancel_report(); }},
            {"replace", [this] { return replace_report("c9"); }}};
  }
  std::vector<std::pair<std::string, std::function<std::string()>>> kinds() {
    auto all = kinds_but_fills();
    all.emplace_back("fill", [this] { return fill_report(HUNDRED_AT_190); });
    return all;
  }

  static constexpr Fill HUNDRED_AT_190{100, 1900000, 7, '1'};
  static constexpr CancelReject UNKNOWN_ORDER{"a2", "a1", 0, '8', '1', "Unknown order"};

  const std::string truth_path =
      testing::TempDir() + "quorl_reports_" + std::to_string(::getpid()) + ".jsonl";
  size_t events_seen = 0;
  Exchange exchange{"AAPL:190.00"};
  Order order{.id = 1000,
              .locate = 1,
              .price = 1905000,
              .leaves = 300,
              .qty = 300,
              .owner = "ALPHA",
              .cl_ord_id = "a1"};
};

// --- Every kind of report, byte for byte ---

TEST_F(Reports, an_accepted_order) {
  EXPECT_EQ(readable(new_report()),
            "8=FIX.4.2|9=189|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=0|39=0|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|44=190.5|32=0|31=0|"
            "151=300|14=0|6=0|60=20231114-22:13:20.123|10=117|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"new\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":0,\"leaves\":300,"
            "\"last_qty\":0,\"text\":\"\"}\n");
}

TEST_F(Reports, an_accepted_market_order_to_sell_has_no_price) {
  order.side = '5';
  order.buy = false;
  order.ord_type = '1';
  order.price = 0;
  order.tif = '3';
  order.capacity = 'A';
  EXPECT_EQ(readable(new_report()),
            "8=FIX.4.2|9=180|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=0|39=0|55=AAPL|54=5|38=300|18=i|40=1|47=A|59=3|32=0|31=0|151=300|"
            "14=0|6=0|60=20231114-22:13:20.123|10=192|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"new\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"S\",\"qty\":300,\"px\":0,\"cum\":0,\"leaves\":300,"
            "\"last_qty\":0,\"text\":\"\"}\n");
}

TEST_F(Reports, a_partial_fill_that_took_liquidity) {
  order.leaves = 200;
  order.cum = 100;
  order.notional = 19001.0;
  EXPECT_EQ(readable(fill_report({100, 1900100, 7, '2'})),
            "8=FIX.4.2|9=246|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=1|39=1|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|44=190.5|32=100|"
            "31=190.01|151=200|14=100|6=190.01|60=20231114-22:13:20.123|30=IEXG|375=IEXG|382=1|"
            "851=2|880=7|9730=TL|10=220|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"fill\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":100,\"leaves\":200,"
            "\"last_qty\":100,\"text\":\"\"}\n");
}

TEST_F(Reports, a_final_fill_that_added_liquidity_shows_the_average_price) {
  order.leaves = 0;
  order.cum = 300;
  order.notional = 57001.0;  // 190.003333...
  EXPECT_EQ(readable(fill_report({200, 1900000, 7, '1'})),
            "8=FIX.4.2|9=243|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=2|39=2|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|44=190.5|32=200|"
            "31=190|151=0|14=300|6=190.0033|60=20231114-22:13:20.123|30=IEXG|375=IEXG|382=1|"
            "851=1|880=7|9730=ML|10=074|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"fill\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":300,\"leaves\":0,"
            "\"last_qty\":200,\"text\":\"\"}\n");
}

TEST_F(Reports, the_cancelled_rest_of_an_immediate_order) {
  order.cum = 100;
  order.notional = 19001.0;
  order.tif = '3';
  EXPECT_EQ(readable(unmatched_report()),
            "8=FIX.4.2|9=210|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=4|39=4|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=3|44=190.5|32=0|31=0|"
            "151=0|14=100|6=190.01|60=20231114-22:13:20.123|58=UnmatchedIOC|10=135|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":100,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"UnmatchedIOC\"}\n");
}

TEST_F(Reports, an_accepted_replace_names_the_new_id_and_the_old) {
  EXPECT_EQ(readable(replace_report("a2")),
            "8=FIX.4.2|9=195|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a2|"
            "17=E1|20=0|150=5|39=5|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|41=a1|44=190.5|32=0|"
            "31=0|151=300|14=0|6=0|60=20231114-22:13:20.123|10=178|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"replace\",\"cl\":\"a2\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":0,\"leaves\":300,"
            "\"last_qty\":0,\"text\":\"\",\"ref\":\"a1\"}\n");
}

TEST_F(Reports, an_accepted_cancel_is_logged_under_the_order_s_own_id) {
  EXPECT_EQ(readable(cancel_report("c9")),
            "8=FIX.4.2|9=193|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=c9|"
            "17=E1|20=0|150=4|39=4|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|41=a1|44=190.5|32=0|"
            "31=0|151=0|14=0|6=0|60=20231114-22:13:20.123|10=084|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"cancel\"}\n");
}

TEST_F(Reports, a_rejected_order_has_no_order_id_and_a_reason) {
  order.id = 0;
  EXPECT_EQ(readable(reject_report("NOPE", "UnknownSymbol", "0")),
            "8=FIX.4.2|9=210|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=NONE|11=a1|"
            "17=E1|20=0|150=8|39=8|55=NOPE|54=1|38=300|18=i|40=2|47=P|59=0|44=190.5|32=0|31=0|"
            "151=0|14=0|6=0|60=20231114-22:13:20.123|58=UnknownSymbol|103=0|10=169|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"reject\",\"cl\":\"a1\",\"oid\":0,\"symbol\":"
            "\"NOPE\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"UnknownSymbol\"}\n");
}

TEST_F(Reports, an_unasked_cancel_names_the_order_twice_and_is_logged_as_unsolicited) {
  order.cum = 100;
  order.notional = 19050.0;
  EXPECT_EQ(readable(unsolicited_cancel_report()),
            "8=FIX.4.2|9=214|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=4|39=4|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|41=a1|44=190.5|32=0|"
            "31=0|151=0|14=100|6=190.5|60=20231114-22:13:20.123|58=AdminCancel|10=076|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":100,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"unsolicited\"}\n");
}

TEST_F(Reports, a_refused_cancel) {
  EXPECT_EQ(readable(cancel_reject(UNKNOWN_ORDER)),
            "8=FIX.4.2|9=106|35=9|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=NONE|11=a2|"
            "41=a1|39=8|102=1|434=1|58=Unknown order|10=144|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel_reject\",\"cl\":\"a1\",\"oid\":0,"
            "\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"Unknown order\"}\n");
}

TEST_F(Reports, a_refused_replace_refers_to_the_request_in_the_log) {
  EXPECT_EQ(readable(replace_reject({"a2", "a1", 1000, '0', '2', "InvalidPrice"})),
            "8=FIX.4.2|9=105|35=9|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a2|"
            "41=a1|39=0|102=2|434=2|58=InvalidPrice|10=168|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"replace_reject\",\"cl\":\"a1\",\"oid\":1000,"
            "\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"InvalidPrice\",\"ref\":\"a2\"}\n");
}

TEST_F(Reports, a_refusal_without_a_text_still_has_its_tag) {
  EXPECT_EQ(readable(cancel_reject({"a2", "a1", 1000, '2', '0', ""})),
            "8=FIX.4.2|9=93|35=9|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a2|"
            "41=a1|39=2|102=0|434=1|58=|10=195|");
}

TEST_F(Reports, a_refusal_names_an_empty_id_as_it_names_any) {
  EXPECT_EQ(readable(body_of(replace_reject({"", "", 0, '8', '1', "Unknown order"}))),
            "37=NONE|11=|41=|39=8|102=1|434=2|58=Unknown order|");
  EXPECT_EQ(event_value("ref"), "(absent)");
}

// --- What the kinds differ in ---

TEST_F(Reports, each_kind_says_what_is_open_and_done_by_this_table) {
  order.leaves = 200;
  order.cum = 100;
  order.notional = 19050.0;
  struct Row {
    const char* kind;
    const char* type;   // 150 and 39
    const char* last;   // 32 and 31
    const char* open;   // 151
    const char* done;   // 14 and 6
    const char* texts;  // 58 and 103
    const char* names;  // 37, 11 and 41
  };
  const std::vector<Row> rows = {
      {"new", "0", "0 0", "200", "0 0", "- -", "1000 a1 -"},
      {"reject", "8", "0 0", "0", "0 0", "UnknownSymbol 1", "NONE a1 -"},
      {"unmatched", "4", "0 0", "0", "100 190.5", "UnmatchedIOC -", "1000 a1 -"},
      {"cancel", "4", "0 0", "0", "100 190.5", "- -", "1000 c9 a1"},
      {"unsolicited", "4", "0 0", "0", "100 190.5", "AdminCancel -", "1000 a1 a1"},
      {"replace", "5", "0 0", "200", "100 190.5", "- -", "1000 c9 a1"},
      {"fill", "1", "100 190", "200", "100 190.5", "- -", "1000 a1 -"},
  };
  const auto all = kinds();
  ASSERT_EQ(all.size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    SCOPED_TRACE(row.kind);
    ASSERT_EQ(all[i].first, row.kind);
    const FixFields fields = fields_of(all[i].second());
    const auto tag = [&](int number) { return value_of(fields, number, "-"); };
    EXPECT_EQ(tag(150), row.type);
    EXPECT_EQ(tag(39), row.type);
    EXPECT_EQ(tag(32) + " " + tag(31), row.last);
    EXPECT_EQ(tag(151), row.open);
    EXPECT_EQ(tag(14) + " " + tag(6), row.done);
    EXPECT_EQ(tag(58) + " " + tag(103), row.texts);
    EXPECT_EQ(tag(37) + " " + tag(11) + " " + tag(41), row.names);
  }
}

TEST_F(Reports, each_kind_is_logged_by_this_table) {
  order.leaves = 200;
  order.cum = 100;
  struct Row {
    const char* kind;
    const char* ev;
    const char* cl;
    const char* oid;
    const char* numbers;  // cum, leaves and last_qty
    const char* text;
    const char* ref;
  };
  const std::vector<Row> rows = {
      {"new", "\"new\"", "\"a1\"", "1000", "0 200 0", "\"\"", "(absent)"},
      {"reject", "\"reject\"", "\"a1\"", "0", "0 0 0", "\"UnknownSymbol\"", "(absent)"},
      {"unmatched", "\"cancel\"", "\"a1\"", "1000", "100 0 0", "\"UnmatchedIOC\"", "(absent)"},
      {"cancel", "\"cancel\"", "\"a1\"", "1000", "100 0 0", "\"cancel\"", "(absent)"},
      {"unsolicited", "\"cancel\"", "\"a1\"", "1000", "100 0 0", "\"unsolicited\"", "(absent)"},
      {"replace", "\"replace\"", "\"c9\"", "1000", "100 200 0", "\"\"", "\"a1\""},
      {"fill", "\"fill\"", "\"a1\"", "1000", "100 200 100", "\"\"", "(absent)"},
  };
  const auto all = kinds();
  ASSERT_EQ(all.size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    SCOPED_TRACE(row.kind);
    ASSERT_EQ(all[i].first, row.kind);
    all[i].second();
    const std::string line = events();
    const auto value = [&](const std::string& key) { return value_in_event(line, key); };
    EXPECT_EQ(value("ev"), row.ev);
    EXPECT_EQ(value("cl"), row.cl);
    EXPECT_EQ(value("oid"), row.oid);
    EXPECT_EQ(value("symbol"), "\"AAPL\"");
    EXPECT_EQ(value("cum") + " " + value("leaves") + " " + value("last_qty"), row.numbers);
    EXPECT_EQ(value("text"), row.text);
    EXPECT_EQ(value("ref"), row.ref);
  }
}

TEST_F(Reports, a_cancel_without_an_id_of_its_own_goes_under_the_order_s) {
  const FixFields fields = fields_of(cancel_report(""));
  EXPECT_EQ(value_of(fields, 11), "a1");
  EXPECT_EQ(value_of(fields, 41), "(absent)");
}

TEST_F(Reports, a_rejection_says_nothing_of_a_text_or_a_reason_that_is_empty) {
  const FixFields fields = fields_of(reject_report("AAPL", "", ""));
  EXPECT_EQ(value_of(fields, 58), "(absent)");
  EXPECT_EQ(value_of(fields, 103), "(absent)");
  EXPECT_EQ(event_value("text"), "\"\"");
}

TEST_F(Reports, a_fill_is_partial_as_long_as_anything_is_open) {
  order.leaves = 1;
  EXPECT_EQ(value_of(fields_of(fill_report(HUNDRED_AT_190)), 150), "1");
  EXPECT_EQ(event_value("ev"), "\"fill\"");
  order.leaves = 0;
  EXPECT_EQ(value_of(fields_of(fill_report(HUNDRED_AT_190)), 150), "2");
  EXPECT_EQ(event_value("ev"), "\"fill\"");
}

TEST_F(Reports, each_side_keeps_its_character_and_is_logged_as_buy_or_sell) {
  for (const auto& [side, logged] :
       {std::pair{'1', "\"B\""}, {'2', "\"S\""}, {'5', "\"S\""}, {'6', "\"S\""}, {' ', "\"S\""}}) {
    order.side = side;
    EXPECT_EQ(value_of(fields_of(new_report()), 54), std::string(1, side));
    EXPECT_EQ(event_value("side"), logged);
  }
}

TEST_F(Reports, only_a_fill_has_the_fill_s_own_fields) {
  for (const auto& [kind, report] : kinds_but_fills()) {
    const FixFields fields = fields_of(report());
    for (const int tag : {30, 375, 382, 851, 880, 9730}) {
      EXPECT_EQ(value_of(fields, tag), "(absent)") << kind << " has tag " << tag;
    }
  }
}

TEST_F(Reports, any_liquidity_but_added_is_marked_as_taken) {
  for (const auto& [liquidity, mark] : {std::pair{'1', "ML"}, {'2', "TL"}, {'3', "TL"}}) {
    const FixFields fields = fields_of(fill_report({100, 1900000, 7, liquidity}));
    EXPECT_EQ(value_of(fields, 851), std::string(1, liquidity));
    EXPECT_EQ(value_of(fields, 9730), mark);
  }
}

TEST_F(Reports, a_trade_id_is_written_with_its_sign) {
  EXPECT_EQ(value_of(fields_of(fill_report({100, 1900000, -7, '1'})), 880), "-7");
}

TEST_F(Reports, the_average_price_is_0_before_anything_has_filled) {
  order.notional = 19000.0;
  for (const auto& [kind, report] : kinds()) {
    EXPECT_EQ(value_of(fields_of(report()), 6), "0") << kind;
  }
}

TEST_F(Reports, prices_have_four_decimals_at_most_and_no_trailing_zeros) {
  order.price = 9999;
  order.cum = 3;
  order.notional = 2.0;
  const FixFields fields = fields_of(fill_report({1, 1, 7, '2'}));
  EXPECT_EQ(value_of(fields, 44), "0.9999");
  EXPECT_EQ(value_of(fields, 31), "0.0001");
  EXPECT_EQ(value_of(fields, 6), "0.6667");
}

TEST_F(Reports, a_price_that_was_no_number_shows_as_the_lowest_there_is) {
  order.price = std::numeric_limits<int64_t>::min();
  const FixFields fields = fields_of(reject_report("AAPL", "InvalidPrice", "0"));
  EXPECT_EQ(value_of(fields, 44), "-922337203685477.625");
}

TEST_F(Reports, quantities_fill_the_whole_of_32_bits) {
  order.qty = order.leaves = order.cum = 4294967295;
  const FixFields fields = fields_of(fill_report({4294967295, 1, 7, '1'}));
  for (const int tag : {38, 32, 151, 14}) EXPECT_EQ(value_of(fields, tag), "4294967295") << tag;
}

TEST_F(Reports, numbers_at_their_ends_and_texts_of_any_length_are_written_whole) {
  constexpr int64_t LOWEST = std::numeric_limits<int64_t>::min();
  const std::string symbol(5000, 's');
  const std::string request(6000, 'r');
  const std::string text(7000, 't');
  const std::string reason(8000, 'e');
  order.id = std::numeric_limits<uint64_t>::max();
  order.cl_ord_id = std::string(9000, 'o');
  order.price = LOWEST;
  order.qty = order.leaves = order.cum = 4294967295;
  order.notional = -std::numeric_limits<double>::max();
  exchange.engine.next_exec_id = 4294967294;
  FixFields fields = fields_of(fill_report({4294967295, LOWEST, LOWEST, '1'}, symbol));
  EXPECT_EQ(value_of(fields, 37), "18446744073709551615");
  EXPECT_EQ(value_of(fields, 11), order.cl_ord_id);
  EXPECT_EQ(value_of(fields, 17), "E4294967295");
  EXPECT_EQ(value_of(fields, 55), symbol);
  EXPECT_EQ(value_of(fields, 44), "-922337203685477.625");
  EXPECT_EQ(value_of(fields, 31), "-922337203685477.625");
  EXPECT_EQ(value_of(fields, 6).size(), 47U);  // cut: no price has so many digits
  EXPECT_EQ(value_of(fields, 880), "-9223372036854775808");
  fields = fields_of(cancel_report(request, symbol));
  EXPECT_EQ(value_of(fields, 11), request);
  EXPECT_EQ(value_of(fields, 41), order.cl_ord_id);
  fields = fields_of(reject_report(symbol, text, reason));
  EXPECT_EQ(value_of(fields, 58), text);
  EXPECT_EQ(value_of(fields, 103), reason);
  fields = fields_of(replace_reject({request, order.cl_ord_id, order.id, '0', '2', text}));
  EXPECT_EQ(value_of(fields, 37), "18446744073709551615");
  EXPECT_EQ(value_of(fields, 11), request);
  EXPECT_EQ(value_of(fields, 41), order.cl_ord_id);
  EXPECT_EQ(value_of(fields, 58), text);
}

TEST_F(Reports, exec_ids_count_through_all_clients_and_cancel_rejects_take_none) {
  EXPECT_EQ(value_of(fields_of(new_report()), 17), "E1");
  Outbox out;
  build_new_report(to(out, "BETA"), order, "AAPL");
  EXPECT_EQ(value_of(fields_of(std::string(out[0])), 17), "E2");
  cancel_reject(UNKNOWN_ORDER);
  replace_reject(UNKNOWN_ORDER);
  EXPECT_EQ(value_of(fields_of(new_report()), 17), "E3");
}

TEST_F(Reports, fills_are_counted_when_they_are_composed) {
  for (const auto& [kind, report] : kinds_but_fills()) report();
  cancel_reject(UNKNOWN_ORDER);
  replace_reject(UNKNOWN_ORDER);
  EXPECT_EQ(exchange.scenario.counters.fills, 0U);
  fill_report(HUNDRED_AT_190);
  order.leaves = 0;
  fill_report(HUNDRED_AT_190);
  EXPECT_EQ(exchange.scenario.counters.fills, 2U);
}

// --- Number, store, log ---

TEST_F(Reports, each_takes_the_next_number_of_its_owner_s_stream) {
  stream().set_next_out(41);
  const auto number_of = [](std::string_view message) {
    return value_of(fields_of(std::string(message)), 34);
  };
  Outbox out;
  build_new_report(to(out), order, "AAPL");
  build_new_report(to(out, "BETA"), order, "AAPL");
  build_cancel_reject(to(out), UNKNOWN_ORDER);
  ASSERT_EQ(out.size(), 3U);  // in the order in which they were built
  EXPECT_EQ(number_of(out[0]), "41");
  EXPECT_EQ(number_of(out[1]), "1");
  EXPECT_EQ(number_of(out[2]), "42");
  EXPECT_EQ(value_of(fields_of(std::string(out[1])), 56), "BETA");
  EXPECT_EQ(stream().next_out(), 43U);
  EXPECT_EQ(stream("BETA").next_out(), 2U);
}

TEST_F(Reports, each_is_stored_with_its_own_copy_of_the_fields_and_its_time) {
  const std::string accepted = new_report();
  advance_ms(1);
  const std::string refused = cancel_reject(UNKNOWN_ORDER);
  const std::vector<Stored> stored = stream().stored();
  ASSERT_EQ(stored.size(), 2U);
  EXPECT_EQ(stored[0].seq, 1U);
  EXPECT_EQ(stored[0].msg_type, "8");
  EXPECT_EQ(stored[0].body, body_of(accepted));
  EXPECT_EQ(stored[0].sending_time, "20231114-22:13:20.123");
  EXPECT_EQ(stored[1].seq, 2U);
  EXPECT_EQ(stored[1].msg_type, "9");
  EXPECT_EQ(readable(stored[1].body), "37=NONE|11=a2|41=a1|39=8|102=1|434=1|58=Unknown order|");
  EXPECT_EQ(stored[1].body, body_of(refused));
  EXPECT_EQ(stored[1].sending_time, "20231114-22:13:20.124");
}

TEST_F(Reports, every_kind_is_numbered_and_stored_and_logged_once) {
  uint32_t seq = 0;
  for (const auto& [kind, report] : kinds()) {
    SCOPED_TRACE(kind);
    const std::string message = report();
    EXPECT_EQ(value_of(fields_of(message), 34), std::to_string(++seq));
    const std::vector<Stored> stored = stream().stored();
    ASSERT_EQ(stored.size(), seq);
    EXPECT_EQ(stored.back().seq, seq);
    EXPECT_EQ(stored.back().msg_type, "8");
    EXPECT_EQ(stored.back().body, body_of(message));
    const std::string line = events();
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
  }
}

TEST_F(Reports, the_stored_time_and_the_sent_one_are_separate_readings_of_the_clock) {
  step_system_clock_by(1'000'000);
  const std::string message = new_report();
  // TransactTime, the order event, the store, SendingTime.
  EXPECT_EQ(value_of(fields_of(message), 60), "20231114-22:13:20.123");
  EXPECT_THAT(events(), testing::StartsWith("{\"t\":1700000000124456789,"));
  EXPECT_EQ(stream().stored().at(0).sending_time, "20231114-22:13:20.125");
  EXPECT_EQ(value_of(fields_of(message), 52), "20231114-22:13:20.126");
}

TEST_F(Reports, a_refusal_is_logged_before_it_is_numbered) {
  step_system_clock_by(1'000'000);
  const std::string message = cancel_reject(UNKNOWN_ORDER);
  EXPECT_THAT(events(), testing::StartsWith("{\"t\":1700000000123456789,"));
  EXPECT_EQ(stream().stored().at(0).sending_time, "20231114-22:13:20.124");
  EXPECT_EQ(value_of(fields_of(message), 52), "20231114-22:13:20.125");
}

TEST_F(Reports, the_store_keeps_the_latest_200000_messages_of_a_stream) {
  exchange.scenario.order_truth.close();
  for (int i = 0; i < 200000; ++i) new_report();
  EXPECT_EQ(stream().stored_count(), 200000U);
  EXPECT_EQ(stream().stored().front().seq, 1U);
  cancel_reject(UNKNOWN_ORDER);
  EXPECT_EQ(stream().stored_count(), 200000U);
  const std::vector<Stored> stored = stream().stored();
  EXPECT_EQ(stored.front().seq, 2U);
  EXPECT_EQ(stored.back().seq, 200001U);
}

TEST_F(Reports, an_absent_owner_s_report_is_numbered_stored_logged_and_counted_all_the_same) {
  FixPeer owner = exchange.logs_on("OWNER");
  owner.says("35=D|11=o1|55=AAPL|54=2|38=100|40=2|44=190.00|18=i");
  owner.hears("35=8|150=0|34=1");
  owner.disconnects();
  events();
  exchange.is_hit("AAPL buy 100");
  exchange.drains_deferred();
  owner.hears_nothing();
  EXPECT_EQ(owner.stream().next_out(), 3U);
  const std::vector<Stored> stored = owner.stream().stored();
  ASSERT_EQ(stored.size(), 2U);
  EXPECT_THAT(readable(stored.back().body), testing::HasSubstr("|150=2|39=2|"));
  EXPECT_THAT(events(), testing::HasSubstr("\"ev\":\"fill\",\"cl\":\"o1\""));
  EXPECT_EQ(exchange.scenario.counters.fills, 1U);
}

}  // namespace
}  // namespace quorl::test
