#include "certify/plan/words.h"

#include <algorithm>
#include <numeric>

namespace certify {
namespace {

constexpr std::string_view BLANKS = " \t\r";
constexpr std::string_view COMPARISON = "<>=!";

bool is_blank(char c) { return BLANKS.find(c) != std::string_view::npos; }

bool is_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// How many letters are to be added, left out or changed.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
    }
  }
  return row[b.size()];
}

}  // namespace

Mistake::Mistake(const std::string& sentence, std::string_view word)
    : std::runtime_error(sentence + ", '" + std::string(word) + "'") {}

std::string_view without_comment(std::string_view line) {
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == '#' && !quoted && (i == 0 || is_blank(line[i - 1]))) return line.substr(0, i);
  }
  return line;
}

std::vector<std::string> split_words(std::string_view line) {
  std::vector<std::string> words;
  bool in_word = false;
  bool quoted = false;
  for (const char c : line) {
    if (!quoted && is_blank(c)) {
      in_word = false;
      continue;
    }
    if (!in_word) words.emplace_back();
    in_word = true;
    if (c == '"') {
      quoted = !quoted;
    } else {
      words.back() += c;
    }
  }
  if (quoted) throw Mistake("a quote is opened and not closed", words.back());
  return words;
}

const std::string& Words::peek() const {
  static const std::string none;
  return empty() ? none : words_[next_];
}

std::string Words::take(const std::string& missing) {
  if (empty()) throw Mistake(missing, words_.empty() ? "" : words_.back());
  return words_[next_++];
}

bool Words::take_if(std::string_view word) {
  if (empty() || words_[next_] != word) return false;
  ++next_;
  return true;
}

void Words::split_comparison() {
  if (empty()) return;
  const std::string word = words_[next_];
  const size_t from = word.find_first_of(COMPARISON);
  if (from == std::string::npos) return;
  const size_t to = std::min(word.find_first_not_of(COMPARISON, from), word.size());
  std::vector<std::string> parts;
  for (const std::string& part :
       {word.substr(0, from), word.substr(from, to - from), word.substr(to)}) {
    if (!part.empty()) parts.push_back(part);
  }
  const auto place = words_.erase(words_.begin() + static_cast<std::ptrdiff_t>(next_));
  words_.insert(place, parts.begin(), parts.end());
}

void Words::expect_end() const {
  if (!empty()) throw Mistake("nothing may stand here any more", peek());
}

std::vector<std::string> Words::rest() {
  std::vector<std::string> rest(words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end());
  next_ = words_.size();
  return rest;
}

std::string Words::rest_text() {
  std::string text;
  for (const std::string& word : rest()) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::optional<uint64_t> whole_number(std::string_view text, uint64_t most) {
  if (!is_digits(text)) return std::nullopt;
  uint64_t value = 0;
  for (const char c : text) {
    const auto digit = static_cast<uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return std::nullopt;
    value = value * 10 + digit;
  }
  return value <= most ? std::optional(value) : std::nullopt;
}

std::optional<Milliseconds> time_from(std::string_view text) {
  struct Unit {
    std::string_view name;
    uint64_t milliseconds;
  };
  constexpr Unit UNITS[] = {{"ms", 1}, {"min", 60'000}, {"s", 1'000}};
  constexpr uint64_t DAY = 86'400'000;
  const auto unit = std::find_if(std::begin(UNITS), std::end(UNITS),
                                 [text](const Unit& u) { return text.ends_with(u.name); });
  if (unit == std::end(UNITS)) return std::nullopt;
  text.remove_suffix(unit->name.size());
  const size_t point = text.find('.');
  const auto whole = whole_number(text.substr(0, point), DAY);
  if (!whole) return std::nullopt;
  uint64_t milliseconds = *whole * unit->milliseconds;
  if (point != std::string_view::npos) {  // tenths, hundredths, thousandths of the unit
    const std::string_view decimals = text.substr(point + 1);
    const auto part = whole_number(decimals, 999);
    if (!part || decimals.size() > 3 || unit->milliseconds == 1) return std::nullopt;
    uint64_t scale = 1;
    for (size_t i = 0; i < decimals.size(); ++i) scale *= 10;
    milliseconds += *part * unit->milliseconds / scale;
  }
  if (milliseconds > DAY) return std::nullopt;
  return Milliseconds(milliseconds);
}

std::string time_to_text(Milliseconds time) {
  const auto count = time.count();
  return count % 1000 == 0 ? std::to_string(count / 1000) + "s" : std::to_string(count) + "ms";
}

std::string with_nearest(const std::string& sentence, std::string_view word,
                         std::span<const std::string> known) {
  const auto nearest = std::min_element(
      known.begin(), known.end(),
      [word](const auto& a, const auto& b) { return distance(a, word) < distance(b, word); });
  if (nearest == known.end()) return sentence;
  const bool is_near = distance(*nearest, word) <= std::max<size_t>(2, word.size() / 3) &&
                       distance(*nearest, word) < word.size();
  return is_near ? sentence + " (the nearest is '" + *nearest + "')" : sentence;
}

}  // namespace certify
