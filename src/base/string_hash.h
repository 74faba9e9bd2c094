#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace quorl {

/// Lets a hash map of strings be searched by a view, so that a look-up copies none.
struct StringHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

}  // namespace quorl
