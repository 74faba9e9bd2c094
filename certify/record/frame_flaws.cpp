#include "certify/record/frame_flaws.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <unordered_set>

#include "certify/record/exchange_framing.h"
#include "certify/record/visible_text.h"

namespace certify {
namespace {

constexpr size_t MOST_FLAWS = 20;
constexpr size_t LONGEST_QUOTE = 40;

// Members of repeating groups in messages that a client may send: accounts of an allocation,
// trading sessions, supported message types.
constexpr std::array<uint64_t, 5> GROUP_TAGS = {79, 80, 336, 372, 385};

struct Field {
  std::string_view tag;
  std::string_view value;
};

bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::string quoted(std::string_view text) { return "'" + visible(text, LONGEST_QUOTE) + "'"; }

/// Digits only, no zero in front, at most nine.
std::optional<uint64_t> plain_number(std::string_view text) {
  constexpr size_t MOST_DIGITS = 9;
  if (text.empty() || text.size() > MOST_DIGITS || (text.size() > 1 && text[0] == '0')) return {};
  uint64_t value = 0;
  for (const char c : text) {
    if (!is_digit(c)) return {};
    value = value * 10 + static_cast<uint64_t>(c - '0');
  }
  return value;
}

std::string three_digits(uint8_t value) {
  std::array<char, 4> text{};
  std::snprintf(text.data(), text.size(), "%03u", unsigned{value});
  return text.data();
}

class FrameInspection {
 public:
  explicit FrameInspection(std::string_view frame) : frame_(frame) {}

  std::vector<std::string> flaws() {
    const bool whole = split();
    inspect_begin();
    inspect_length();
    if (whole) inspect_checksum();
    inspect_fields();
    return std::move(flaws_);
  }

 private:
  void flaw(std::string text) {
    if (flaws_.size() < MOST_FLAWS) flaws_.push_back(std::move(text));
  }

  bool split() {
    size_t at = 0;
    while (at < frame_.size()) {
      const size_t end = frame_.find(FIX_SEPARATOR, at);
      if (end == std::string_view::npos) {
        flaw("it does not end with the separator, byte 0x01");
        return false;
      }
      const std::string_view field = frame_.substr(at, end - at);
      const size_t equals = field.find('=');
      if (equals == std::string_view::npos) {
        flaw(quoted(field) + " is no field: it has no '='");
        return false;
      }
      fields_.push_back({field.substr(0, equals), field.substr(equals + 1)});
      at = end + 1;
    }
    return true;
  }

  void inspect_begin() {
    if (fields_.empty() || fields_[0].tag != "8") {
      flaw("BeginString (8) is not the first field");
    } else if (fields_[0].value != "FIX.4.2") {
      flaw("BeginString (8) is " + quoted(fields_[0].value) + ", not FIX.4.2");
    }
  }

  void inspect_length() {
    if (fields_.size() < 2 || fields_[1].tag != "9") {
      flaw("BodyLength (9) is not the second field");
      return;
    }
    const std::string_view value = fields_[1].value;
    const auto announced = plain_number(value);
    if (!announced) {
      flaw("BodyLength (9) is " + quoted(value) + ", no plain number");
      return;
    }
    const size_t body = static_cast<size_t>(value.data() - frame_.data()) + value.size() + 1;
    const std::string_view behind = frame_.substr(std::min(body, frame_.size()));
    if (behind.size() < *announced || !behind.substr(*announced).starts_with(CHECKSUM_PREFIX)) {
      flaw("BodyLength (9) is " + std::to_string(*announced) +
           ": CheckSum (10) does not begin so many bytes behind it");
    }
  }

  void inspect_checksum() {
    if (fields_.empty() || fields_.back().tag != "10") {
      flaw("CheckSum (10) is not the last field");
      return;
    }
    const std::string_view value = fields_.back().value;
    if (value.size() != 3 || !std::all_of(value.begin(), value.end(), is_digit)) {
      flaw("CheckSum (10) is " + quoted(value) + ", not three digits");
      return;
    }
    const size_t begin = static_cast<size_t>(value.data() - frame_.data()) - CHECKSUM_PREFIX.size();
    const std::string sum = three_digits(checksum_of(frame_.substr(0, begin)));
    if (value != sum) {
      flaw("CheckSum (10) is " + std::string(value) + " where the bytes add up to " + sum);
    }
  }

  void inspect_fields() {
    std::unordered_set<uint64_t> met;
    for (const Field& field : fields_) {
      const auto tag = plain_number(field.tag);
      if (!tag || *tag == 0) {
        flaw(quoted(field.tag) + " is no tag");
        continue;
      }
      if (field.value.empty()) flaw("tag " + std::to_string(*tag) + " has no value");
      const bool of_group =
          std::find(GROUP_TAGS.begin(), GROUP_TAGS.end(), *tag) != GROUP_TAGS.end();
      if (!met.insert(*tag).second && !of_group) {
        flaw("tag " + std::to_string(*tag) + " comes more than once");
      }
    }
  }

  std::string_view frame_;
  std::vector<Field> fields_;
  std::vector<std::string> flaws_;
};

}  // namespace

std::vector<std::string> flaws_of_frame(std::string_view frame) {
  return FrameInspection(frame).flaws();
}

}  // namespace certify
