#pragma once

#include <string>
#include <string_view>

namespace certify {

/// The exchange throws away the beginning of a message of which it has not yet read the five bytes
/// 8=FIX. Where a tap reads in pieces of its own, it must not be the one who cuts there: a client
/// that cuts there itself is passed on as it is.
class WholePrefix {
 public:
  /// What of the stream may go on, with what was held back ahead of it. `more`: the piece ends
  /// where our buffer did, and there is probably more to read.
  std::string join(std::string_view bytes, bool more);
  /// What is held back, if any; it goes on after all.
  std::string release();
  bool holds() const { return !held_.empty(); }

 private:
  std::string held_;
};

}  // namespace certify
