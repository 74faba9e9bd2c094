#pragma once

#include <cstdint>
#include <string_view>

#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"

namespace client = quorl::client;

/// Bytes put together field by field, for tests of what reads them.
namespace hand_made {

constexpr uint64_t NOON = 1700000000000000000;
constexpr uint32_t SESSION = 77;

inline client::Bytes status(char type, uint8_t value, std::string_view symbol) {
  client::Bytes m{static_cast<uint8_t>(type), value};
  client::put_u64(m, NOON);
  client::put_padded(m, symbol, 8, ' ');
  return m;
}

inline client::Bytes system_event(char event) {
  client::Bytes m{'S', static_cast<uint8_t>(event)};
  client::put_u64(m, NOON);
  return m;
}

inline client::Bytes directory(std::string_view symbol) {
  client::Bytes m = status('D', 0, symbol);
  client::put_u32(m, 100);
  client::put_u64(m, 1900000);
  client::put_u8(m, 1);
  return m;
}

inline client::Bytes trading_status(std::string_view symbol) {
  client::Bytes m = status('H', 'T', symbol);
  client::put_text(m, "    ");
  return m;
}

inline client::Bytes short_sale(std::string_view symbol) {
  client::Bytes m = status('P', 0, symbol);
  client::put_text(m, " ");
  return m;
}

struct Level {
  char type = '8';
  uint8_t flags = 1;
  std::string_view symbol = "AAPL";
  uint32_t size = 300;
  int64_t price = 1899900;
  uint64_t at = NOON;
};
inline client::Bytes level(const Level& l) {
  client::Bytes m{static_cast<uint8_t>(l.type), l.flags};
  client::put_u64(m, l.at);
  client::put_padded(m, l.symbol, 8, ' ');
  client::put_u32(m, l.size);
  client::put_u64(m, static_cast<uint64_t>(l.price));
  return m;
}

struct Trade {
  uint64_t id = 1;
  uint32_t size = 100;
  int64_t price = 1900000;
  std::string_view symbol = "AAPL";
  uint64_t at = NOON;
};
inline client::Bytes trade(const Trade& t) {
  client::Bytes m{'T', static_cast<uint8_t>(t.size <= 99 ? 0x20 : 0)};
  client::put_u64(m, t.at);
  client::put_padded(m, t.symbol, 8, ' ');
  client::put_u32(m, t.size);
  client::put_u64(m, static_cast<uint64_t>(t.price));
  client::put_u64(m, t.id);
  return m;
}

inline client::TpHeader header(uint64_t offset, uint64_t first_seq) {
  client::TpHeader h;
  h.version = 1;
  h.protocol_id = client::DEEP_PROTOCOL_ID;
  h.channel_id = client::DEEP_CHANNEL_ID;
  h.session_id = SESSION;
  h.stream_offset = offset;
  h.first_seq = first_seq;
  h.send_time_ns = NOON;
  return h;
}

}  // namespace hand_made
