#include "quorl/client/deep.h"

#include <cstdlib>
#include <string_view>
#include <type_traits>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr size_t SYMBOL_SIZE = 8;
constexpr uint8_t ODD_LOT_FLAG = 0x20;
constexpr uint32_t LARGEST_ODD_LOT = 99;
constexpr Price4 CENT = 100;

/// Reads one message field by field and complains in its name.
class DeepReader {
 public:
  DeepReader(ByteView bytes, std::string name)
      : name_(std::move(name)), bytes_(bytes), reader_(bytes, name_) {
    reader_.u8("type");
  }

  uint8_t u8(const char* field) { return reader_.u8(field); }
  uint32_t u32(const char* field) { return reader_.u32(field); }
  uint64_t u64(const char* field) { return reader_.u64(field); }
  Price4 price(const char* field) { return reader_.i64(field); }

  /// One of `allowed`.
  char character(const char* field, std::string_view allowed) {
    const char c = reader_.character(field);
    if (allowed.find(c) == std::string_view::npos) fail(field);
    return c;
  }

  uint64_t timestamp() {
    const uint64_t ns = reader_.u64("timestamp");
    if (ns == 0) fail("timestamp");
    return ns;
  }

  /// Printable characters, then only spaces.
  std::string symbol() {
    std::string text = to_text(reader_.take(SYMBOL_SIZE, "symbol"));
    const size_t end = text.find(' ');
    for (size_t i = 0; i < text.size(); ++i) {
      const bool printable = text[i] > ' ' && text[i] <= '~';
      if (i < end ? !printable : text[i] != ' ') fail("symbol");
    }
    return text.substr(0, end);
  }

  void spaces(const char* field, size_t count) {
    for (const uint8_t byte : reader_.take(count, field)) require(byte == ' ', field);
  }

  void require(bool holds, const char* field) const {
    if (!holds) fail(field);
  }

  void end() const { reader_.expect_end(); }

 private:
  [[noreturn]] void fail(const char* field) const {
    throw WireError(name_ + " with a bad " + field + ": " + hex(bytes_));
  }

  std::string name_;
  ByteView bytes_;
  ByteReader reader_;
};

SystemEvent read_system_event(ByteView bytes) {
  DeepReader in(bytes, "System Event");
  SystemEvent m;
  m.event = in.character("event", "OSR");
  m.timestamp_ns = in.timestamp();
  in.end();
  return m;
}

SecurityDirectory read_security_directory(ByteView bytes) {
  DeepReader in(bytes, "Security Directory");
  SecurityDirectory m;
  in.require(in.u8("flags") == 0, "flags");
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  m.round_lot = in.u32("round lot size");
  in.require(m.round_lot == 100, "round lot size");
  m.previous_close = in.price("previous close");
  in.require(m.previous_close % CENT == 0, "previous close");
  m.luld_tier = in.u8("LULD tier");
  in.require(m.luld_tier == 1, "LULD tier");
  in.end();
  return m;
}

TradingStatus read_trading_status(ByteView bytes) {
  DeepReader in(bytes, "Trading Status");
  TradingStatus m;
  m.status = in.character("status", "T");
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  in.spaces("reason", 4);
  in.end();
  return m;
}

OperationalHaltStatus read_operational_halt(ByteView bytes) {
  DeepReader in(bytes, "Operational Halt Status");
  OperationalHaltStatus m;
  m.status = in.character("status", "N");
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  in.end();
  return m;
}

ShortSaleStatus read_short_sale(ByteView bytes) {
  DeepReader in(bytes, "Short Sale Price Test Status");
  ShortSaleStatus m;
  in.require(in.u8("status") == 0, "status");
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  in.spaces("detail", 1);
  in.end();
  return m;
}

RetailLiquidity read_retail_liquidity(ByteView bytes) {
  DeepReader in(bytes, "Retail Liquidity Indicator");
  RetailLiquidity m;
  in.spaces("indicator", 1);
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  in.end();
  return m;
}

SecurityEvent read_security_event(ByteView bytes) {
  DeepReader in(bytes, "Security Event");
  SecurityEvent m;
  in.character("event", "O");
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  in.end();
  return m;
}

LevelUpdate read_level_update(ByteView bytes) {
  DeepReader in(bytes, "Price Level Update");
  LevelUpdate m;
  m.buy = bytes[0] == '8';
  const uint8_t flags = in.u8("event flags");
  in.require(flags <= 1, "event flags");
  m.last_of_event = flags == 1;
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  m.size = in.u32("size");
  m.price = in.price("price");
  in.end();
  return m;
}

TradeReport read_trade_report(ByteView bytes) {
  DeepReader in(bytes, "Trade Report");
  TradeReport m;
  const uint8_t flags = in.u8("sale condition flags");
  m.timestamp_ns = in.timestamp();
  m.symbol = in.symbol();
  m.size = in.u32("size");
  in.require(m.size > 0, "size");
  in.require(flags == (m.size <= LARGEST_ODD_LOT ? ODD_LOT_FLAG : 0), "sale condition flags");
  m.price = in.price("price");
  m.trade_id = in.u64("trade id");
  in.require(m.trade_id > 0, "trade id");
  in.end();
  return m;
}

struct TypeOf {
  char operator()(const SystemEvent&) const { return 'S'; }
  char operator()(const SecurityDirectory&) const { return 'D'; }
  char operator()(const TradingStatus&) const { return 'H'; }
  char operator()(const OperationalHaltStatus&) const { return 'O'; }
  char operator()(const ShortSaleStatus&) const { return 'P'; }
  char operator()(const RetailLiquidity&) const { return 'I'; }
  char operator()(const SecurityEvent&) const { return 'E'; }
  char operator()(const LevelUpdate& m) const { return m.buy ? '8' : '5'; }
  char operator()(const TradeReport&) const { return 'T'; }
};

}  // namespace

DeepMessage decode_deep(ByteView bytes) {
  if (bytes.empty()) throw WireError("DEEP message of no bytes");
  switch (static_cast<char>(bytes[0])) {
    case 'S':
      return read_system_event(bytes);
    case 'D':
      return read_security_directory(bytes);
    case 'H':
      return read_trading_status(bytes);
    case 'O':
      return read_operational_halt(bytes);
    case 'P':
      return read_short_sale(bytes);
    case 'I':
      return read_retail_liquidity(bytes);
    case 'E':
      return read_security_event(bytes);
    case '8':
    case '5':
      return read_level_update(bytes);
    case 'T':
      return read_trade_report(bytes);
    default:
      throw WireError("DEEP message of an unknown type: " + hex(bytes));
  }
}

char type_of(const DeepMessage& message) { return std::visit(TypeOf{}, message); }

std::string symbol_of(const DeepMessage& message) {
  return std::visit(
      [](const auto& m) -> std::string {
        if constexpr (std::is_same_v<std::decay_t<decltype(m)>, SystemEvent>) {
          return {};
        } else {
          return m.symbol;
        }
      },
      message);
}

std::string describe(const DeepMessage& message) {
  std::string text(1, type_of(message));
  if (const auto* event = std::get_if<SystemEvent>(&message)) return text + " " + event->event;
  text += " " + symbol_of(message);
  if (const auto* level = std::get_if<LevelUpdate>(&message)) {
    text += " " + std::to_string(level->size) + " @ " + price_text(level->price);
    if (level->last_of_event) text += " last";
  } else if (const auto* trade = std::get_if<TradeReport>(&message)) {
    text += " " + std::to_string(trade->size) + " @ " + price_text(trade->price);
  }
  return text;
}

std::string price_text(Price4 price) {
  const bool negative = price < 0;
  const uint64_t size = negative ? 0 - static_cast<uint64_t>(price) : static_cast<uint64_t>(price);
  std::string decimals = std::to_string(size % 10000);
  decimals.insert(0, 4 - decimals.size(), '0');
  while (!decimals.empty() && decimals.back() == '0') decimals.pop_back();
  std::string text = (negative ? "-" : "") + std::to_string(size / 10000);
  if (!decimals.empty()) text += "." + decimals;
  return text;
}

}  // namespace quorl::client
