#pragma once

#include <functional>

#include "lives/act.h"

namespace lives {

/// Cuts a script down to few acts of which `breaks` still holds, by leaving out ever smaller
/// pieces and by putting 0 for numbers that do not matter. Asks at most `most` times.
Script shrunk(Script script, const std::function<bool(const Script&)>& breaks,
              unsigned most = 3000);

}  // namespace lives
