#include "fix/fix_codec.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <limits>

#include "base/number_parsers.h"
#include "base/text_writer.h"

namespace quorl {
namespace {

constexpr std::string_view FRAME_PREFIX = "8=FIX";
constexpr std::string_view LENGTH_PREFIX =
    "\x01"
    "9=";
constexpr std::string_view CHECKSUM_PREFIX = "10=";
constexpr size_t TRAILER_SIZE = 7;  // "10=", three digits, SOH
constexpr size_t NOT_FOUND = std::string_view::npos;

constexpr std::ptrdiff_t SHORT_TAG = 9;  // digits that fit any integer

size_t as_size(std::ptrdiff_t count) { return static_cast<size_t>(count); }

bool is_digit(char c) { return static_cast<unsigned>(c - '0') < 10; }

/// The sum of the bytes modulo 256, added up in a byte: so the compiler takes many at a time.
uint8_t checksum_of(std::string_view bytes) {
  uint8_t sum = 0;
  for (const char c : bytes) sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(c));
  return sum;
}

size_t decimal_width(uint64_t value) {
  size_t width = 1;
  for (; value >= 10; value /= 10) ++width;
  return width;
}

/// The whole length field, its SOH at the end included, has come.
bool find_length_field(ReceiveBuffer& buffer) {
  FrameProgress& progress = buffer.progress;
  if (progress.frame_size != 0 || progress.endless) return true;
  const std::string_view bytes = buffer.bytes();
  if (progress.length_field == NOT_FOUND) {
    progress.length_field = bytes.find(LENGTH_PREFIX, progress.searched);
    if (progress.length_field == NOT_FOUND) {
      // The first bytes of the field may be the last that have come.
      progress.searched = bytes.size() - std::min(bytes.size(), LENGTH_PREFIX.size() - 1);
      return false;
    }
    progress.searched = progress.length_field + LENGTH_PREFIX.size();
  }
  const size_t end = bytes.find(SOH, progress.searched);
  progress.searched = end == NOT_FOUND ? bytes.size() : end;
  return end != NOT_FOUND;
}

/// From the field that find_length_field has found. False if it holds no number.
bool read_frame_size(ReceiveBuffer& buffer) {
  FrameProgress& progress = buffer.progress;
  if (progress.frame_size != 0 || progress.endless) return true;
  const size_t begin = progress.length_field + LENGTH_PREFIX.size();
  const size_t end = progress.searched;
  uint64_t body_length = 0;
  if (!parse_u64(buffer.bytes().substr(begin, end - begin), body_length)) return false;
  // A length near 2^64 is met by no buffer; it must not wrap round to a tiny frame.
  const size_t around_body = end + 1 + TRAILER_SIZE;
  progress.endless = body_length > std::numeric_limits<size_t>::max() - around_body;
  if (!progress.endless) progress.frame_size = around_body + body_length;
  return true;
}

/// REQUIRES: a frame of at least TRAILER_SIZE bytes.
bool has_valid_checksum(std::string_view frame) {
  const std::string_view summed = frame.substr(0, frame.size() - TRAILER_SIZE);
  const std::string_view trailer = frame.substr(summed.size());
  if (!trailer.starts_with(CHECKSUM_PREFIX)) return false;
  // Up to three digits; what stands in the last byte is not looked at.
  const int32_t announced = narrowed_strtol(trailer.substr(CHECKSUM_PREFIX.size(), 3));
  return announced == checksum_of(summed);
}

}  // namespace

bool extract_frame(ReceiveBuffer& buffer, std::string& frame) {
  while (true) {
    const size_t prefix = buffer.bytes().find(FRAME_PREFIX);
    if (prefix == NOT_FOUND) {
      // A tail that could have become the prefix goes with the rest: clients are tested against it.
      buffer.clear();
      return false;
    }
    buffer.drop_front(prefix);
    if (!find_length_field(buffer)) return false;
    if (!read_frame_size(buffer)) {
      // Every prefix in front of the bad length would find it again.
      buffer.drop_front(buffer.progress.length_field);
      continue;
    }
    const size_t frame_size = buffer.progress.frame_size;
    if (buffer.progress.endless || buffer.size() < frame_size) return false;

    frame.assign(buffer.bytes(), 0, frame_size);
    buffer.drop_front(frame_size);
    if (has_valid_checksum(frame)) return true;
  }
}

void parse_fields(std::string_view frame, FixFieldMap& fields) {
  fields.clear();
  const char* at = frame.data();
  const char* const end = at + frame.size();
  while (at != end) {
    const auto* const soh = static_cast<const char*>(std::memchr(at, SOH, as_size(end - at)));
    if (soh == nullptr) break;
    // Nearly every tag is a few digits and an equals sign, read in passing. The SOH ends the loop.
    int32_t tag = 0;
    const char* equals = at;
    const char* const limit = at + std::min(soh - at, SHORT_TAG);
    for (; equals != limit && is_digit(*equals); ++equals) tag = 10 * tag + (*equals - '0');
    if (equals == at || *equals != '=') {
      equals = static_cast<const char*>(std::memchr(at, '=', as_size(soh - at)));
      if (equals == nullptr) break;
      tag = narrowed_strtol({at, as_size(equals - at)});
    }
    fields.set(tag, {equals + 1, as_size(soh - equals - 1)});
    at = soh + 1;
  }
}

void compose_message(std::string_view msg_type, uint32_t seq, std::string_view sender,
                     std::string_view target, std::string_view body_fields,
                     std::string_view header_fields, Outbox& out) {
  constexpr std::string_view BEGIN =
      "8=FIX.4.2\x01"
      "9=";
  constexpr size_t FIVE_TAGS_AND_SOHS = 5 * 4;  // "35=" "34=" "49=" "56=" "52=", each closed by SOH
  const size_t body_length = FIVE_TAGS_AND_SOHS + msg_type.size() + decimal_width(seq) +
                             sender.size() + target.size() + FixTimestamp::SIZE +
                             header_fields.size() + body_fields.size();
  const size_t summed = BEGIN.size() + decimal_width(body_length) + 1 + body_length;
  char* const message = out.add(summed + TRAILER_SIZE);
  TextWriter writer(message);
  writer.text(BEGIN).number(body_length).character(SOH);
  writer.text("35=").text(msg_type).character(SOH);
  writer.text("34=").number(seq).character(SOH);
  writer.text("49=").text(sender).character(SOH);
  writer.text("56=").text(target).character(SOH);
  writer.text("52=").text(fix_timestamp().view()).character(SOH);
  writer.text(header_fields).text(body_fields);
  writer.text(CHECKSUM_PREFIX).digits(checksum_of({message, summed}), 3).character(SOH);
  assert(writer.position() == message + summed + TRAILER_SIZE);
}

}  // namespace quorl
