#include "quorl/client/fix_message.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "client/digits.h"
#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr std::string_view FRAME_START =
    "8=FIX.4.2\x01"
    "9=";
constexpr size_t TRAILER_SIZE = 7;  // "10=", three digits, SOH
constexpr size_t MOST_LENGTH_DIGITS = 9;

/// Plain decimal: digits only, no leading zeros.
std::optional<uint64_t> plain_decimal(std::string_view text) {
  constexpr size_t MOST_DIGITS = 19;
  if (text.empty() || text.size() > MOST_DIGITS || (text.size() > 1 && text[0] == '0')) return {};
  uint64_t value = 0;
  for (const char c : text) {
    if (!is_digit(c)) return {};
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value;
}

unsigned checksum(std::string_view bytes) {
  unsigned sum = 0;
  for (const char c : bytes) sum += static_cast<unsigned char>(c);
  return sum % 256;
}

std::string three_digits(unsigned value) {
  std::string text = std::to_string(value);
  return text.insert(0, 3 - text.size(), '0');
}

[[noreturn]] void refuse(std::string_view frame, const std::string& why) {
  throw WireError("FIX message: " + why + ": " + with_bars(frame));
}

FixFields split_fields(std::string_view frame) {
  FixFields fields;
  size_t at = 0;
  while (at < frame.size()) {
    const size_t end = frame.find(SOH, at);
    if (end == std::string_view::npos) refuse(frame, "does not end with SOH");
    const std::string_view field = frame.substr(at, end - at);
    const size_t equals = field.find('=');
    if (equals == std::string_view::npos) refuse(frame, "a field without '='");
    const auto tag = plain_decimal(field.substr(0, equals));
    if (!tag || *tag == 0 || *tag > 99999) refuse(frame, "a tag that is no number");
    for (const FixField& earlier : fields) {
      if (earlier.tag == static_cast<int>(*tag)) {
        refuse(frame, "tag " + std::to_string(*tag) + " twice");
      }
    }
    fields.push_back({static_cast<int>(*tag), std::string(field.substr(equals + 1))});
    at = end + 1;
  }
  return fields;
}

void check_envelope(std::string_view frame, const FixFields& fields) {
  constexpr std::array<int, 7> HEAD = {8, 9, 35, 34, 49, 56, 52};
  if (fields.size() <= HEAD.size()) refuse(frame, "too few fields");
  for (size_t i = 0; i < HEAD.size(); ++i) {
    if (fields[i].tag != HEAD[i]) {
      refuse(frame, "field " + std::to_string(i + 1) + " is not " + std::to_string(HEAD[i]));
    }
  }
  if (fields[0].value != "FIX.4.2") refuse(frame, "BeginString is not FIX.4.2");
  if (fields.back().tag != 10) refuse(frame, "the last field is not 10");
  const size_t body_start = frame.find(SOH, frame.find(SOH) + 1) + 1;
  const size_t trailer = frame.size() - fields.back().value.size() - 4;
  if (plain_decimal(fields[1].value) != trailer - body_start) {
    refuse(frame, "BodyLength is not " + std::to_string(trailer - body_start));
  }
  const std::string sum = three_digits(checksum(frame.substr(0, trailer)));
  if (fields.back().value != sum) refuse(frame, "CheckSum is not " + sum);
  if (fields[2].value.empty()) refuse(frame, "MsgType is empty");
  if (!plain_decimal(fields[3].value)) refuse(frame, "MsgSeqNum is no number");
  if (!is_fix_timestamp(fields[6].value)) refuse(frame, "SendingTime is no timestamp");
}

std::string rendered(const FixFields& fields) {
  std::string text;
  for (const FixField& field : fields) text += std::to_string(field.tag) + "=" + field.value + SOH;
  return text;
}

std::string framed(std::string_view body, std::string_view begin_string) {
  std::string frame = "8=" + std::string(begin_string) + SOH;
  frame += "9=" + std::to_string(body.size()) + SOH;
  frame += body;
  return frame + "10=" + three_digits(checksum(frame)) + SOH;
}

}  // namespace

std::vector<int> FixMessage::tags() const {
  std::vector<int> tags;
  for (const FixField& field : fields_) tags.push_back(field.tag);
  return tags;
}

std::optional<std::string> FixMessage::find(int tag) const {
  for (const FixField& field : fields_) {
    if (field.tag == tag) return field.value;
  }
  return std::nullopt;
}

bool FixMessage::has(int tag) const { return find(tag).has_value(); }

std::string FixMessage::get(int tag) const {
  if (auto value = find(tag)) return *value;
  throw WireError("no tag " + std::to_string(tag) + " in " + text());
}

uint64_t FixMessage::number(int tag) const {
  if (const auto value = plain_decimal(get(tag))) return *value;
  throw WireError("tag " + std::to_string(tag) + " is no number in " + text());
}

FixFields FixMessage::body() const {
  FixFields body;
  for (const FixField& field : fields_) {
    switch (field.tag) {
      case 8:
      case 9:
      case 10:
      case 34:
      case 35:
      case 43:
      case 49:
      case 52:
      case 56:
      case 122:
        break;
      default:
        body.push_back(field);
    }
  }
  return body;
}

std::string FixMessage::text() const { return with_bars(rendered(fields_)); }

FixMessage parse_fix(std::string_view frame) {
  FixFields fields = split_fields(frame);
  check_envelope(frame, fields);
  return FixMessage(std::move(fields), std::string(frame));
}

std::string compose_fix(const FixHeader& header, const FixFields& body) {
  FixFields fields;
  if (!header.type.empty()) fields.push_back({35, header.type});
  if (!header.seq.empty()) fields.push_back({34, header.seq});
  fields.push_back({49, header.sender});
  fields.push_back({56, header.target});
  fields.push_back({52, header.sending_time.empty() ? fix_timestamp_now() : header.sending_time});
  fields.insert(fields.end(), header.extra.begin(), header.extra.end());
  fields.insert(fields.end(), body.begin(), body.end());
  return framed(rendered(fields), "FIX.4.2");
}

std::string frame_fix(std::string_view body_with_bars, std::string_view begin_string) {
  return framed(with_soh(body_with_bars), begin_string);
}

std::string with_soh(std::string_view text_with_bars) {
  std::string bytes(text_with_bars);
  std::replace(bytes.begin(), bytes.end(), '|', SOH);
  return bytes;
}

std::string with_bars(std::string_view bytes) {
  std::string text(bytes);
  std::replace(text.begin(), text.end(), SOH, '|');
  return text;
}

std::string fix_timestamp_now() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm utc{};
  ::gmtime_r(&now.tv_sec, &utc);
  std::array<char, 32> seconds{};
  const size_t size = ::strftime(seconds.data(), seconds.size(), "%Y%m%d-%H:%M:%S", &utc);
  return std::string(seconds.data(), size) + "." +
         three_digits(static_cast<unsigned>(now.tv_nsec / 1000000));
}

bool is_fix_timestamp(std::string_view text) {
  constexpr std::string_view PATTERN = "dddddddd-dd:dd:dd.ddd";
  if (text.size() != PATTERN.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (PATTERN[i] == 'd' ? !is_digit(text[i]) : text[i] != PATTERN[i]) return false;
  }
  const auto two = [text](size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
  return two(4) >= 1 && two(4) <= 12 && two(6) >= 1 && two(6) <= 31 && two(9) <= 23 &&
         two(12) <= 59 && two(15) <= 60;
}

FixFields fix_fields(std::string_view text_with_bars) {
  FixFields fields;
  while (!text_with_bars.empty()) {
    const size_t end = std::min(text_with_bars.find('|'), text_with_bars.size());
    const std::string_view field = text_with_bars.substr(0, end);
    const size_t equals = field.find('=');
    const auto tag = plain_decimal(field.substr(0, std::min(equals, field.size())));
    if (equals == std::string_view::npos || !tag) {
      throw WireError("not a list of fields: " + std::string(text_with_bars));
    }
    fields.push_back({static_cast<int>(*tag), std::string(field.substr(equals + 1))});
    text_with_bars.remove_prefix(std::min(end + 1, text_with_bars.size()));
  }
  return fields;
}

std::optional<std::string> FixFramer::next() {
  const std::string_view start(buffer_.data(), std::min(buffer_.size(), FRAME_START.size()));
  if (start != FRAME_START.substr(0, start.size())) {
    refuse(buffer_, "the stream goes on with something else");
  }
  if (buffer_.size() <= FRAME_START.size()) return std::nullopt;
  const size_t end = buffer_.find(SOH, FRAME_START.size());
  const size_t digits = std::min(end, buffer_.size()) - FRAME_START.size();
  if (digits > MOST_LENGTH_DIGITS) refuse(buffer_, "BodyLength is too long");
  if (end == std::string::npos) return std::nullopt;
  const auto length = plain_decimal(std::string_view(buffer_).substr(FRAME_START.size(), digits));
  if (!length) refuse(buffer_, "BodyLength is no number");
  const size_t size = end + 1 + *length + TRAILER_SIZE;
  if (buffer_.size() < size) return std::nullopt;
  std::string frame = buffer_.substr(0, size);
  buffer_.erase(0, size);
  return frame;
}

}  // namespace quorl::client
