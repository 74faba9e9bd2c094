#include "quorl/client/fix_layout.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "quorl/client/errors.h"
#include "tests/client/replaced.h"

namespace quorl::client {
namespace {

const std::string STAMP = "20240102-03:04:05.006";

FixMessage message(const std::string& type, const std::string& rest) {
  return parse_fix(frame_fix("35=" + type + "|34=2|49=IEXG|56=ALPHA|52=" + STAMP + "|" + rest));
}

bool fits(const std::string& type, const std::string& rest) {
  try {
    check_layout(message(type, rest), "ALPHA");
    return true;
  } catch (const WireError&) {
    return false;
  }
}

const std::string ACCEPTED =
    "37=7|11=a1|17=E1|20=0|150=0|39=0|55=AAPL|54=1|38=500|18=i|40=2|47=P|"
    "59=0|44=190.5|32=0|31=0|151=500|14=0|6=0|60=" +
    STAMP + "|";
const std::string FILL =
    "37=7|11=a1|17=E2|20=0|150=1|39=1|55=AAPL|54=1|38=500|18=i|40=2|47=P|"
    "59=0|44=190.5|32=300|31=190.01|151=200|14=300|6=190.01|60=" +
    STAMP + "|30=IEXG|375=IEXG|382=1|851=2|880=12|9730=TL|";
const std::string CANCELLED =
    "37=7|11=c1|17=E3|20=0|150=4|39=4|55=AAPL|54=1|38=500|18=i|40=2|47=P|"
    "59=0|41=a1|44=190.5|32=0|31=0|151=0|14=300|6=190.01|60=" +
    STAMP + "|";
const std::string REFUSED =
    "37=NONE|11=a1|17=E4|20=0|150=8|39=8|55=AAPL|54=1|38=500|18=i|40=2|47=P|"
    "59=0|32=0|31=0|151=0|14=0|6=0|60=" +
    STAMP + "|58=UnknownSymbol|103=1|";
const std::string REPLACED =
    "37=7|11=a2|17=E5|20=0|150=5|39=5|55=AAPL|54=1|38=600|18=i|40=2|47=P|"
    "59=0|41=a1|44=190.5|32=0|31=0|151=300|14=300|6=190.01|60=" +
    STAMP + "|";
const std::string CANCEL_REJECT = "37=NONE|11=c1|41=a1|39=8|102=1|434=1|58=Unknown order|";

TEST(FixLayout, session_messages_have_their_fields_and_no_others) {
  EXPECT_TRUE(fits("A", "98=0|108=30|"));
  EXPECT_TRUE(fits("A", "98=0|108=30|141=Y|"));
  EXPECT_FALSE(fits("A", "98=0|"));
  EXPECT_FALSE(fits("A", "108=30|98=0|"));
  EXPECT_FALSE(fits("A", "98=1|108=30|"));
  EXPECT_FALSE(fits("A", "98=0|108=0|"));
  EXPECT_FALSE(fits("A", "98=0|108=30|141=N|"));
  EXPECT_FALSE(fits("A", "98=0|108=30|58=x|"));
  EXPECT_TRUE(fits("0", ""));
  EXPECT_TRUE(fits("0", "112=x|"));
  EXPECT_FALSE(fits("0", "112=|"));
  EXPECT_FALSE(fits("0", "58=x|"));
  EXPECT_TRUE(fits("2", "7=1|16=4|"));
  EXPECT_FALSE(fits("2", "16=4|7=1|"));
  EXPECT_TRUE(fits("3", "45=9|373=11|58=Invalid MsgType|"));
  EXPECT_FALSE(fits("3", "45=9|372=Q|373=11|58=Invalid MsgType|"));
  EXPECT_TRUE(fits("5", ""));
  EXPECT_TRUE(fits("5", "58=Logon rejected: HeartBtInt (108) missing|"));
  EXPECT_FALSE(fits("5", "58=bye|"));
}

TEST(FixLayout, a_gap_fill_is_a_possible_duplicate_without_an_original_time) {
  EXPECT_TRUE(fits("4", "43=Y|123=Y|36=5|"));
  EXPECT_FALSE(fits("4", "123=Y|36=5|"));
  EXPECT_FALSE(fits("4", "43=Y|122=" + STAMP + "|123=Y|36=5|"));
  EXPECT_FALSE(fits("4", "43=Y|36=5|123=Y|"));
}

TEST(FixLayout, each_kind_of_execution_report_passes) {
  for (const std::string& report : {ACCEPTED, FILL, CANCELLED, REFUSED, REPLACED}) {
    EXPECT_TRUE(fits("8", report)) << report;
    EXPECT_TRUE(fits("8", "43=Y|122=" + STAMP + "|" + report)) << report;
  }
  EXPECT_TRUE(fits("8", with(ACCEPTED, "44=190.5|", ""))) << "a market order";
}

TEST(FixLayout, no_field_of_a_report_can_be_left_out_doubled_or_moved) {
  for (const std::string& report : {ACCEPTED, FILL, REFUSED, REPLACED}) {
    const FixFields fields = fix_fields(report);
    for (size_t i = 0; i < fields.size(); ++i) {
      SCOPED_TRACE(fields[i].tag);
      const std::string text = std::to_string(fields[i].tag) + "=" + fields[i].value + "|";
      const std::string without = with("|" + report, "|" + text, "|").substr(1);
      if (fields[i].tag != 44) {
        EXPECT_FALSE(fits("8", without));
      }
      if (i != 0) {
        EXPECT_FALSE(fits("8", text + without));
      }
      if (i + 1 != fields.size()) {
        EXPECT_FALSE(fits("8", without + text));
      }
    }
  }
}

TEST(FixLayout, a_replay_carries_both_marks_or_none) {
  EXPECT_FALSE(fits("8", "43=Y|" + ACCEPTED));
  EXPECT_FALSE(fits("8", "122=" + STAMP + "|" + ACCEPTED));
  EXPECT_FALSE(fits("8", "122=" + STAMP + "|43=Y|" + ACCEPTED));
  EXPECT_FALSE(fits("8", "43=N|122=" + STAMP + "|" + ACCEPTED));
}

TEST(FixLayout, values_of_a_report_must_agree_with_each_other) {
  EXPECT_FALSE(fits("8", with(ACCEPTED, "39=0", "39=1"))) << "status against type";
  EXPECT_FALSE(fits("8", with(ACCEPTED, "151=500", "151=400"))) << "leaves and cum against qty";
  EXPECT_FALSE(fits("8", with(ACCEPTED, "32=0", "32=1"))) << "a last fill of a new order";
  EXPECT_FALSE(fits("8", with(ACCEPTED, "37=7", "37=NONE"))) << "no order id";
  EXPECT_FALSE(fits("8", with(FILL, "9730=TL", "9730=ML"))) << "liquidity mark";
  EXPECT_FALSE(fits("8", with(FILL, "851=2|", ""))) << "half a group of fill fields";
  EXPECT_FALSE(fits("8", with(with(FILL, "150=1", "150=2"), "39=1", "39=2"))) << "full with leaves";
  EXPECT_FALSE(fits("8", with(FILL, "6=190.01", "6=0"))) << "no average of a fill";
  EXPECT_FALSE(fits("8", with(CANCELLED, "151=0", "151=200"))) << "leaves of a cancelled order";
  EXPECT_FALSE(fits("8", with(REFUSED, "103=1|", ""))) << "a refusal without its reason";
  EXPECT_FALSE(fits("8", CANCELLED + "103=0|")) << "a reason without a refusal";
  EXPECT_FALSE(fits("8", ACCEPTED + "58=x|")) << "a text on an acceptance";
  EXPECT_FALSE(fits("8", with(REPLACED, "41=a1|", ""))) << "a replace of nothing";
}

TEST(FixLayout, values_of_a_report_have_their_form) {
  EXPECT_FALSE(fits("8", with(ACCEPTED, "17=E1", "17=E0")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, "17=E1", "17=1")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, "20=0", "20=1")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, "44=190.5", "44=190.50")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, "44=190.5", "44=0")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, "18=i", "18=ii")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, "38=500", "38=0500")));
  EXPECT_FALSE(fits("8", with(ACCEPTED, STAMP, "20240102-03:04:05")));
  EXPECT_FALSE(fits("8", with(FILL, "30=IEXG", "30=X")));
  EXPECT_FALSE(fits("8", with(FILL, "880=12", "880=0")));
}

TEST(FixLayout, a_cancel_reject_has_its_seven_fields) {
  EXPECT_TRUE(fits("9", CANCEL_REJECT));
  EXPECT_TRUE(fits("9", with(CANCEL_REJECT, "58=Unknown order", "58=")));
  EXPECT_TRUE(fits("9", "43=Y|122=" + STAMP + "|" + CANCEL_REJECT));
  EXPECT_FALSE(fits("9", "43=Y|" + CANCEL_REJECT));
  EXPECT_FALSE(fits("9", with(CANCEL_REJECT, "58=Unknown order|", "")));
  EXPECT_FALSE(fits("9", with(CANCEL_REJECT, "434=1", "434=3")));
  EXPECT_FALSE(fits("9", with(CANCEL_REJECT, "102=1", "102=9")));
  EXPECT_FALSE(fits("9", CANCEL_REJECT + "60=" + STAMP + "|"));
}

TEST(FixLayout, sender_target_and_type_are_held_to) {
  EXPECT_THROW(check_layout(message("0", ""), "BETA"), WireError);
  const auto from = [](const std::string& sender) {
    return parse_fix(frame_fix("35=0|34=2|49=" + sender + "|56=ALPHA|52=" + STAMP + "|"));
  };
  EXPECT_NO_THROW(check_layout(from("IEXG"), "ALPHA"));
  EXPECT_THROW(check_layout(from("OTHER"), "ALPHA"), WireError);
  EXPECT_FALSE(fits("1", "112=x|"));
  EXPECT_FALSE(fits("j", "45=2|"));
}

TEST(FixLayout, price_texts_have_one_form) {
  for (const char* text : {"0", "190", "190.5", "0.0001", "-3.25", "10000000"}) {
    EXPECT_TRUE(is_price_text(text)) << text;
  }
  for (const char* text :
       {"", "-", "-0", ".5", "5.", "190.0", "190.50", "0190", "1.00001", "1e5", "+1", " 1"}) {
    EXPECT_FALSE(is_price_text(text)) << text;
  }
}

}  // namespace
}  // namespace quorl::client
