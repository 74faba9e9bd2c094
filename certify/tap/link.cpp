#include "certify/tap/link.h"

#include <algorithm>

namespace certify {

void Link::order(const LinkOrder& order, TimeNs now) {
  switch (order.kind) {
    case LinkOrder::Kind::DELAY:
      delay_ = order.time;
      jitter_ = order.jitter;
      break;
    case LinkOrder::Kind::STALL:
      stalled_until_ = now + order.time;
      stalling_ = true;
      break;
    case LinkOrder::Kind::TRICKLE:
      trickle_ = order.bytes;
      break;
    case LinkOrder::Kind::CUT:
      cut_ = true;
      break;
    case LinkOrder::Kind::CLEAR:
      *this = Link();
      break;
  }
}

bool Link::plain(TimeNs now) const { return delay_ == 0 && trickle_ == 0 && !holds(now); }

std::optional<TimeNs> Link::holds_until() const {
  if (cut_) return std::nullopt;
  return stalled_until_;
}

TimeNs Link::draw_delay(std::mt19937_64& random) const {
  if (jitter_ == 0) return delay_;
  // By hand: the library's distributions differ from one library to the next.
  const auto width = static_cast<uint64_t>(2 * jitter_ + 1);
  return delay_ - jitter_ + static_cast<TimeNs>(random() % width);
}

std::optional<TimeNs> Link::stall_end() const {
  return stalling_ ? std::optional(stalled_until_) : std::nullopt;
}

bool Link::stall_just_ended(TimeNs now) {
  if (!stalling_ || now < stalled_until_) return false;
  stalling_ = false;
  return true;
}

std::optional<TimeNs> Links::stall_end() const {
  const std::optional<TimeNs> one = to_exchange.stall_end();
  const std::optional<TimeNs> two = to_client.stall_end();
  return one && two ? std::min(*one, *two) : one ? one : two;
}

bool Links::stall_just_ended(TimeNs now) {
  const bool one = to_exchange.stall_just_ended(now);
  return to_client.stall_just_ended(now) || one;
}

}  // namespace certify
