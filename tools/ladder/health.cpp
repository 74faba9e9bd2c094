#include "tools/ladder/health.h"

namespace ladder {
namespace {

using quorl::client::RecoveringSubscriber;
using std::chrono::steady_clock;

}  // namespace

bool is_silent(const Health& health, steady_clock::time_point now) {
  return health.last_heard && now - *health.last_heard > SILENCE;
}

std::string state_text(const Health& health, steady_clock::time_point now) {
  if (is_silent(health, now)) {
    const auto span = std::chrono::duration_cast<std::chrono::seconds>(now - *health.last_heard);
    return "SILENT " + std::to_string(span.count()) + " s";
  }
  switch (health.state) {
    case FeedState::WAITING:
      return "WAITING";
    case FeedState::JOINING:
      return "JOINING";
    case FeedState::IN_STEP:
      return "IN STEP";
    case FeedState::RECOVERING:
      break;
  }
  return "RECOVERING";
}

RecoveringSubscriber::Counters sum(const RecoveringSubscriber::Counters& a,
                                   const RecoveringSubscriber::Counters& b) {
  return {.packets = a.packets + b.packets,
          .duplicates = a.duplicates + b.duplicates,
          .out_of_order = a.out_of_order + b.out_of_order,
          .holes = a.holes + b.holes,
          .fills = a.fills + b.fills,
          .filled = a.filled + b.filled,
          .images = a.images + b.images,
          .jumped = a.jumped + b.jumped,
          .announced_high = a.announced_high + b.announced_high,
          .foreign = a.foreign + b.foreign,
          .kernel_drops = a.kernel_drops + b.kernel_drops};
}

}  // namespace ladder
