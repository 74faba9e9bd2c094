#pragma once

#include <map>
#include <string>
#include <string_view>

namespace stories {

/// What the names of a story stand for: "$id" is bound by the first text that shows it, and stands
/// for the same from then on. "$id+2" is what is bound with its last number two higher.
class Names {
 public:
  /// The text with its names filled in. Throws std::out_of_range for one that is not bound.
  std::string filled(std::string_view text) const;

  /// Whether `text` is what `pattern` says. A name that is not bound takes a word, made of letters,
  /// digits and "_-.:", or all there is left if it ends the pattern.
  bool match(std::string_view pattern, std::string_view text);

 private:
  struct Mention {  // of a name, at the front of a text
    std::string name;
    uint64_t more = 0;
    size_t size = 0;  // of the mention, with its '$'; 0: there is none
  };
  static Mention mention_at(std::string_view text);
  std::string value_of(const Mention& mention) const;

  std::map<std::string, std::string> bound_;
};

}  // namespace stories
