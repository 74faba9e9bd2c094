#include "stories/names.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <stdexcept>

namespace stories {
namespace {

constexpr std::string_view LETTERS = "abcdefghijklmnopqrstuvwxyz_";
constexpr std::string_view DIGITS = "0123456789";
constexpr std::string_view WORD =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.:";

size_t run_of(std::string_view text, std::string_view characters, size_t from) {
  return std::min(text.find_first_not_of(characters, from), text.size()) - from;
}

/// "E12" and 2: "E14".
std::string raised(const std::string& value, uint64_t more) {
  const size_t last_other = value.find_last_not_of(DIGITS);
  const size_t begin = last_other == std::string::npos ? 0 : last_other + 1;
  uint64_t number = 0;
  const auto read = std::from_chars(value.data() + begin, value.data() + value.size(), number);
  if (read.ec != std::errc()) throw std::out_of_range("no number to add to in '" + value + "'");
  return value.substr(0, begin) + std::to_string(number + more);
}

}  // namespace

Names::Mention Names::mention_at(std::string_view text) {
  Mention mention;
  if (!text.starts_with("$")) return mention;
  const size_t letters = run_of(text, LETTERS, 1);
  if (letters == 0) return mention;
  mention.name = text.substr(1, letters);
  mention.size = 1 + letters;
  if (mention.size == text.size() || text[mention.size] != '+') return mention;
  const size_t digits = run_of(text, DIGITS, mention.size + 1);
  if (digits == 0) return mention;
  const char* const first = text.data() + mention.size + 1;
  std::from_chars(first, first + digits, mention.more);
  mention.size += 1 + digits;
  return mention;
}

std::string Names::value_of(const Mention& mention) const {
  const auto bound = bound_.find(mention.name);
  if (bound == bound_.end()) throw std::out_of_range("$" + mention.name + " stands for nothing");
  return mention.more == 0 ? bound->second : raised(bound->second, mention.more);
}

std::string Names::filled(std::string_view text) const {
  std::string whole;
  while (!text.empty()) {
    const Mention mention = mention_at(text);
    if (mention.size == 0) {
      whole += text.front();
      text.remove_prefix(1);
    } else {
      whole += value_of(mention);
      text.remove_prefix(mention.size);
    }
  }
  return whole;
}

bool Names::match(std::string_view pattern, std::string_view text) {
  std::map<std::string, std::string> before = bound_;
  const auto fail = [&] {
    bound_ = std::move(before);
    return false;
  };
  while (!pattern.empty()) {
    const Mention mention = mention_at(pattern);
    if (mention.size == 0) {
      if (text.empty() || text.front() != pattern.front()) return fail();
      pattern.remove_prefix(1);
      text.remove_prefix(1);
      continue;
    }
    pattern.remove_prefix(mention.size);
    if (!bound_.contains(mention.name) && mention.more == 0) {
      const size_t end = pattern.empty() ? text.size() : run_of(text, WORD, 0);
      if (end == 0) return fail();
      bound_[mention.name] = text.substr(0, end);
      text.remove_prefix(end);
    } else {
      const std::string value = value_of(mention);
      if (!text.starts_with(value)) return fail();
      text.remove_prefix(value.size());
    }
  }
  return text.empty() || fail();
}

}  // namespace stories
