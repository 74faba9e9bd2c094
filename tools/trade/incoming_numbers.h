#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "quorl/client/fix_message.h"

namespace tools {

/// Which of the exchange's messages have come. Kept over connections; of what is missing only the
/// ends of each stretch are kept, so a wild number costs nothing.
class IncomingNumbers {
 public:
  /// The next number is 1, and nothing is missing.
  void begin_anew();

  /// Takes a message's number, and what a SequenceReset covers. The first message of all sets where
  /// we come in, unless begin_anew was called. Returns a remark if its number contradicts what came
  /// before, else empty text. A Logon with a number of the past means that the exchange has begun
  /// anew, and so do we.
  std::string take(const quorl::client::FixMessage& message);

  /// Nothing before the first message.
  std::optional<uint32_t> next() const { return next_; }

  bool complete() const { return missing_.empty(); }
  /// "3 to 5, 9".
  std::string missing_text() const;
  /// First and last of what is missing; only if something is.
  uint32_t first_missing() const;
  uint32_t last_missing() const;

  bool is_missing(uint32_t seq) const;

 private:
  void cover(uint32_t from, uint32_t behind);

  std::optional<uint32_t> next_;
  std::map<uint32_t, uint32_t> missing_;  // first number to the one behind the last
};

}  // namespace tools
