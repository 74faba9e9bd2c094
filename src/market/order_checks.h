#pragma once

#include <cstdint>
#include <string_view>

#include "market/records.h"

// Checks that a new order and a replace share.

namespace quorl {

constexpr double LEAST_ORDER_QTY = 1.0;
constexpr double MOST_ORDER_QTY = 10000000.0;

/// Empty, longer than 20 bytes, or with a byte that benches use as a separator.
bool is_bad_cl_ord_id(std::string_view cl_ord_id);

/// From one dollar up the tick is a cent; below, all four decimals may be used.
bool is_off_tick(Price4 price);

/// The shares of an OrderQty: truncated, cut to 32 bits; 0 for what is not above 0, is not a
/// number or does not fit 64 bits.
uint32_t shares_of(double order_qty);

}  // namespace quorl
