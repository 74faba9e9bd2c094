#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "fix/fix_fields.h"
#include "fix/fix_text.h"
#include "fix/receive_buffer.h"

namespace quorl {

constexpr size_t MAX_STORED_MESSAGES = 200000;  // per stream

/// One FIX connection. The vector of clients only grows, so an index stays good for the run; a
/// closed record never comes back to life.
struct Client {
  int fd = -1;               // -1 once closed; the record stays
  ReceiveBuffer inbound;     // received and not yet framed
  bool logged_on = false;    // a Logon was accepted on this connection
  uint32_t last_seq = 0;     // MsgSeqNum of the latest framed message
  int64_t last_rx_ms = 0;    // steady clock; any bytes count, framed or not
  int64_t last_tx_ms = 0;    // steady clock
  int32_t heartbeat_s = 30;  // until a Logon says otherwise
  std::string comp_id;       // of the last Logon, a refused one too; survives close: it still
                             // names the owner of resting orders
};

/// One application message kept for replay. The fields and not the composed bytes: a replay needs
/// a new header anyway.
struct StoredMessage {
  uint32_t seq = 0;
  std::string msg_type;       // "8" or "9"
  FixFieldList fields;        // the body
  FixTimestamp sending_time;  // taken when it was stored; goes into tag 122 of a replay
};

/// The session memory of one SenderCompID. Outlives every connection; only a Logon with 141=Y
/// resets it.
struct FixStream {
  uint32_t next_out = 1;
  uint32_t next_in = 1;
  std::deque<StoredMessage> store;  // ascending seq; at most MAX_STORED_MESSAGES
};

}  // namespace quorl
