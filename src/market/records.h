#pragma once

#include <cstdint>
#include <string>

#include "base/price4.h"

namespace quorl {

/// One order, client or synthetic. An empty owner is the one and only test for a synthetic order.
struct Order {
  uint64_t id = 0;        // FIX OrderID; kept across replaces
  uint16_t locate = 0;    // one-based index of its Stock
  bool buy = true;        // true only for Side "1"
  Price4 price = 0;       // limit; 0 for a market order
  uint32_t leaves = 0;    // open shares
  uint32_t qty = 0;       // ordered shares
  uint32_t cum = 0;       // executed shares; a resting synthetic order is not credited
  double notional = 0.0;  // dollars: sum of fill quantity times fill price
  std::string owner;      // the client's SenderCompID
  std::string cl_ord_id;  // current ClOrdID
  char side = '1';        // tag 54 as received; a synthetic sell keeps '1'
  char tif = '0';         // tag 59 as received
  char ord_type = '2';    // tag 40 as received
  char exec_inst = 'i';   // tag 18 as received
  char capacity = 'P';    // tag 47 as received
};

}  // namespace quorl
