#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace certify {

/// A FIX message as it stood on the wire, good or not. Nothing throws: what is wrong with it is
/// listed.
class WireMessage {
 public:
  /// `frame` reaches from "8=" to behind the field 10, or as far as the exchange would have taken
  /// it for one frame.
  static WireMessage read(std::string_view frame);

  const std::vector<std::pair<int, std::string>>& fields() const { return fields_; }  // in order
  /// The last field with this tag, as the exchange reads it; null if there is none.
  const std::string* find(int tag) const;
  /// The value, or the empty text.
  const std::string& value(int tag) const;
  bool is(int tag, std::string_view value) const;
  /// The value as a whole number without sign; nothing if it is anything else.
  std::optional<uint64_t> number(int tag) const;

  const std::string& type() const { return value(35); }
  bool possible_duplicate() const { return is(43, "Y"); }
  bool session_level() const;  // 0 1 2 3 4 5 A

  /// What is wrong with the frame itself: 8, 9 and 10, their places and values, what is no tag, a
  /// tag that comes twice (but for those of FIX 4.2's repeating groups), a field without a value. A
  /// sentence each, the first twenty; empty for a good frame.
  const std::vector<std::string>& flaws() const { return flaws_; }

  /// False: length or checksum keep the exchange from taking it; it is dropped without a word, and
  /// its number is not counted.
  bool taken_by_exchange() const { return taken_by_exchange_; }

  const std::string& raw() const { return raw_; }
  /// "35=D|34=12|11=o7|..." without 8, 9, 49, 56, 52 and 10, control characters shown as \x01, cut
  /// to 300 bytes: for evidence and timelines.
  std::string brief() const;

 private:
  std::vector<std::pair<int, std::string>> fields_;
  std::vector<std::string> flaws_;
  std::string raw_;
  size_t split_ = 0;  // bytes of raw_ that are in fields_
  bool taken_by_exchange_ = false;
};

}  // namespace certify
