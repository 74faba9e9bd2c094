#pragma once

#include <optional>
#include <string>

#include "stories/story.h"
#include "stories/world.h"

namespace stories {

struct Outcome {
  std::optional<std::string> failure = {};  // where the world and the story part
  std::string course = {};  // what was done and what came, for those who read the failure
  bool disturbed = false;   // a stray Heartbeat has come: numbers are not the story's
};

/// Tells a story in a world that has just begun: does what it does, and demands that what it names
/// comes, in order, and nothing else.
Outcome tell(const Story& story, World& world);

}  // namespace stories
