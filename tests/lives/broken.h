#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace lives {

/// Something that always holds did not.
class Broken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Of a text, a number, or a function that makes a text.
template <typename Seen>
std::string words_of(const Seen& seen) {
  if constexpr (std::is_invocable_v<const Seen&>) {
    return seen();
  } else if constexpr (std::is_integral_v<Seen>) {
    return std::to_string(seen);
  } else {
    return std::string(seen);
  }
}

/// Names what should hold, and what was seen instead. A text that has to be made is handed over in
/// pieces or as the function that makes it: thousands of things hold in every turn, and no text is
/// made of them.
template <typename... Seen>
void holds(bool it_does, std::string_view what, const Seen&... seen) {
  if (!it_does) throw Broken((std::string(what) + ... + words_of(seen)));
}

}  // namespace lives
