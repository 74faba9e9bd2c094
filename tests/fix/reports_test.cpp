#include "fix/reports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/exchange.h"
#include "support/fix_wire.h"
#include "support/inside.h"
#include "support/test_clock.h"

namespace quorl::test {
namespace {

/// The client ALPHA and an order of its own, and the order event file.
class Reports : public testing::Test {
 protected:
  Reports() {
    alpha.comp_id = "ALPHA";
    exchange.scenario.order_truth.open_for_appending(truth_path);
  }
  ~Reports() override { std::remove(truth_path.c_str()); }

  SessionMemory stream() { return {exchange.engine, "ALPHA"}; }

  /// The lines of the order event file since the last look.
  std::string events() {
    std::ostringstream text;
    text << std::ifstream(truth_path).rdbuf();
    const std::string unseen = text.str().substr(events_seen);
    events_seen = text.str().size();
    return unseen;
  }

  std::string cancel_reject(std::string_view order_id, char ord_status, char reason,
                            char response_to, std::string_view text, std::string_view event) {
    return readable(build_cancel_reject(exchange.engine, alpha, "a2", "a1", order_id, ord_status,
                                        reason, response_to, text, event));
  }

  ExecReportArgs fill_of(char exec_type, uint32_t qty, Price4 price, char liquidity) {
    return {.client = alpha,
            .order = order,
            .order_id = "1000",
            .symbol = "AAPL",
            .trade_id = 7,
            .exec_type = exec_type,
            .ord_status = exec_type,
            .last_qty = qty,
            .last_px = price,
            .leaves = order.leaves,
            .cum = order.cum,
            .liquidity = liquidity};
  }

  const std::string truth_path =
      testing::TempDir() + "quorl_reports_" + std::to_string(::getpid()) + ".jsonl";
  size_t events_seen = 0;
  Exchange exchange{"AAPL:190.00"};
  Client alpha;
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
  EXPECT_EQ(readable(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "1000",
                                                         .symbol = "AAPL",
                                                         .exec_type = '0',
                                                         .ord_status = '0',
                                                         .leaves = 300})),
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
  EXPECT_EQ(
      readable(build_exec_report(
          exchange.engine,
          {.client = alpha, .order = order, .order_id = "1000", .symbol = "AAPL", .leaves = 300})),
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
  EXPECT_EQ(readable(build_exec_report(exchange.engine, fill_of('1', 100, 1900100, '2'))),
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
  EXPECT_EQ(readable(build_exec_report(exchange.engine, fill_of('2', 200, 1900000, '1'))),
            "8=FIX.4.2|9=243|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=2|39=2|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|44=190.5|32=200|"
            "31=190|151=0|14=300|6=190.0033|60=20231114-22:13:20.123|30=IEXG|375=IEXG|382=1|"
            "851=1|880=7|9730=ML|10=074|");
  EXPECT_THAT(events(), testing::HasSubstr("\"ev\":\"fill\""));
}

TEST_F(Reports, the_cancelled_rest_of_an_immediate_order) {
  order.cum = 100;
  order.notional = 19001.0;
  order.tif = '3';
  EXPECT_EQ(readable(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "1000",
                                                         .symbol = "AAPL",
                                                         .exec_type = '4',
                                                         .ord_status = '4',
                                                         .cum = 100,
                                                         .text = "UnmatchedIOC"})),
            "8=FIX.4.2|9=210|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=4|39=4|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=3|44=190.5|32=0|31=0|"
            "151=0|14=100|6=190.01|60=20231114-22:13:20.123|58=UnmatchedIOC|10=135|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":100,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"UnmatchedIOC\"}\n");
}

TEST_F(Reports, an_accepted_replace_names_the_new_id_and_the_old) {
  EXPECT_EQ(readable(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "1000",
                                                         .symbol = "AAPL",
                                                         .exec_type = '5',
                                                         .ord_status = '5',
                                                         .leaves = 300,
                                                         .new_cl_ord_id = "a2"})),
            "8=FIX.4.2|9=195|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a2|"
            "17=E1|20=0|150=5|39=5|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|41=a1|44=190.5|32=0|"
            "31=0|151=300|14=0|6=0|60=20231114-22:13:20.123|10=178|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"replace\",\"cl\":\"a2\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":0,\"leaves\":300,"
            "\"last_qty\":0,\"text\":\"\",\"ref\":\"a1\"}\n");
}

TEST_F(Reports, an_accepted_cancel_is_logged_under_the_order_s_own_id) {
  EXPECT_EQ(readable(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "1000",
                                                         .symbol = "AAPL",
                                                         .exec_type = '4',
                                                         .ord_status = '4',
                                                         .cl_ord_id = "c9"})),
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
  EXPECT_EQ(readable(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "",
                                                         .symbol = "NOPE",
                                                         .exec_type = '8',
                                                         .ord_status = '8',
                                                         .text = "UnknownSymbol",
                                                         .rej_reason = "0"})),
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
  EXPECT_EQ(readable(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "1000",
                                                         .symbol = "AAPL",
                                                         .exec_type = '4',
                                                         .ord_status = '4',
                                                         .cum = 100,
                                                         .text = "AdminCancel",
                                                         .cl_ord_id = "a1",
                                                         .truth_text = "unsolicited"})),
            "8=FIX.4.2|9=214|35=8|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a1|"
            "17=E1|20=0|150=4|39=4|55=AAPL|54=1|38=300|18=i|40=2|47=P|59=0|41=a1|44=190.5|32=0|"
            "31=0|151=0|14=100|6=190.5|60=20231114-22:13:20.123|58=AdminCancel|10=076|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel\",\"cl\":\"a1\",\"oid\":1000,\"symbol\":"
            "\"AAPL\",\"side\":\"B\",\"qty\":300,\"px\":190.5,\"cum\":100,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"unsolicited\"}\n");
}

TEST_F(Reports, a_refused_cancel) {
  EXPECT_EQ(cancel_reject("", '8', '1', '1', "Unknown order", "cancel_reject"),
            "8=FIX.4.2|9=106|35=9|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=NONE|11=a2|"
            "41=a1|39=8|102=1|434=1|58=Unknown order|10=144|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"cancel_reject\",\"cl\":\"a1\",\"oid\":0,"
            "\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"Unknown order\"}\n");
}

TEST_F(Reports, a_refused_replace_refers_to_the_request_in_the_log) {
  EXPECT_EQ(cancel_reject("1000", '0', '2', '2', "InvalidPrice", "replace_reject"),
            "8=FIX.4.2|9=105|35=9|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a2|"
            "41=a1|39=0|102=2|434=2|58=InvalidPrice|10=168|");
  EXPECT_EQ(events(),
            "{\"t\":1700000000123456789,\"ev\":\"replace_reject\",\"cl\":\"a1\",\"oid\":1000,"
            "\"symbol\":\"\",\"side\":\" \",\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,"
            "\"last_qty\":0,\"text\":\"InvalidPrice\",\"ref\":\"a2\"}\n");
}

TEST_F(Reports, a_refusal_without_a_text_still_has_its_tag) {
  EXPECT_EQ(cancel_reject("1000", '2', '0', '1', "", "cancel_reject"),
            "8=FIX.4.2|9=93|35=9|34=1|49=IEXG|56=ALPHA|52=20231114-22:13:20.123|37=1000|11=a2|"
            "41=a1|39=2|102=0|434=1|58=|10=195|");
}

// --- What the composers decide ---

TEST_F(Reports, a_new_client_order_id_goes_before_a_given_one_and_that_before_the_order_s) {
  const auto report = [this](std::string_view cl_ord_id, std::string_view new_cl_ord_id) {
    return fields_of(build_exec_report(exchange.engine, {.client = alpha,
                                                         .order = order,
                                                         .order_id = "1000",
                                                         .symbol = "AAPL",
                                                         .exec_type = '5',
                                                         .ord_status = '5',
                                                         .cl_ord_id = cl_ord_id,
                                                         .new_cl_ord_id = new_cl_ord_id}));
  };
  EXPECT_EQ(value_of(report("c", "n"), 11), "n");
  EXPECT_EQ(value_of(report("c", ""), 11), "c");
  EXPECT_EQ(value_of(report("", ""), 11), "a1");
  EXPECT_EQ(value_of(report("c", "n"), 41), "a1");
  EXPECT_EQ(value_of(report("c", ""), 41), "a1");
  EXPECT_EQ(value_of(report("", "n"), 41), "a1");
  EXPECT_EQ(value_of(report("", ""), 41), "(absent)");
}

TEST_F(Reports, only_a_replace_refers_to_the_old_id_in_the_log) {
  build_exec_report(exchange.engine, {.client = alpha,
                                      .order = order,
                                      .order_id = "1000",
                                      .symbol = "AAPL",
                                      .exec_type = '4',
                                      .ord_status = '4',
                                      .cl_ord_id = "c9"});
  EXPECT_THAT(events(), testing::Not(testing::HasSubstr("\"ref\"")));
}

TEST_F(Reports, the_log_prefers_its_own_text_to_the_report_s) {
  const auto text_of = [this](char exec_type, std::string_view text, std::string_view truth_text) {
    build_exec_report(exchange.engine, {.client = alpha,
                                        .order = order,
                                        .order_id = "1000",
                                        .symbol = "AAPL",
                                        .exec_type = exec_type,
                                        .ord_status = exec_type,
                                        .text = text,
                                        .truth_text = truth_text});
    const std::string line = events();
    const size_t begin = line.find("\"text\":") + 7;
    return line.substr(begin, line.find('}') - begin);
  };
  EXPECT_EQ(text_of('4', "a", "b"), "\"b\"");
  EXPECT_EQ(text_of('4', "a", ""), "\"a\"");
  EXPECT_EQ(text_of('4', "", ""), "\"cancel\"");
  EXPECT_EQ(text_of('0', "", ""), "\"\"");
  EXPECT_EQ(text_of('8', "", ""), "\"\"");
}

TEST_F(Reports, each_exec_type_has_its_event_word_and_any_other_is_a_fill) {
  const auto word_of = [this](char exec_type) {
    build_exec_report(exchange.engine, fill_of(exec_type, 0, 0, ' '));
    const std::string line = events();
    const size_t begin = line.find("\"ev\":\"") + 6;
    return line.substr(begin, line.find('"', begin) - begin);
  };
  EXPECT_EQ(word_of('0'), "new");
  EXPECT_EQ(word_of('5'), "replace");
  EXPECT_EQ(word_of('8'), "reject");
  EXPECT_EQ(word_of('4'), "cancel");
  EXPECT_EQ(word_of('1'), "fill");
  EXPECT_EQ(word_of('2'), "fill");
  EXPECT_EQ(word_of('7'), "fill");
}

TEST_F(Reports, each_side_keeps_its_character_and_is_logged_as_buy_or_sell) {
  for (const auto& [side, logged] : {std::pair{'1', "\"side\":\"B\""},
                                     {'2', "\"side\":\"S\""},
                                     {'5', "\"side\":\"S\""},
                                     {'6', "\"side\":\"S\""},
                                     {' ', "\"side\":\"S\""}}) {
    order.side = side;
    const FixFields fields = fields_of(build_exec_report(exchange.engine, fill_of('0', 0, 0, ' ')));
    EXPECT_EQ(value_of(fields, 54), std::string(1, side));
    EXPECT_THAT(events(), testing::HasSubstr(logged));
  }
}

TEST_F(Reports, only_a_fill_has_the_fill_s_own_fields) {
  for (const char exec_type : {'0', '4', '5', '8', '3'}) {
    const FixFields fields =
        fields_of(build_exec_report(exchange.engine, fill_of(exec_type, 0, 0, '1')));
    for (const int tag : {30, 375, 382, 851, 880, 9730}) {
      EXPECT_EQ(value_of(fields, tag), "(absent)") << exec_type << " has tag " << tag;
    }
  }
}

TEST_F(Reports, any_liquidity_but_added_is_marked_as_taken) {
  for (const auto& [liquidity, mark] : {std::pair{'1', "ML"}, {'2', "TL"}, {'3', "TL"}}) {
    const FixFields fields =
        fields_of(build_exec_report(exchange.engine, fill_of('2', 100, 1900000, liquidity)));
    EXPECT_EQ(value_of(fields, 851), std::string(1, liquidity));
    EXPECT_EQ(value_of(fields, 9730), mark);
  }
}

TEST_F(Reports, a_trade_id_is_written_with_its_sign) {
  ExecReportArgs args = fill_of('2', 100, 1900000, '1');
  args.trade_id = -7;
  EXPECT_EQ(value_of(fields_of(build_exec_report(exchange.engine, args)), 880), "-7");
}

TEST_F(Reports, the_average_price_is_0_before_anything_has_filled) {
  order.notional = 19000.0;
  ExecReportArgs args = fill_of('0', 0, 0, ' ');
  args.cum = 0;
  EXPECT_EQ(value_of(fields_of(build_exec_report(exchange.engine, args)), 6), "0");
}

TEST_F(Reports, prices_have_four_decimals_at_most_and_no_trailing_zeros) {
  order.price = 9999;
  order.cum = 3;
  order.notional = 2.0;
  const FixFields fields = fields_of(build_exec_report(exchange.engine, fill_of('1', 1, 1, '2')));
  EXPECT_EQ(value_of(fields, 44), "0.9999");
  EXPECT_EQ(value_of(fields, 31), "0.0001");
  EXPECT_EQ(value_of(fields, 6), "0.6667");
}

TEST_F(Reports, a_price_that_was_no_number_shows_as_the_lowest_there_is) {
  order.price = std::numeric_limits<int64_t>::min();
  const FixFields fields = fields_of(build_exec_report(exchange.engine, fill_of('8', 0, 0, ' ')));
  EXPECT_EQ(value_of(fields, 44), "-922337203685477.625");
}

TEST_F(Reports, quantities_fill_the_whole_of_32_bits) {
  order.qty = order.leaves = order.cum = 4294967295;
  const FixFields fields =
      fields_of(build_exec_report(exchange.engine, fill_of('1', 4294967295, 1, '1')));
  for (const int tag : {38, 32, 151, 14}) EXPECT_EQ(value_of(fields, tag), "4294967295") << tag;
}

TEST_F(Reports, exec_ids_count_through_all_clients_and_cancel_rejects_take_none) {
  Client beta;
  beta.comp_id = "BETA";
  ExecReportArgs to_beta{.client = beta, .order = order, .order_id = "1", .symbol = "AAPL"};
  EXPECT_EQ(value_of(fields_of(build_exec_report(exchange.engine, fill_of('0', 0, 0, ' '))), 17),
            "E1");
  EXPECT_EQ(value_of(fields_of(build_exec_report(exchange.engine, to_beta)), 17), "E2");
  cancel_reject("", '8', '1', '1', "Unknown order", "cancel_reject");
  EXPECT_EQ(value_of(fields_of(build_exec_report(exchange.engine, fill_of('0', 0, 0, ' '))), 17),
            "E3");
}

TEST_F(Reports, fills_are_counted_when_they_are_composed) {
  for (const char exec_type : {'0', '4', '5', '8'}) {
    build_exec_report(exchange.engine, fill_of(exec_type, 0, 0, ' '));
  }
  EXPECT_EQ(exchange.scenario.counters.fills, 0U);
  build_exec_report(exchange.engine, fill_of('1', 100, 1900000, '1'));
  build_exec_report(exchange.engine, fill_of('2', 100, 1900000, '1'));
  EXPECT_EQ(exchange.scenario.counters.fills, 2U);
}

// --- Number, store, log ---

TEST_F(Reports, each_takes_the_next_number_of_its_owner_s_stream) {
  Client beta;
  beta.comp_id = "BETA";
  stream().set_next_out(41);
  const auto number_of = [](const std::string& message) {
    return value_of(fields_of(message), 34);
  };
  EXPECT_EQ(number_of(prepare_app_message(exchange.engine, alpha, "8", {})), "41");
  EXPECT_EQ(number_of(prepare_app_message(exchange.engine, beta, "8", {})), "1");
  EXPECT_EQ(number_of(prepare_app_message(exchange.engine, alpha, "9", {})), "42");
  EXPECT_EQ(stream().next_out(), 43U);
  EXPECT_EQ(SessionMemory(exchange.engine, "BETA").next_out(), 2U);
}

TEST_F(Reports, each_is_stored_with_its_own_copy_of_the_fields_and_its_time) {
  prepare_app_message(exchange.engine, alpha, "8", {{58, "one"}});
  advance_ms(1);
  prepare_app_message(exchange.engine, alpha, "9", {{58, "two"}});
  const std::vector<Stored> stored = stream().stored();
  ASSERT_EQ(stored.size(), 2U);
  EXPECT_EQ(stored[0].seq, 1U);
  EXPECT_EQ(stored[0].msg_type, "8");
  EXPECT_EQ(readable(stored[0].body), "58=one|");
  EXPECT_EQ(stored[0].sending_time, "20231114-22:13:20.123");
  EXPECT_EQ(stored[1].seq, 2U);
  EXPECT_EQ(stored[1].msg_type, "9");
  EXPECT_EQ(readable(stored[1].body), "58=two|");
  EXPECT_EQ(stored[1].sending_time, "20231114-22:13:20.124");
}

TEST_F(Reports, the_stored_time_and_the_sent_one_are_separate_readings_of_the_clock) {
  step_system_clock_by(1'000'000);
  const std::string message = build_exec_report(exchange.engine, fill_of('0', 0, 0, ' '));
  // TransactTime, the order event, the store, SendingTime.
  EXPECT_EQ(value_of(fields_of(message), 60), "20231114-22:13:20.123");
  EXPECT_THAT(events(), testing::StartsWith("{\"t\":1700000000124456789,"));
  EXPECT_EQ(stream().stored().at(0).sending_time, "20231114-22:13:20.125");
  EXPECT_EQ(value_of(fields_of(message), 52), "20231114-22:13:20.126");
}

TEST_F(Reports, a_refusal_is_logged_before_it_is_numbered) {
  step_system_clock_by(1'000'000);
  const std::string message = cancel_reject("", '8', '1', '1', "Unknown order", "cancel_reject");
  EXPECT_THAT(events(), testing::StartsWith("{\"t\":1700000000123456789,"));
  EXPECT_EQ(stream().stored().at(0).sending_time, "20231114-22:13:20.124");
  EXPECT_EQ(value_of(fields_of(wire(message)), 52), "20231114-22:13:20.125");
}

TEST_F(Reports, the_store_keeps_the_latest_200000_messages_of_a_stream) {
  for (int i = 0; i < 200000; ++i) prepare_app_message(exchange.engine, alpha, "8", {});
  EXPECT_EQ(stream().stored_count(), 200000U);
  EXPECT_EQ(stream().stored().front().seq, 1U);
  prepare_app_message(exchange.engine, alpha, "8", {});
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
