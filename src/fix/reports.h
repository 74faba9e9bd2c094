#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fix/fix_fields.h"
#include "market/records.h"

// The composers of every application message. A report that has been built is numbered on its
// owner's stream, stored for replay and logged as an order event, whether or not its bytes are
// ever sent: the scripted drop, the lapse and reports for absent clients live on that.

namespace quorl {

struct Client;
struct Engine;

/// What an execution report says. Everything is borrowed for the call.
struct ExecReportArgs {
  const Client& client;  // whose stream it goes on; only comp_id is used
  const Order& order;    // gives tags 38, 54, 18, 40, 47, 59, 44, 6 and the fallback ClOrdID
  std::string order_id;  // tag 37; empty becomes "NONE"
  std::string_view symbol;
  int64_t trade_id = 0;
  char exec_type = '0';
  char ord_status = '0';
  uint32_t last_qty = 0;
  Price4 last_px = 0;
  uint32_t leaves = 0;
  uint32_t cum = 0;
  char liquidity = ' ';                 // '1' added, '2' took; blank when not a fill
  std::string_view text = {};           // tag 58 when not empty
  std::string_view rej_reason = {};     // tag 103 when not empty
  std::string_view cl_ord_id = {};      // tag 11 when new_cl_ord_id is empty and this is not
  std::string_view truth_text = {};     // for the order event when not empty
  std::string_view new_cl_ord_id = {};  // tag 11 when not empty
};

/// Numbers and stores an application message and returns its wire form.
std::string prepare_app_message(Engine& engine, const Client& client, std::string_view msg_type,
                                FixFieldList fields);

/// ExecutionReport (35=8).
std::string build_exec_report(Engine& engine, const ExecReportArgs& args);

/// OrderCancelReject (35=9). `ord_status`, `reason` and `response_to` are tags 39, 102 and 434;
/// `truth_event` is "cancel_reject" or "replace_reject".
std::string build_cancel_reject(Engine& engine, const Client& client, std::string_view cl_ord_id,
                                std::string_view orig_cl_ord_id, std::string_view order_id,
                                char ord_status, char reason, char response_to,
                                std::string_view text, std::string_view truth_event);

}  // namespace quorl
