#include "certify/record/wire_message.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "certify/record/exchange_framing.h"
#include "certify/record/frame_flaws.h"
#include "certify/record/visible_text.h"

namespace certify {
namespace {

constexpr size_t LONGEST_BRIEF = 300;
constexpr std::array LEFT_OUT = {8, 9, 49, 56, 52, 10};  // of brief()

/// Bytes that the exchange, which cut the frame by its own rules, would then find good.
bool would_be_taken(std::string_view frame) {
  if (!frame.starts_with(FIX_PREFIX)) return false;
  const size_t field = frame.find(LENGTH_PREFIX);
  if (field == std::string_view::npos) return false;
  const size_t begin = field + LENGTH_PREFIX.size();
  const size_t end = frame.find(FIX_SEPARATOR, begin);
  if (end == std::string_view::npos) return false;
  const auto body = lenient_u64(frame.substr(begin, end - begin));
  const size_t behind_length = frame.size() - end - 1;
  return body && behind_length >= TRAILER_SIZE && *body == behind_length - TRAILER_SIZE &&
         has_taken_checksum(frame);
}

}  // namespace

WireMessage WireMessage::read(std::string_view frame) {
  WireMessage message;
  message.raw_ = frame;
  size_t at = 0;
  while (at < frame.size()) {
    const size_t end = frame.find(FIX_SEPARATOR, at);
    if (end == std::string_view::npos) break;
    const std::string_view field = frame.substr(at, end - at);
    const size_t equals = field.find('=');
    if (equals == std::string_view::npos) break;
    message.fields_.emplace_back(lenient_int(field.substr(0, equals)), field.substr(equals + 1));
    at = end + 1;
  }
  message.split_ = at;
  message.taken_by_exchange_ = would_be_taken(frame);
  message.flaws_ = flaws_of_frame(frame);
  return message;
}

const std::string* WireMessage::find(int tag) const {
  const auto found = std::find_if(fields_.rbegin(), fields_.rend(),
                                  [tag](const auto& field) { return field.first == tag; });
  return found == fields_.rend() ? nullptr : &found->second;
}

const std::string& WireMessage::value(int tag) const {
  static const std::string NONE;
  const std::string* found = find(tag);
  return found == nullptr ? NONE : *found;
}

bool WireMessage::is(int tag, std::string_view value) const {
  const std::string* found = find(tag);
  return found != nullptr && *found == value;
}

std::optional<uint64_t> WireMessage::number(int tag) const {
  const std::string& text = value(tag);
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

bool WireMessage::session_level() const {
  return type().size() == 1 && std::string_view("012345A").find(type()[0]) != std::string::npos;
}

std::string WireMessage::brief() const {
  std::string text;
  for (const auto& [tag, value] : fields_) {
    if (std::find(LEFT_OUT.begin(), LEFT_OUT.end(), tag) != LEFT_OUT.end()) continue;
    if (text.size() > LONGEST_BRIEF) break;
    if (!text.empty()) text += '|';
    text.append(std::to_string(tag)).append("=").append(value, 0, LONGEST_BRIEF + 1);
  }
  if (split_ < raw_.size() && text.size() <= LONGEST_BRIEF) {
    if (!text.empty()) text += '|';
    text.append(raw_, split_, LONGEST_BRIEF + 1);
  }
  return visible(text, LONGEST_BRIEF);
}

}  // namespace certify
