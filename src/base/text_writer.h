#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace quorl {

/// Writes text forward into memory that the caller has made large enough. Messages are built by the
/// thousand, and a string that may grow at every piece costs more than all of its bytes.
class TextWriter {
 public:
  static constexpr size_t LONGEST_NUMBER = 20;  // characters

  explicit TextWriter(char* at) : at_(at) {}

  TextWriter& text(std::string_view piece) {
    if (!piece.empty()) std::memcpy(at_, piece.data(), piece.size());
    at_ += piece.size();
    return *this;
  }

  TextWriter& character(char c) {
    *at_++ = c;
    return *this;
  }

  template <typename Integer>
  TextWriter& number(Integer value) {
    at_ = std::to_chars(at_, at_ + LONGEST_NUMBER, value).ptr;
    return *this;
  }

  /// The low decimal digits of `value`, with leading zeros.
  TextWriter& digits(uint32_t value, size_t width) {
    for (size_t i = width; i > 0; --i, value /= 10)
      at_[i - 1] = static_cast<char>('0' + value % 10);
    at_ += width;
    return *this;
  }

  char* position() const { return at_; }
  /// Goes back to a position that has been written past.
  void back_to(char* position) { at_ = position; }

 private:
  char* at_;
};

}  // namespace quorl
