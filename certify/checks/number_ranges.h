#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace certify {

/// Numbers from `first` to `last`, both included.
struct NumberRange {
  uint64_t first = 0;
  uint64_t last = 0;
  bool operator==(const NumberRange&) const = default;
};
/// "7" or "7 to 9".
std::string text_of(const NumberRange& range);

/// A set of numbers, kept as ranges: a stream without holes takes no more room than one number.
/// Ranges whose last is below their first are empty, and are borne.
class NumberRanges {
 public:
  void add(NumberRange range);
  void remove(NumberRange range);
  void clear() { ranges_.clear(); }

  bool contains(uint64_t number) const;
  /// All of it.
  bool covers(NumberRange range) const;
  /// The first run of numbers of the set within `range`.
  std::optional<NumberRange> first_within(NumberRange range) const;
  std::optional<NumberRange> first() const;

  bool empty() const { return ranges_.empty(); }
  size_t size() const { return ranges_.size(); }  // ranges, not numbers

 private:
  std::map<uint64_t, uint64_t> ranges_;  // first to last; neither touch nor overlap
};

}  // namespace certify
