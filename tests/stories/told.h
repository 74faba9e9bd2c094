#pragma once

#include <functional>
#include <string>

#include "stories/story.h"
#include "stories/teller.h"

namespace stories {

using Driver = std::function<Outcome(const Story&)>;

/// Makes a test of every story that this driver can tell: "inside.cancels/lost_race".
void register_stories(const std::string& driver_name, bool is_inside, const Driver& driver);

/// Makes a test of everything that this driver must notice: "inside.notices/a_wrong_field".
void register_spoilt_stories(const std::string& driver_name, const Driver& driver);

}  // namespace stories
