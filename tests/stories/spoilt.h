#pragma once

#include <string>
#include <vector>

namespace stories {

/// A story that is not so, and what its failure must say.
struct Spoilt {
  std::string name;
  std::string text;     // of the story, as in a file
  std::string failure;  // a part of it
};

/// One for each thing that a teller must notice.
std::vector<Spoilt> spoilt_stories();

}  // namespace stories
