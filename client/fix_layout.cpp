#include "quorl/client/fix_layout.h"

#include <algorithm>
#include <array>
#include <span>

#include "client/digits.h"
#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

using Form = bool (*)(const std::string&);

// The forms of values.
bool any(const std::string&) { return true; }
bool filled(const std::string& v) { return !v.empty(); }
bool character(const std::string& v) { return v.size() == 1; }
bool number(const std::string& v) { return is_digits(v) && (v == "0" || v[0] != '0'); }
bool above_zero(const std::string& v) { return number(v) && v != "0"; }
bool price(const std::string& v) { return is_price_text(v); }
bool price_not_zero(const std::string& v) { return is_price_text(v) && v != "0"; }
bool timestamp(const std::string& v) { return is_fix_timestamp(v); }
bool order_id(const std::string& v) { return v == "NONE" || above_zero(v); }
bool exec_id(const std::string& v) {
  return v.size() > 1 && v[0] == 'E' && above_zero(v.substr(1));
}
bool is_0(const std::string& v) { return v == "0"; }
bool is_1(const std::string& v) { return v == "1"; }
bool is_11(const std::string& v) { return v == "11"; }
bool is_y(const std::string& v) { return v == "Y"; }
bool is_exchange(const std::string& v) { return v == "IEXG"; }
bool one_or_two(const std::string& v) { return v == "1" || v == "2"; }
bool zero_to_two(const std::string& v) { return v == "0" || one_or_two(v); }
bool liquidity_mark(const std::string& v) { return v == "ML" || v == "TL"; }
bool exec_type(const std::string& v) {
  return v.size() == 1 && std::string_view("012458").find(v[0]) != std::string_view::npos;
}
bool is_invalid_msg_type(const std::string& v) { return v == "Invalid MsgType"; }
bool is_logon_rejected(const std::string& v) { return v.starts_with("Logon rejected: "); }

enum class Presence { ALWAYS, OPTIONAL };

struct Slot {
  int tag;
  Presence presence;
  Form form;
};

constexpr Presence ALWAYS = Presence::ALWAYS;
constexpr Presence OPTIONAL = Presence::OPTIONAL;

constexpr Slot LOGON[] = {{98, ALWAYS, is_0}, {108, ALWAYS, above_zero}, {141, OPTIONAL, is_y}};
constexpr Slot HEARTBEAT[] = {{112, OPTIONAL, filled}};
constexpr Slot RESEND_REQUEST[] = {{7, ALWAYS, number}, {16, ALWAYS, number}};
constexpr Slot REJECT[] = {
    {45, ALWAYS, number}, {373, ALWAYS, is_11}, {58, ALWAYS, is_invalid_msg_type}};
constexpr Slot SEQUENCE_RESET[] = {{43, ALWAYS, is_y}, {123, ALWAYS, is_y}, {36, ALWAYS, number}};
constexpr Slot LOGOUT[] = {{58, OPTIONAL, is_logon_rejected}};
constexpr Slot CANCEL_REJECT[] = {
    {43, OPTIONAL, is_y},       {122, OPTIONAL, timestamp}, {37, ALWAYS, order_id},
    {11, ALWAYS, any},          {41, ALWAYS, any},          {39, ALWAYS, character},
    {102, ALWAYS, zero_to_two}, {434, ALWAYS, one_or_two},  {58, ALWAYS, any}};
constexpr Slot EXECUTION_REPORT[] = {{43, OPTIONAL, is_y},
                                     {122, OPTIONAL, timestamp},
                                     {37, ALWAYS, order_id},
                                     {11, ALWAYS, any},
                                     {17, ALWAYS, exec_id},
                                     {20, ALWAYS, is_0},
                                     {150, ALWAYS, exec_type},
                                     {39, ALWAYS, exec_type},
                                     {55, ALWAYS, any},
                                     {54, ALWAYS, character},
                                     {38, ALWAYS, number},
                                     {18, ALWAYS, character},
                                     {40, ALWAYS, character},
                                     {47, ALWAYS, character},
                                     {59, ALWAYS, character},
                                     {41, OPTIONAL, any},
                                     {44, OPTIONAL, price_not_zero},
                                     {32, ALWAYS, number},
                                     {31, ALWAYS, price},
                                     {151, ALWAYS, number},
                                     {14, ALWAYS, number},
                                     {6, ALWAYS, price},
                                     {60, ALWAYS, timestamp},
                                     {30, OPTIONAL, is_exchange},
                                     {375, OPTIONAL, is_exchange},
                                     {382, OPTIONAL, is_1},
                                     {851, OPTIONAL, one_or_two},
                                     {880, OPTIONAL, above_zero},
                                     {9730, OPTIONAL, liquidity_mark},
                                     {58, OPTIONAL, filled},
                                     {103, OPTIONAL, character}};

struct Layout {
  const char* type;
  std::span<const Slot> slots;
};
constexpr Layout LAYOUTS[] = {
    {"A", LOGON},          {"0", HEARTBEAT}, {"2", RESEND_REQUEST},   {"3", REJECT},
    {"4", SEQUENCE_RESET}, {"5", LOGOUT},    {"8", EXECUTION_REPORT}, {"9", CANCEL_REJECT}};

[[noreturn]] void refuse(const FixMessage& message, const std::string& why) {
  throw WireError("35=" + message.type() + ": " + why + ": " + message.text());
}

/// The fields behind the header, against the slots one by one.
void check_slots(const FixMessage& message, std::span<const Slot> slots) {
  constexpr size_t HEAD = 7;
  const FixFields& fields = message.fields();
  size_t at = HEAD;
  for (const Slot& slot : slots) {
    if (fields[at].tag != slot.tag) {
      if (slot.presence == ALWAYS) {
        refuse(message, "tag " + std::to_string(slot.tag) + " is not at its place");
      }
      continue;
    }
    if (!slot.form(fields[at].value)) {
      refuse(message, "tag " + std::to_string(slot.tag) + " has a bad value");
    }
    ++at;
  }
  if (at != fields.size() - 1) {
    refuse(message, "tag " + std::to_string(fields[at].tag) + " should not be there");
  }
}

void check_all_or_none(const FixMessage& message, std::span<const int> tags, bool wanted) {
  for (const int tag : tags) {
    if (message.has(tag) != wanted) {
      refuse(message, "tag " + std::to_string(tag) + (wanted ? " is missing" : " is too much"));
    }
  }
}

void check_execution_report(const FixMessage& message) {
  constexpr std::array FILL_TAGS = {30, 375, 382, 851, 880, 9730};
  const auto require = [&message](bool holds, const char* why) {
    if (!holds) refuse(message, why);
  };
  const char type = message.get(150)[0];
  const bool is_fill = type == '1' || type == '2';
  const bool is_refused = type == '8';
  const uint64_t qty = message.number(38);
  const uint64_t leaves = message.number(151);
  const uint64_t cum = message.number(14);
  const uint64_t last = message.number(32);

  require(message.get(39) == message.get(150), "OrdStatus differs from ExecType");
  check_all_or_none(message, FILL_TAGS, is_fill);
  if (is_fill) {
    require((message.get(851) == "1") == (message.get(9730) == "ML"), "9730 contradicts 851");
    require(last > 0 && cum >= last, "a fill of nothing");
    require((type == '2') == (leaves == 0), "ExecType contradicts LeavesQty");
  } else {
    require(last == 0 && message.get(31) == "0", "a last fill where there is none");
  }
  require((message.get(37) == "NONE") == is_refused, "OrderID contradicts ExecType");
  require(message.has(103) == is_refused, "OrdRejReason contradicts ExecType");
  require(!is_refused || message.has(58), "a refusal without a Text");
  require(!message.has(58) || is_refused || type == '4', "a Text where there is none");
  require(!message.has(41) || type == '4' || type == '5', "OrigClOrdID where there is none");
  require(type != '5' || message.has(41), "a replace without OrigClOrdID");
  if (type == '4' || is_refused) {
    require(leaves == 0, "LeavesQty of an order that is gone");
  } else {
    require(leaves + cum == qty, "LeavesQty and CumQty do not make OrderQty");
  }
  require((type != '0' && !is_refused) || cum == 0, "CumQty of a new order");
  require((cum == 0) == (message.get(6) == "0"), "AvgPx contradicts CumQty");
}

}  // namespace

void check_layout(const FixMessage& message, const std::string& comp_id) {
  if (message.get(49) != "IEXG") refuse(message, "SenderCompID is not IEXG");
  if (message.get(56) != comp_id) refuse(message, "TargetCompID is not ours");
  for (const Layout& layout : LAYOUTS) {
    if (message.type() != layout.type) continue;
    check_slots(message, layout.slots);
    if (message.type() == "8" || message.type() == "9") {
      constexpr std::array REPLAY_TAGS = {43, 122};
      check_all_or_none(message, REPLAY_TAGS, message.has(43));
    }
    if (message.type() == "8") check_execution_report(message);
    return;
  }
  refuse(message, "the exchange sends no such type");
}

bool is_price_text(const std::string& text) {
  std::string_view digits = text;
  const bool negative = digits.starts_with('-');
  if (negative) digits.remove_prefix(1);
  const size_t point = digits.find('.');
  const std::string_view whole = digits.substr(0, std::min(point, digits.size()));
  if (!is_digits(whole) || (whole.size() > 1 && whole[0] == '0')) return false;
  if (point == std::string_view::npos) return !negative || whole != "0";
  const std::string_view decimals = digits.substr(point + 1);
  return is_digits(decimals) && decimals.size() <= 4 && decimals.back() != '0';
}

}  // namespace quorl::client
