#pragma once

#include "tools/replay/options.h"

namespace tools {

/// Does what the program is for and says on standard error what it does. Returns its exit status.
int replay(const ReplayOptions& options);

}  // namespace tools
