#pragma once

#include <cstdint>
#include <random>

// The draws of the market, spelled out over the one engine: how many outputs each takes is part of
// what a seed reproduces, and a standard library's own distributions may take another number.

namespace quorl {

/// One output, scaled to [0, 1).
double uniform01(std::mt19937_64& rng);

/// One output.
bool coin(std::mt19937_64& rng);

/// 0 to n - 1, all equally likely; mostly one output, more when one falls into the uneven rest.
/// REQUIRES: n is not 0.
uint64_t uniform_index(std::mt19937_64& rng, uint64_t n);

/// Standard normal deviates by the polar method: each pair drawn gives two, the second is kept.
class NormalDeviates {
 public:
  double next(std::mt19937_64& rng);

 private:
  bool has_spare_ = false;
  double spare_ = 0.0;
};

}  // namespace quorl
