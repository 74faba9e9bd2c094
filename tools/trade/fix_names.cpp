#include "tools/trade/fix_names.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace client = quorl::client;

namespace tools {
namespace {

struct ValueName {
  std::string_view value;
  std::string_view name;
};

struct TagName {
  int tag;
  std::string_view name;
  std::span<const ValueName> values = {};
};

constexpr ValueName MSG_TYPES[] = {
    {"0", "Heartbeat"},       {"1", "TestRequest"},        {"2", "ResendRequest"},
    {"3", "Reject"},          {"4", "SequenceReset"},      {"5", "Logout"},
    {"8", "ExecutionReport"}, {"9", "OrderCancelReject"},  {"A", "Logon"},
    {"D", "NewOrderSingle"},  {"F", "OrderCancelRequest"}, {"G", "OrderCancelReplaceRequest"}};
constexpr ValueName ORD_STATUSES[] = {{"0", "New"},      {"1", "PartiallyFilled"},
                                      {"2", "Filled"},   {"4", "Canceled"},
                                      {"5", "Replaced"}, {"8", "Rejected"}};
constexpr ValueName EXEC_TYPES[] = {{"0", "New"},      {"1", "PartialFill"}, {"2", "Fill"},
                                    {"4", "Canceled"}, {"5", "Replaced"},    {"8", "Rejected"}};
constexpr ValueName EXEC_TRANS_TYPES[] = {{"0", "New"}};
constexpr ValueName ORD_TYPES[] = {{"1", "Market"}, {"2", "Limit"}};
constexpr ValueName SIDES[] = {
    {"1", "Buy"}, {"2", "Sell"}, {"5", "SellShort"}, {"6", "SellShortExempt"}};
constexpr ValueName TIMES_IN_FORCE[] = {
    {"0", "Day"}, {"3", "ImmediateOrCancel"}, {"4", "FillOrKill"}};
constexpr ValueName CAPACITIES[] = {
    {"A", "Agency"}, {"P", "Principal"}, {"R", "RisklessPrincipal"}};
constexpr ValueName YES_OR_NO[] = {{"Y", "Yes"}, {"N", "No"}};
constexpr ValueName CXL_REJ_REASONS[] = {
    {"0", "TooLateToCancel"}, {"1", "UnknownOrder"}, {"2", "BrokerOption"}};
constexpr ValueName ORD_REJ_REASONS[] = {
    {"0", "BrokerOption"}, {"1", "UnknownSymbol"}, {"3", "OrderExceedsLimit"}};
constexpr ValueName SESSION_REJECT_REASONS[] = {{"11", "InvalidMsgType"}};
constexpr ValueName ENCRYPT_METHODS[] = {{"0", "None"}};
constexpr ValueName CXL_REJ_RESPONSES[] = {{"1", "OrderCancelRequest"},
                                           {"2", "OrderCancelReplaceRequest"}};
constexpr ValueName LIQUIDITY[] = {{"1", "AddedLiquidity"}, {"2", "RemovedLiquidity"}};
constexpr ValueName MARKS[] = {{"ML", "MakerLiquidity"}, {"TL", "TakerLiquidity"}};

/// Every tag that the exchange sends or reads, and every value that is a code.
constexpr TagName TAGS[] = {{6, "AvgPx"},
                            {7, "BeginSeqNo"},
                            {8, "BeginString"},
                            {9, "BodyLength"},
                            {10, "CheckSum"},
                            {11, "ClOrdID"},
                            {14, "CumQty"},
                            {16, "EndSeqNo"},
                            {17, "ExecID"},
                            {18, "ExecInst"},
                            {20, "ExecTransType", EXEC_TRANS_TYPES},
                            {30, "LastMkt"},
                            {31, "LastPx"},
                            {32, "LastShares"},
                            {34, "MsgSeqNum"},
                            {35, "MsgType", MSG_TYPES},
                            {36, "NewSeqNo"},
                            {37, "OrderID"},
                            {38, "OrderQty"},
                            {39, "OrdStatus", ORD_STATUSES},
                            {40, "OrdType", ORD_TYPES},
                            {41, "OrigClOrdID"},
                            {43, "PossDupFlag", YES_OR_NO},
                            {44, "Price"},
                            {45, "RefSeqNum"},
                            {47, "Rule80A", CAPACITIES},
                            {49, "SenderCompID"},
                            {52, "SendingTime"},
                            {54, "Side", SIDES},
                            {55, "Symbol"},
                            {56, "TargetCompID"},
                            {58, "Text"},
                            {59, "TimeInForce", TIMES_IN_FORCE},
                            {60, "TransactTime"},
                            {98, "EncryptMethod", ENCRYPT_METHODS},
                            {102, "CxlRejReason", CXL_REJ_REASONS},
                            {103, "OrdRejReason", ORD_REJ_REASONS},
                            {108, "HeartBtInt"},
                            {112, "TestReqID"},
                            {114, "LocateReqd", YES_OR_NO},
                            {122, "OrigSendingTime"},
                            {123, "GapFillFlag", YES_OR_NO},
                            {141, "ResetSeqNumFlag", YES_OR_NO},
                            {150, "ExecType", EXEC_TYPES},
                            {151, "LeavesQty"},
                            {373, "SessionRejectReason", SESSION_REJECT_REASONS},
                            {375, "ContraBroker"},
                            {382, "NoContraBrokers"},
                            {434, "CxlRejResponseTo", CXL_REJ_RESPONSES},
                            {851, "LastLiquidityInd", LIQUIDITY},
                            {880, "TrdMatchID"},
                            {9730, "LiquidityMark", MARKS}};

const TagName* known_tag(int tag) {
  const auto* found = std::ranges::find(TAGS, tag, &TagName::tag);
  return found == std::end(TAGS) ? nullptr : found;
}

/// Above 0; 0 if the text is no such number.
int tag_number(std::string_view text) {
  int tag = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), tag);
  return error == std::errc() && end == text.data() + text.size() && tag > 0 ? tag : 0;
}

int tag_from(std::string_view text) {
  const auto* found = std::ranges::find(TAGS, text, &TagName::name);
  return found == std::end(TAGS) ? tag_number(text) : found->tag;
}

std::string_view value_from(int tag, std::string_view text) {
  const TagName* known = known_tag(tag);
  if (known == nullptr) return text;
  const auto found = std::ranges::find(known->values, text, &ValueName::name);
  return found == known->values.end() ? text : found->value;
}

std::string explained_field(std::string_view field) {
  const size_t equals = field.find('=');
  if (equals == std::string_view::npos) return std::string(field);
  const TagName* tag = known_tag(tag_number(field.substr(0, equals)));
  if (tag == nullptr) return std::string(field);
  const std::string_view value = field.substr(equals + 1);
  const auto named = std::ranges::find(tag->values, value, &ValueName::value);
  return std::string(tag->name) + "=" +
         std::string(named == tag->values.end() ? value : named->name);
}

}  // namespace

std::string explained(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const size_t end = bytes.find(client::SOH);
    text += explained_field(bytes.substr(0, end));
    if (end == std::string_view::npos) break;
    text += '|';
    bytes.remove_prefix(end + 1);
  }
  return text;
}

std::optional<client::FixFields> read_fields(std::string_view text, std::string& complaint) {
  client::FixFields fields;
  while (!text.empty()) {
    const size_t end = std::min(text.find('|'), text.size());
    const std::string_view field = text.substr(0, end);
    const size_t equals = field.find('=');
    const int tag = equals == std::string_view::npos ? 0 : tag_from(field.substr(0, equals));
    if (tag == 0) {
      complaint = "'" + std::string(field) + "' is no field, such as 11=a1 or Side=Buy";
      return std::nullopt;
    }
    fields.push_back({tag, std::string(value_from(tag, field.substr(equals + 1)))});
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (fields.empty()) {
    complaint = "no fields";
    return std::nullopt;
  }
  return fields;
}

}  // namespace tools
