#pragma once

#include <cstdint>
#include <string_view>

#include "base/price4.h"

// The composers of every application message, one for each kind. A report that has been built is
// numbered on its owner's stream, stored for replay and logged as an order event, whether or not
// its bytes are ever sent: the scripted drop, the lapse and reports for absent clients live on
// that. Each adds its message to an outbox.

namespace quorl {

struct Engine;
struct FixStream;
struct Order;
class Outbox;

/// Whose report it is, and where it goes. Everything is borrowed for the call.
struct ReportTarget {
  Engine& engine;
  FixStream& stream;
  Outbox& out;
};

// --- ExecutionReport (35=8) ---
// `order` gives the quantities, prices and characters of the report as it stands after the event,
// for a cancel as it stood before; `symbol` is tag 55.

/// Acknowledges an order that has been accepted.
void build_new_report(const ReportTarget& to, const Order& order, std::string_view symbol);

/// Rejects an order that the engine does not hold: `order` is what could be read of it. `text` and
/// `reason` are tags 58 and 103.
void build_reject_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                         std::string_view text, std::string_view reason);

struct Fill {
  uint32_t qty;  // shares
  Price4 price;
  int64_t trade_id;
  char liquidity;  // '1' added, '2' took
};

void build_fill_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                       const Fill& fill);

/// What an order that may not rest has not filled is cancelled.
void build_unmatched_report(const ReportTarget& to, const Order& order, std::string_view symbol);

/// A client's cancel has been carried out. `cl_ord_id` is the request's.
void build_cancel_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                         std::string_view cl_ord_id);

/// The exchange has cancelled the order of itself.
void build_unsolicited_cancel_report(const ReportTarget& to, const Order& order,
                                     std::string_view symbol);

/// A replace has been carried out. `order` is the order behind it, but for its ClOrdID, which is
/// the one that the replace retires; `cl_ord_id` is the new one.
void build_replace_report(const ReportTarget& to, const Order& order, std::string_view symbol,
                          std::string_view cl_ord_id);

// --- OrderCancelReject (35=9) ---

/// What a client's request named, and why it is rejected.
struct CancelReject {
  std::string_view cl_ord_id;       // tag 11, the request's
  std::string_view orig_cl_ord_id;  // tag 41
  uint64_t order_id;                // tag 37; 0 for "NONE"
  char ord_status;                  // tag 39
  char reason;                      // tag 102
  std::string_view text;            // tag 58
};

void build_cancel_reject(const ReportTarget& to, const CancelReject& reject);
void build_replace_reject(const ReportTarget& to, const CancelReject& reject);

}  // namespace quorl
