#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::client {

constexpr char SOH = '\x01';

struct FixField {
  int tag = 0;
  std::string value;
  bool operator==(const FixField&) const = default;
};
using FixFields = std::vector<FixField>;

/// One message as it stood on the wire: all fields in order, 8, 9 and 10 included.
class FixMessage {
 public:
  FixMessage() = default;
  explicit FixMessage(FixFields fields, std::string raw = {})
      : fields_(std::move(fields)), raw_(std::move(raw)) {}

  const FixFields& fields() const { return fields_; }
  const std::string& raw() const { return raw_; }  // the bytes received
  std::vector<int> tags() const;

  bool has(int tag) const;
  std::optional<std::string> find(int tag) const;

  /// Throws WireError if the field is absent.
  std::string get(int tag) const;
  /// Throws WireError unless the value is plain decimal.
  uint64_t number(int tag) const;

  std::string type() const { return get(35); }
  uint32_t seq() const { return static_cast<uint32_t>(number(34)); }
  bool is_possible_duplicate() const { return find(43) == "Y"; }

  /// The fields behind the standard header (35 34 49 56 52 and, on replays, 43 and 122) and ahead
  /// of the trailer.
  FixFields body() const;

  /// "8=FIX.4.2|9=...|...|10=123|", for failure messages.
  std::string text() const;

 private:
  FixFields fields_;
  std::string raw_;
};

/// Splits one whole frame and checks it byte by byte: tags are plain decimal numbers, no tag comes
/// twice, 8=FIX.4.2 and 9 come first, 9 is exact, 10 is last with three correct digits, and the
/// header is 35, 34, 49, 56, 52 in this order. Throws WireError.
FixMessage parse_fix(std::string_view frame);

/// What a sender decides of the header; `sending_time` empty means now.
struct FixHeader {
  std::string type = {};
  std::string seq = {};  // text, so that a test can send what it likes; empty: no tag 34
  std::string sender = {};
  std::string target = {};
  std::string sending_time = {};
  FixFields extra = {};  // behind 52, such as 43 and 122
};

/// A complete message with exact BodyLength and CheckSum. An empty `type` leaves out 35.
std::string compose_fix(const FixHeader& header, const FixFields& body);

/// Puts 8, 9 and 10 around a body such as "35=0|34=2|" written with '|' for SOH.
std::string frame_fix(std::string_view body_with_bars, std::string_view begin_string = "FIX.4.2");

/// Writes SOH for each '|'.
std::string with_soh(std::string_view text_with_bars);
/// Writes '|' for each SOH.
std::string with_bars(std::string_view bytes);

/// UTC with milliseconds, from the real-time clock.
std::string fix_timestamp_now();
bool is_fix_timestamp(std::string_view text);

/// "11=a1|55=AAPL" as fields.
FixFields fix_fields(std::string_view text_with_bars);

/// Cuts frames from a byte stream. Anything between frames, and any frame that is not FIX.4.2 with
/// a plain BodyLength, throws WireError: the exchange never sends such a thing.
class FixFramer {
 public:
  void append(std::string_view bytes) { buffer_ += bytes; }

  /// The next whole frame, or nothing until more bytes arrive.
  std::optional<std::string> next();

  /// Bytes of a frame that is not complete.
  size_t pending() const { return buffer_.size(); }

 private:
  std::string buffer_;
};

}  // namespace quorl::client
