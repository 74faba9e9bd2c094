#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/message_log.h"
#include "fix/receive_buffer.h"

namespace quorl {

constexpr size_t MAX_STORED_MESSAGES = 200000;  // per stream

struct FixStream;

/// One FIX connection. The vector of clients only grows, so an index stays good for the run; a
/// closed record never comes back to life.
struct Client {
  int fd = -1;                  // -1 once closed; the record stays
  ReceiveBuffer inbound;        // received and not yet framed
  bool logged_on = false;       // a Logon was accepted on this connection
  uint32_t last_seq = 0;        // MsgSeqNum of the latest framed message
  int64_t last_rx_ms = 0;       // steady clock; any bytes count, framed or not
  int64_t last_tx_ms = 0;       // steady clock
  int32_t heartbeat_s = 30;     // until a Logon says otherwise
  std::string comp_id;          // of the last Logon, a refused one too; survives close: it still
                                // names the owner of resting orders
  FixStream* stream = nullptr;  // of comp_id, once a Logon has come
};

/// What is kept of an application message for replay, beside its body. The body's fields and not
/// the composed bytes: a replay needs a new header anyway.
struct StoredMessage {
  uint64_t sending_time_ns = 0;  // system clock when it was stored; goes into tag 122 of a replay
  uint32_t seq = 0;
  char msg_type = '8';  // '8' or '9'
};

/// The session memory of one SenderCompID. Outlives every connection; only a Logon with 141=Y
/// resets it.
struct FixStream {
  std::string comp_id;
  uint32_t next_out = 1;
  uint32_t next_in = 1;
  MessageLog<StoredMessage> store;  // ascending seq; at most MAX_STORED_MESSAGES
  std::vector<size_t> connections;  // indices of the clients logged on with it, ascending
};

}  // namespace quorl
