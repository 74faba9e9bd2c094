#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <random>
#include <string_view>
#include <vector>

namespace day {

/// The chance of a day. Only raw outputs and remainders, no distribution of the standard library:
/// every compiler and every library throws the same day.
class Dice {
 public:
  explicit Dice(uint64_t seed) : rng_(seed) {}

  /// 0 to n - 1.
  uint64_t below(uint64_t n) { return rng_() % n; }
  /// `least` to `most`, both included.
  int64_t between(int64_t least, int64_t most) {
    return least + static_cast<int64_t>(below(static_cast<uint64_t>(most - least + 1)));
  }
  bool one_in(uint64_t n) { return below(n) == 0; }

  /// An index, drawn by weight.
  size_t weighted(const std::vector<uint32_t>& weights) {
    uint64_t total = 0;
    for (const uint32_t weight : weights) total += weight;
    uint64_t drawn = below(total);
    size_t index = 0;
    while (drawn >= weights[index]) drawn -= weights[index++];
    return index;
  }

  /// One of the list, which is not empty.
  template <typename List>
  auto& pick(List& list) {
    return list[below(std::size(list))];
  }
  std::string_view word(std::initializer_list<std::string_view> words) {
    return words.begin()[below(words.size())];
  }

 private:
  std::mt19937_64 rng_;
};

}  // namespace day
