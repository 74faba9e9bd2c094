#include "market/random.h"

#include <cmath>

namespace quorl {

__extension__ typedef unsigned __int128 uint128;

double uniform01(std::mt19937_64& rng) {
  constexpr double TWO_TO_MINUS_64 = 0x1p-64;
  constexpr double LARGEST_BELOW_1 = 0x1.fffffffffffffp-1;
  const double result = static_cast<double>(rng()) * TWO_TO_MINUS_64;
  return result < 1.0 ? result : LARGEST_BELOW_1;  // the highest outputs round up to 2^64
}

bool coin(std::mt19937_64& rng) { return uniform01(rng) < 0.5; }

uint64_t uniform_index(std::mt19937_64& rng, uint64_t n) {
  uint128 product = static_cast<uint128>(rng()) * n;
  auto low = static_cast<uint64_t>(product);
  if (low < n) {
    const uint64_t threshold = (0 - n) % n;  // 2^64 modulo n
    while (low < threshold) {
      product = static_cast<uint128>(rng()) * n;
      low = static_cast<uint64_t>(product);
    }
  }
  return static_cast<uint64_t>(product >> 64);
}

double NormalDeviates::next(std::mt19937_64& rng) {
  if (has_spare_) {
    has_spare_ = false;
    return spare_;
  }
  double x = 0.0;
  double y = 0.0;
  double r2 = 0.0;
  do {
    x = 2.0 * uniform01(rng) - 1.0;
    y = 2.0 * uniform01(rng) - 1.0;
    r2 = x * x + y * y;
  } while (r2 > 1.0 || r2 == 0.0);
  const double m = std::sqrt(-2.0 * std::log(r2) / r2);
  spare_ = x * m;
  has_spare_ = true;
  return y * m;
}

}  // namespace quorl
