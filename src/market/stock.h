#pragma once

#include <cstdint>
#include <string>

#include "market/book.h"

namespace quorl {

/// One listed symbol and its book.
struct Stock {
  std::string symbol;   // as given on the command line; cut to 8 bytes on the wire only
  uint16_t locate = 0;  // position in Engine::stocks plus 1
  double mid = 0.0;     // dollars; the walk's own price, with a memory finer than a cent
  Book book;
  uint64_t volume = 0;    // shares traded
  Price4 last_price = 0;  // of the last trade; 0 until the first one
  char status = 'T';
};

}  // namespace quorl
