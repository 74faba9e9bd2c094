#pragma once

#include <cstdint>

namespace tools {

/// Standard input as the hand that lets packets go: a line is one packet, a line that is a number
/// so many, "q" and the end of the input are the end.
class Steps {
 public:
  int fd() const;  // standard input

  /// Reads what has come, without waiting.
  void read_what_came();

  /// Takes one step if one has been allowed.
  bool take();
  bool over() const { return over_ && allowed_ == 0; }

 private:
  void take_line();

  char line_[64] = {};  // what has come of a line; the rest of a longer one is dropped
  unsigned length_ = 0;
  uint64_t allowed_ = 0;
  bool over_ = false;
};

}  // namespace tools
