#include "tests/share/expected.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <map>

namespace share {
namespace {

using client::DeepMessage;
using client::Price4;

std::string text(const char* format, auto... values) {
  std::array<char, 200> buffer{};
  std::snprintf(buffer.data(), buffer.size(), format, values...);
  return buffer.data();
}

/// "Nov 21, 2026 23:57:31.950260638 UTC"
std::string time_text(uint64_t ns) {
  const auto seconds = static_cast<std::time_t>(ns / 1000000000);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 64> buffer{};
  (void)std::strftime(buffer.data(), buffer.size(), "%b %e, %Y %H:%M:%S", &parts);
  return buffer.data() + text(".%09u UTC", static_cast<unsigned>(ns % 1000000000));
}

/// "190.0600"
std::string dollars(Price4 price) { return text("%.4f", static_cast<double>(price) / 10000); }

std::string quoted(char c) { return std::string("'") + c + "'"; }

Shown item(const char* name, std::string value, std::string label = "") {
  return {name, std::move(value), std::move(label)};
}

Shown number(const char* name, uint64_t value) { return item(name, std::to_string(value)); }

/// A character and what it stands for.
Shown code(const char* name, char c, const std::string& label, const std::string& meaning) {
  return item(name, quoted(c), label + ": " + meaning + " (" + quoted(c) + ")");
}

Shown flag(const char* name, bool set, const char* label) {
  return item(name, set ? "1" : "0", std::string(label) + (set ? "True" : "False"));
}

std::vector<Shown> price(const std::string& name, const std::string& label, Price4 value) {
  return {item(name.c_str(), text("%.15g", static_cast<double>(value) / 10000),
               label + ": " + dollars(value)),
          item((name + "_raw").c_str(), std::to_string(value))};
}

const std::map<char, std::string> NAMES = {{'S', "System Event"},
                                           {'D', "Security Directory"},
                                           {'H', "Trading Status"},
                                           {'O', "Operational Halt Status"},
                                           {'P', "Short Sale Price Test Status"},
                                           {'I', "Retail Liquidity Indicator"},
                                           {'E', "Security Event"},
                                           {'8', "Price Level Update, buy side"},
                                           {'5', "Price Level Update, sell side"},
                                           {'T', "Trade Report"}};

const std::map<char, std::string> EVENTS = {{'O', "start of messages"},
                                            {'S', "start of system hours"},
                                            {'R', "start of regular market hours"}};

/// The fields of one message behind its type.
struct Fields {
  Items items = {};
  std::string summary = {};  // behind the name

  void common(uint64_t timestamp_ns, const std::string& symbol) {
    items.push_back(item("quorl_deep.timestamp", time_text(timestamp_ns)));
    items.push_back(item("quorl_deep.symbol", symbol));
    summary = symbol;
  }

  void operator()(const client::SystemEvent& m) {
    items.push_back(code("quorl_deep.system_event", m.event, "Event", EVENTS.at(m.event)));
    items.push_back(item("quorl_deep.timestamp", time_text(m.timestamp_ns)));
    summary = EVENTS.at(m.event);
  }

  void operator()(const client::SecurityDirectory& m) {
    items.push_back(item("quorl_deep.directory_flags", "0x00"));
    common(m.timestamp_ns, m.symbol);
    items.push_back(number("quorl_deep.round_lot", m.round_lot));
    append(items, price("quorl_deep.previous_close", "Adjusted previous close", m.previous_close));
    items.push_back(number("quorl_deep.luld_tier", m.luld_tier));
  }

  void operator()(const client::TradingStatus& m) {
    items.push_back(code("quorl_deep.trading_status", m.status, "Status", "trading"));
    common(m.timestamp_ns, m.symbol);
    items.push_back(item("quorl_deep.reason", "    "));
  }

  void operator()(const client::OperationalHaltStatus& m) {
    items.push_back(code("quorl_deep.halt_status", m.status, "Status", "not halted"));
    common(m.timestamp_ns, m.symbol);
  }

  void operator()(const client::ShortSaleStatus& m) {
    items.push_back(
        item("quorl_deep.short_sale_status", "0", "Status: price test not in effect (0)"));
    common(m.timestamp_ns, m.symbol);
    items.push_back(code("quorl_deep.detail", ' ', "Detail", "no price test"));
  }

  void operator()(const client::RetailLiquidity& m) {
    items.push_back(code("quorl_deep.retail_indicator", ' ', "Indicator", "no retail interest"));
    common(m.timestamp_ns, m.symbol);
  }

  void operator()(const client::SecurityEvent& m) {
    items.push_back(code("quorl_deep.security_event", 'O', "Event", "opening process complete"));
    common(m.timestamp_ns, m.symbol);
  }

  void operator()(const client::LevelUpdate& m) {
    items.push_back(item("quorl_deep.event_flags", m.last_of_event ? "0x01" : "0x00"));
    items.push_back(flag("quorl_deep.event_flags.last", m.last_of_event,
                         m.last_of_event ? ".... ...1 = Last update of its event: "
                                         : ".... ...0 = Last update of its event: "));
    common(m.timestamp_ns, m.symbol);
    items.push_back(number("quorl_deep.size", m.size));
    append(items, price("quorl_deep.price", "Price", m.price));
    summary += " " + std::to_string(m.size) + " @ " + dollars(m.price);
    if (m.last_of_event) summary += ", last of its event";
  }

  void operator()(const client::TradeReport& m) {
    const bool odd_lot = m.size < 100;
    items.push_back(item("quorl_deep.sale_flags", odd_lot ? "0x20" : "0x00"));
    items.push_back(flag("quorl_deep.sale_flags.odd_lot", odd_lot,
                         odd_lot ? "..1. .... = Odd lot: " : "..0. .... = Odd lot: "));
    common(m.timestamp_ns, m.symbol);
    items.push_back(number("quorl_deep.size", m.size));
    append(items, price("quorl_deep.price", "Price", m.price));
    items.push_back(number("quorl_deep.trade_id", m.trade_id));
    summary += " " + std::to_string(m.size) + " @ " + dollars(m.price);
  }
};

std::string line_of(const Shown& shown) {
  return shown.name + " \"" + shown.value + "\" (" + shown.label + ")";
}

}  // namespace

Items items_of(const client::TpHeader& header) {
  return {number("quorl_tp.version", header.version),
          number("quorl_tp.reserved", header.reserved),
          item("quorl_tp.protocol_id", "0x8004", "Protocol id: DEEP (0x8004)"),
          number("quorl_tp.channel_id", header.channel_id),
          number("quorl_tp.session_id", header.session_id),
          number("quorl_tp.payload_length", header.payload_length),
          number("quorl_tp.message_count", header.message_count),
          number("quorl_tp.stream_offset", header.stream_offset),
          number("quorl_tp.first_seq", header.first_seq),
          item("quorl_tp.send_time", time_text(header.send_time_ns))};
}

Items items_of(const DeepMessage& message, std::optional<uint64_t> seq,
               std::optional<uint64_t> stream_offset) {
  const char type = type_of(message);
  Fields fields;
  std::visit(fields, message);
  Items items{{"quorl_deep", "", NAMES.at(type) + ": " + fields.summary}};
  items.push_back(number("quorl_deep.length", size_of(message)));
  if (seq) items.push_back(number("quorl_deep.seq", *seq));
  if (stream_offset) items.push_back(number("quorl_deep.stream_offset", *stream_offset));
  items.push_back(code("quorl_deep.type", type, "Type", NAMES.at(type)));
  append(items, fields.items);
  return items;
}

uint16_t size_of(const DeepMessage& message) {
  static const std::map<char, uint16_t> SIZES = {{'S', 10}, {'D', 31}, {'H', 22}, {'O', 18},
                                                 {'P', 19}, {'I', 18}, {'E', 18}, {'8', 30},
                                                 {'5', 30}, {'T', 38}};
  return SIZES.at(type_of(message));
}

void append(Items& items, const Items& more) {
  items.insert(items.end(), more.begin(), more.end());
}

std::string difference(const Items& expected, const std::vector<Shown>& shown) {
  for (size_t i = 0; i < std::max(expected.size(), shown.size()); ++i) {
    if (i == expected.size()) return "also shown: " + line_of(shown[i]);
    if (i == shown.size()) return "not shown: " + line_of(expected[i]);
    const bool same = expected[i].name == shown[i].name && expected[i].value == shown[i].value &&
                      (expected[i].label.empty() || expected[i].label == shown[i].label);
    if (!same) return "expected " + line_of(expected[i]) + ", shown " + line_of(shown[i]);
  }
  return "";
}

}  // namespace share
