#include "tools/replay/drop_plan.h"

namespace tools {

bool DropPlan::drops(uint64_t number) const {
  return packets.contains(number) || (every != 0 && number % every == 0);
}

}  // namespace tools
