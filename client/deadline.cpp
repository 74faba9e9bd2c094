#include "quorl/client/deadline.h"

#include <limits>

namespace quorl::client {

int Deadline::remaining_ms() const {
  const auto left = moment_ - std::chrono::steady_clock::now();
  if (left <= std::chrono::steady_clock::duration::zero()) return 0;
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  constexpr auto MOST = std::numeric_limits<int>::max();
  return ms > MOST ? MOST : static_cast<int>(ms);
}

}  // namespace quorl::client
