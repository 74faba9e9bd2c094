#pragma once

#include <array>
#include <cstdint>

#include "base/little_endian.h"
#include "base/price4.h"

// The DEEP messages that this exchange sends, one record for the updates of both sides. A record
// has the fields that vary; its `encode` is the layout.

namespace quorl {

constexpr std::array<char, 4> NO_REASON = {' ', ' ', ' ', ' '};
constexpr uint32_t ROUND_LOT = 100;  // shares
constexpr uint32_t MOST_ODD_SHARES = 99;
constexpr uint8_t ODD_LOT_FLAG = 0x20;

struct SystemEvent {
  char event;             // 'O' start of messages, 'S' of system hours, 'R' of regular market hours
  uint64_t timestamp_ns;  // system clock, since the Unix epoch, here and below
};

struct SecurityDirectory {
  uint64_t timestamp_ns;
  Symbol8 symbol;
  Price4 adjusted_previous_close;
};

struct TradingStatus {
  char status;
  uint64_t timestamp_ns;
  Symbol8 symbol;
};

struct OperationalHaltStatus {  // always not halted
  uint64_t timestamp_ns;
  Symbol8 symbol;
};

struct ShortSalePriceTestStatus {  // always not in effect
  uint64_t timestamp_ns;
  Symbol8 symbol;
};

struct RetailLiquidityIndicator {  // always none
  uint64_t timestamp_ns;
  Symbol8 symbol;
};

struct SecurityEvent {  // always "opening process complete"
  uint64_t timestamp_ns;
  Symbol8 symbol;
};

struct PriceLevelUpdate {  // the new total size shown at one price
  bool buy;
  uint8_t event_flags;  // 1 on the last update of an event, and always in an image, else 0
  uint64_t timestamp_ns;
  Symbol8 symbol;
  uint32_t size;  // shares; 0 means the level is gone
  Price4 price;
};

struct TradeReport {
  uint64_t timestamp_ns;
  Symbol8 symbol;
  uint32_t size;  // shares
  Price4 price;
  uint64_t trade_id;
};

inline auto encode(const SystemEvent& m) {
  const auto bytes = pack_le('S', m.event, m.timestamp_ns);
  static_assert(bytes.size() == 10);
  return bytes;
}

inline auto encode(const SecurityDirectory& m) {
  const auto bytes = pack_le('D', uint8_t{0}, m.timestamp_ns, m.symbol, ROUND_LOT,
                             m.adjusted_previous_close, uint8_t{1});  // LULD tier 1
  static_assert(bytes.size() == 31);
  return bytes;
}

inline auto encode(const TradingStatus& m) {
  const auto bytes = pack_le('H', m.status, m.timestamp_ns, m.symbol, NO_REASON);
  static_assert(bytes.size() == 22);
  return bytes;
}

inline auto encode(const OperationalHaltStatus& m) {
  const auto bytes = pack_le('O', 'N', m.timestamp_ns, m.symbol);
  static_assert(bytes.size() == 18);
  return bytes;
}

inline auto encode(const ShortSalePriceTestStatus& m) {
  const auto bytes = pack_le('P', uint8_t{0}, m.timestamp_ns, m.symbol, ' ');
  static_assert(bytes.size() == 19);
  return bytes;
}

inline auto encode(const RetailLiquidityIndicator& m) {
  const auto bytes = pack_le('I', ' ', m.timestamp_ns, m.symbol);
  static_assert(bytes.size() == 18);
  return bytes;
}

inline auto encode(const SecurityEvent& m) {
  const auto bytes = pack_le('E', 'O', m.timestamp_ns, m.symbol);
  static_assert(bytes.size() == 18);
  return bytes;
}

inline auto encode(const PriceLevelUpdate& m) {
  const auto bytes =
      pack_le(m.buy ? '8' : '5', m.event_flags, m.timestamp_ns, m.symbol, m.size, m.price);
  static_assert(bytes.size() == 30);
  return bytes;
}

inline auto encode(const TradeReport& m) {
  const uint8_t flags = m.size <= MOST_ODD_SHARES ? ODD_LOT_FLAG : 0;
  const auto bytes = pack_le('T', flags, m.timestamp_ns, m.symbol, m.size, m.price, m.trade_id);
  static_assert(bytes.size() == 38);
  return bytes;
}

}  // namespace quorl
