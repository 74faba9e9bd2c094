#pragma once

#include <cstdint>
#include <string_view>

#include "market/records.h"

// What really happened, as JSON lines in two files that do not depend on each other. Each keeps
// its own number form and its own flushing. Nothing in a value is escaped.

namespace quorl {

struct Engine;
struct Stock;

/// One event told to a client. Everything is borrowed for the call.
struct OrderEvent {
  std::string_view ev;   // "new", "replace", "reject", "cancel", "fill", ...
  std::string_view cl;   // ClOrdID of the event
  std::string_view oid;  // decimal; empty is written 0
  std::string_view symbol = {};
  char side = ' ';  // 'B', 'S', or blank on a reject of a cancel or replace
  uint32_t qty = 0;
  Price4 px = 0;
  uint32_t last_qty = 0;
  uint32_t cum = 0;     // after the event
  uint32_t leaves = 0;  // after the event
  std::string_view text = {};
  std::string_view ref = {};  // ClOrdID that this one replaces or answers; left out when empty
};

/// Appends the event to the order event file and flushes: whatever has been told to a client is on
/// disk. Does nothing if there is no file or it has failed.
void write_order_event(Engine& engine, const OrderEvent& event);

/// Appends the ten best shown levels of each side to the market truth file, unflushed. Does nothing
/// if there is no file or it has failed.
void write_book_line(Engine& engine, const Stock& stock);

/// Appends a mark to the market truth file and flushes all that waits there.
void write_mark(Engine& engine, std::string_view label);

}  // namespace quorl
