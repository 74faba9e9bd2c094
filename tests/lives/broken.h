#pragma once

#include <stdexcept>
#include <string>

namespace lives {

/// Something that always holds did not.
class Broken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Names what should hold, and what was seen instead.
inline void holds(bool it_does, const std::string& what) {
  if (!it_does) throw Broken(what);
}

}  // namespace lives
