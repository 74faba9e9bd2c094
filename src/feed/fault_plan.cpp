#include "feed/fault_plan.h"

namespace quorl {
namespace {

bool is_multiple(uint64_t number, uint32_t every) { return every != 0 && number % every == 0; }

bool take_one(uint32_t& next) {
  if (next == 0) return false;
  --next;
  return true;
}

bool in_burst(const FaultPlan& plan, uint64_t number) {
  return plan.burst_len != 0 && number >= plan.burst_start &&
         number < plan.burst_start + plan.burst_len;
}

}  // namespace

PacketFate decide_fate(FaultPlan& plan, uint64_t number) {
  PacketFate fate;
  // The one-shot first in each line: it is used up even where another rule decides the same.
  fate.drop =
      take_one(plan.drop_next) || is_multiple(number, plan.drop_every) || in_burst(plan, number);
  if (fate.drop) return fate;
  fate.duplicate = take_one(plan.dup_next) || is_multiple(number, plan.dup_every);
  fate.reorder = take_one(plan.reorder_next) || is_multiple(number, plan.reorder_every);
  return fate;
}

}  // namespace quorl
