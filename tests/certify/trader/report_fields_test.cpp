#include "certify/trader/report_fields.h"

#include <gtest/gtest.h>

#include "quorl/client/errors.h"
#include "quorl/client/json_lines.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;

std::string line_of(const std::string& fields) {
  const std::string line = event_line(client::FixMessage(client::fix_fields(fields)), 17);
  EXPECT_NO_THROW(client::parse_order_events(line)) << line;
  return line;
}

TEST(EventLine, of_an_order_a_fill_and_a_replace_are_those_of_the_exchange) {
  EXPECT_EQ(
      line_of("35=8|37=1372|11=o1|150=0|55=AAPL|54=1|38=100|44=185|32=0|151=100|14=0"),
      "{\"t\":17,\"ev\":\"new\",\"cl\":\"o1\",\"oid\":1372,\"symbol\":\"AAPL\",\"side\":\"B\","
      "\"qty\":100,\"px\":185,\"cum\":0,\"leaves\":100,\"last_qty\":0,\"text\":\"\"}\n");
  EXPECT_EQ(
      line_of("35=8|37=1372|11=o1|150=2|55=AAPL|54=5|38=100|32=60|151=0|14=100"),
      "{\"t\":17,\"ev\":\"fill\",\"cl\":\"o1\",\"oid\":1372,\"symbol\":\"AAPL\",\"side\":\"S\","
      "\"qty\":100,\"px\":0,\"cum\":100,\"leaves\":0,\"last_qty\":60,\"text\":\"\"}\n");
  EXPECT_EQ(
      line_of("35=8|37=1571|11=o4|41=o3|150=5|55=AAPL|54=1|38=100|44=183.5|32=0|151=100|14=0"),
      "{\"t\":17,\"ev\":\"replace\",\"cl\":\"o4\",\"oid\":1571,\"symbol\":\"AAPL\",\"side\":\"B\","
      "\"qty\":100,\"px\":183.5,\"cum\":0,\"leaves\":100,\"last_qty\":0,\"text\":\"\","
      "\"ref\":\"o3\"}\n");
}

TEST(EventLine, names_the_order_and_not_the_request_of_a_cancel_and_says_who_wanted_it) {
  const std::string cancel = "35=8|37=1372|150=4|55=AAPL|54=1|38=100|44=185|32=0|151=0|14=0|";
  const auto read = [](const std::string& fields) {
    return client::parse_order_events(line_of(fields)).at(0);
  };
  EXPECT_EQ(read(cancel + "11=c1|41=o1").cl, "o1");
  EXPECT_EQ(read(cancel + "11=c1|41=o1").text, "cancel");
  EXPECT_EQ(read(cancel + "11=o1|41=o1|58=AdminCancel").text, "unsolicited");
  EXPECT_EQ(read(cancel + "11=o1|58=UnmatchedIOC").text, "UnmatchedIOC");
  EXPECT_EQ(read(cancel + "11=o1|58=UnmatchedIOC").cl, "o1");
}

TEST(EventLine, of_a_reject_tells_no_more_than_the_exchange_writes) {
  EXPECT_EQ(
      line_of("35=9|37=NONE|11=c1|41=o1|39=2|102=0|434=1|58=Too late to cancel"),
      "{\"t\":17,\"ev\":\"cancel_reject\",\"cl\":\"o1\",\"oid\":0,\"symbol\":\"\",\"side\":\" \","
      "\"qty\":0,\"px\":0,\"cum\":0,\"leaves\":0,\"last_qty\":0,"
      "\"text\":\"Too late to cancel\"}\n");
  EXPECT_EQ(client::parse_order_events(line_of("35=9|37=5|11=o2|41=o1|39=0|434=2|58=no")).at(0).ref,
            "o2");
}

TEST(ReportFields, that_are_no_shares_or_no_price_are_refused) {
  const client::FixMessage report(client::fix_fields("14=-5|151=4294967296|38=7|44=x|6=190.05"));
  EXPECT_EQ(share_field(report, 38), 7u);
  EXPECT_THROW((void)share_field(report, 14), client::WireError);
  EXPECT_THROW((void)share_field(report, 151), client::WireError);
  EXPECT_THROW((void)price_field(report, 44), client::WireError);
  EXPECT_EQ(price_field(report, 6), 1900500);
}

}  // namespace
}  // namespace certify::trader
