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

  char* position() const { return at_; }

 private:
  char* at_;
};

}  // namespace quorl
