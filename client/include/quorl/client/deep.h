#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "quorl/client/bytes.h"

namespace quorl::client {

using Price4 = int64_t;  // ten-thousandths of a dollar

struct SystemEvent {
  char event = 0;  // 'O' start of messages, 'S' of system hours, 'R' of regular market hours
  uint64_t timestamp_ns = 0;
  bool operator==(const SystemEvent&) const = default;
};

struct SecurityDirectory {
  uint64_t timestamp_ns = 0;
  std::string symbol;
  uint32_t round_lot = 0;
  Price4 previous_close = 0;
  uint8_t luld_tier = 0;
  bool operator==(const SecurityDirectory&) const = default;
};

struct TradingStatus {
  char status = 0;
  uint64_t timestamp_ns = 0;
  std::string symbol;
  bool operator==(const TradingStatus&) const = default;
};

struct OperationalHaltStatus {
  char status = 0;
  uint64_t timestamp_ns = 0;
  std::string symbol;
  bool operator==(const OperationalHaltStatus&) const = default;
};

struct ShortSaleStatus {
  uint64_t timestamp_ns = 0;
  std::string symbol;
  bool operator==(const ShortSaleStatus&) const = default;
};

struct RetailLiquidity {
  uint64_t timestamp_ns = 0;
  std::string symbol;
  bool operator==(const RetailLiquidity&) const = default;
};

struct SecurityEvent {
  uint64_t timestamp_ns = 0;
  std::string symbol;
  bool operator==(const SecurityEvent&) const = default;
};

/// The new size shown at a price; it replaces what was shown there.
struct LevelUpdate {
  bool buy = false;
  bool last_of_event = false;  // event flags 1: the book is consistent behind it
  uint64_t timestamp_ns = 0;
  std::string symbol;
  uint32_t size = 0;  // 0: the level is gone
  Price4 price = 0;
  bool operator==(const LevelUpdate&) const = default;
};

struct TradeReport {
  uint64_t timestamp_ns = 0;
  std::string symbol;
  uint32_t size = 0;
  Price4 price = 0;
  uint64_t trade_id = 0;
  bool operator==(const TradeReport&) const = default;
};

/// The nine layouts of the ten message types: '8' and '5' share one.
using DeepMessage =
    std::variant<SystemEvent, SecurityDirectory, TradingStatus, OperationalHaltStatus,
                 ShortSaleStatus, RetailLiquidity, SecurityEvent, LevelUpdate, TradeReport>;

/// One message without its length prefix. Throws WireError unless the size is exact, every constant
/// has its value, every flag is one of those in use, and the odd-lot flag agrees with the size.
DeepMessage decode_deep(ByteView bytes);

/// The type byte of the message: 'S', 'D', 'H', 'O', 'P', 'I', 'E', '8', '5' or 'T'.
char type_of(const DeepMessage& message);

/// The symbol without its padding; empty for a System Event.
std::string symbol_of(const DeepMessage& message);

/// One line, for failure messages: "8 AAPL 300 @ 189.99 last".
std::string describe(const DeepMessage& message);

/// "189.99", "190", "0.0001": no trailing zeros.
std::string price_text(Price4 price);

}  // namespace quorl::client
