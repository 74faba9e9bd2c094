#include "market/order_checks.h"

namespace quorl {

bool is_bad_cl_ord_id(std::string_view cl_ord_id) {
  constexpr size_t MOST_BYTES = 20;
  constexpr std::string_view SEPARATORS = "\x01\",@|";
  return cl_ord_id.empty() || cl_ord_id.size() > MOST_BYTES ||
         cl_ord_id.find_first_of(SEPARATORS) != std::string_view::npos;
}

bool is_off_tick(Price4 price) {
  constexpr Price4 ONE_DOLLAR = 10000;
  constexpr Price4 ONE_CENT = 100;
  return price >= ONE_DOLLAR && price % ONE_CENT != 0;
}

uint32_t shares_of(double order_qty) {
  constexpr double TWO_TO_64 = 18446744073709551616.0;
  if (!(order_qty > 0.0) || order_qty >= TWO_TO_64) return 0;  // NaN is not above 0 either
  return static_cast<uint32_t>(static_cast<uint64_t>(order_qty));
}

}  // namespace quorl
