#include "fix/fix_codec.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>

#include "driver/number_parsers.h"

namespace quorl {
namespace {

constexpr std::string_view FRAME_PREFIX = "8=FIX";
constexpr std::string_view LENGTH_PREFIX =
    "\x01"
    "9=";
constexpr std::string_view CHECKSUM_PREFIX = "10=";
constexpr size_t TRAILER_SIZE = 7;  // "10=", three digits, SOH
constexpr size_t NOT_FOUND = std::string_view::npos;

uint32_t checksum_of(std::string_view bytes) {
  uint32_t sum = 0;
  for (const char c : bytes) sum += static_cast<unsigned char>(c);
  return sum % 256;
}

void append_number(std::string& out, uint64_t value) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  out.append(digits.data(), end);
}

size_t decimal_width(uint64_t value) {
  size_t width = 1;
  for (; value >= 10; value /= 10) ++width;
  return width;
}

void append_field(std::string& out, std::string_view tag_and_equals, std::string_view value) {
  out.append(tag_and_equals).append(value).push_back(SOH);
}

}  // namespace

void ReceiveBuffer::append(std::string_view received) {
  if (start_ != 0) {
    bytes_.erase(0, start_);
    searched_ -= std::min(searched_, start_);
    start_ = 0;
  }
  bytes_.append(received);
}

void ReceiveBuffer::clear() {
  bytes_.clear();
  start_ = 0;
  searched_ = 0;
}

void ReceiveBuffer::drop_front(size_t count) { start_ += count; }

size_t ReceiveBuffer::find_resuming(std::string_view needle) {
  const size_t at = bytes_.find(needle, std::max(start_, searched_));
  if (at != NOT_FOUND) {
    searched_ = at;
    return at - start_;
  }
  // A needle may be cut at the end: its first bytes are searched again when the rest has come.
  searched_ = bytes_.size() - std::min(bytes_.size(), needle.size() - 1);
  return NOT_FOUND;
}

bool extract_frame(ReceiveBuffer& buffer, std::string& frame) {
  while (true) {
    const size_t prefix = buffer.bytes().find(FRAME_PREFIX);
    if (prefix == NOT_FOUND) {
      // A tail that could have become the prefix goes with the rest: clients are tested against it.
      buffer.clear();
      return false;
    }
    buffer.drop_front(prefix);

    const size_t length_field = buffer.find_resuming(LENGTH_PREFIX);
    if (length_field == NOT_FOUND) return false;
    const size_t length_begin = length_field + LENGTH_PREFIX.size();
    const std::string_view bytes = buffer.bytes();
    const size_t length_end = bytes.find(SOH, length_begin);
    if (length_end == NOT_FOUND) return false;

    uint64_t body_length = 0;
    if (!parse_u64(bytes.substr(length_begin, length_end - length_begin), body_length)) {
      buffer.drop_front(1);  // the search moves on to the next frame
      continue;
    }
    // A length near 2^64 is met by no buffer; it must not wrap round to a tiny frame.
    const size_t around_body = length_end + 1 + TRAILER_SIZE;
    if (body_length > std::numeric_limits<size_t>::max() - around_body) return false;
    const size_t frame_size = around_body + body_length;
    if (bytes.size() < frame_size) return false;

    frame.assign(bytes, 0, frame_size);
    buffer.drop_front(frame_size);
    const std::string_view trailer = std::string_view(frame).substr(frame_size - TRAILER_SIZE);
    if (!trailer.starts_with(CHECKSUM_PREFIX)) continue;
    // Up to three digits; what stands in the last byte is not looked at.
    const int32_t announced = narrowed_strtol(trailer.substr(CHECKSUM_PREFIX.size(), 3));
    const std::string_view summed = std::string_view(frame).substr(0, frame_size - TRAILER_SIZE);
    if (announced == static_cast<int32_t>(checksum_of(summed))) return true;
  }
}

FixFieldMap parse_fields(const std::string& frame) {
  constexpr size_t USUAL_FIELDS = 24;
  FixFieldMap fields;
  fields.reserve(USUAL_FIELDS);
  const std::string_view text = frame;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t end = text.find(SOH, pos);
    if (end == NOT_FOUND) break;
    const std::string_view piece = text.substr(pos, end - pos);
    const size_t equals = piece.find('=');
    if (equals == NOT_FOUND) break;
    fields.set(narrowed_strtol(piece.substr(0, equals)), piece.substr(equals + 1));
    pos = end + 1;
  }
  return fields;
}

std::string compose_message(std::string_view msg_type, uint32_t seq, std::string_view sender,
                            std::string_view target, const FixFieldList& body_fields,
                            const FixFieldList& header_fields) {
  constexpr size_t FIVE_TAGS_AND_SOHS = 5 * 4;  // "35=" "34=" "49=" "56=" "52=", each closed by SOH
  constexpr size_t LONGEST_HEAD = 10 + 2 + 20 + 1;
  const size_t body_length = FIVE_TAGS_AND_SOHS + msg_type.size() + decimal_width(seq) +
                             sender.size() + target.size() + FixTimestamp::SIZE +
                             header_fields.wire().size() + body_fields.wire().size();
  std::string message;
  message.reserve(LONGEST_HEAD + body_length + TRAILER_SIZE);
  append_field(message, "8=", "FIX.4.2");
  message.append("9=");
  append_number(message, body_length);
  message.push_back(SOH);
  append_field(message, "35=", msg_type);
  message.append("34=");
  append_number(message, seq);
  message.push_back(SOH);
  append_field(message, "49=", sender);
  append_field(message, "56=", target);
  append_field(message, "52=", fix_timestamp().view());
  message.append(header_fields.wire()).append(body_fields.wire());

  const uint32_t checksum = checksum_of(message);
  const std::array<char, 3> digits = {static_cast<char>('0' + checksum / 100),
                                      static_cast<char>('0' + checksum / 10 % 10),
                                      static_cast<char>('0' + checksum % 10)};
  append_field(message, CHECKSUM_PREFIX, {digits.data(), digits.size()});
  return message;
}

}  // namespace quorl
