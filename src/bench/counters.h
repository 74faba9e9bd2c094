#pragma once

#include <cstdint>

namespace quorl {

/// What was asked of the exchange and what it did. Raised only, never reset.
struct BenchCounters {
  uint64_t orders = 0;    // NewOrderSingles that passed the ladder; scripted rejects count too
  uint64_t accepts = 0;   // orders acknowledged
  uint64_t fills = 0;     // reports composed with ExecType 1 or 2, for absent owners too
  uint64_t partials = 0;  // scripted partial fills only
  uint64_t cancels = 0;   // by the client, and remainders the new-order path cancels
  uint64_t replaces = 0;  // carried out
  uint64_t rejects = 0;   // scripted rejects of new orders only
  uint64_t replace_rejects = 0;      // OrderCancelRejects for a replace, for any reason
  uint64_t cancel_rejects = 0;       // OrderCancelRejects for a cancel, for any reason
  uint64_t unsolicited_cancels = 0;  // exchange-initiated cancels fired
  uint64_t race_fills = 0;           // cancels that lost the scripted race
  uint64_t cancel_requests = 0;      // cancels that found a live order; not printed
  uint64_t replace_requests = 0;     // replaces that reached the scripted test; not printed
  uint64_t late_cancels = 0;         // cancels or replaces within 2000 ms of the closing
  uint64_t stale_cancels = 0;        // cancels or replaces of an unknown or long closed order
  uint64_t logons = 0;               // accepted
  uint64_t resend_requests = 0;      // received
  uint64_t replays = 0;              // ResendRequests that re-sent at least one message
  uint64_t replayed = 0;             // application messages re-sent in all
  uint64_t partial_candidates = 0;   // fills that reached the scripted partial test; not printed
};

}  // namespace quorl
