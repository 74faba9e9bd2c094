#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "certify/plan/plan.h"

namespace certify {

/// What is wrong with a line, with the word in question at its end; the line's number is not known
/// here.
class Mistake : public std::runtime_error {
 public:
  Mistake(const std::string& sentence, std::string_view word);
};

/// The line up to its comment: a '#' at its beginning or behind a blank, outside of quotes.
std::string_view without_comment(std::string_view line);

/// The words between blanks. "..." holds blanks, '#' and nothing together within one word; there is
/// no other quoting. Throws Mistake for a quote without its end.
std::vector<std::string> split_words(std::string_view line);

/// Takes the words of a line one behind the other.
class Words {
 public:
  explicit Words(std::vector<std::string> words) : words_(std::move(words)) {}

  bool empty() const { return next_ == words_.size(); }
  /// The next word, or the empty text behind the last one.
  const std::string& peek() const;
  /// Throws Mistake with `missing` and the last word there was.
  std::string take(const std::string& missing);
  bool take_if(std::string_view word);
  /// "orders>=3" at the front becomes "orders", ">=", "3".
  void split_comparison();
  /// Throws Mistake if there is one more.
  void expect_end() const;
  std::vector<std::string> rest();
  /// The rest with one blank between words.
  std::string rest_text();

 private:
  std::vector<std::string> words_;
  size_t next_ = 0;
};

/// Digits only, up to `most`.
std::optional<uint64_t> whole_number(std::string_view text, uint64_t most = UINT64_MAX);
/// "500ms", "2s", "0.5s", "1min", to the millisecond and up to a day.
std::optional<Milliseconds> time_from(std::string_view text);
/// "500ms", "2s".
std::string time_to_text(Milliseconds time);

/// The sentence, and which of `known` is the nearest if one is near.
std::string with_nearest(const std::string& sentence, std::string_view word,
                         std::span<const std::string> known);

}  // namespace certify
