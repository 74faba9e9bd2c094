#include "tools/watch/line_limiter.h"

#include <algorithm>
#include <utility>

namespace tools {
namespace {

constexpr std::chrono::seconds A_SECOND{1};

}  // namespace

bool LineLimiter::takes_place(Moment now) {
  while (!admitted_.empty() && now - admitted_.front() >= A_SECOND) admitted_.pop_front();
  if (admitted_.size() >= most_) return false;
  admitted_.push_back(now);
  return true;
}

bool LineLimiter::admits(Moment now, bool is_finding) {
  if (most_ == 0 || takes_place(now)) return true;
  if (left_out_.lines++ == 0) first_left_out_ = now;
  if (is_finding) ++left_out_.findings;
  return false;
}

std::optional<LineLimiter::LeftOut> LineLimiter::due(Moment now) {
  const auto moment = next_due();
  if (!moment || now < *moment || !takes_place(now)) return std::nullopt;
  return rest();
}

std::optional<LineLimiter::Moment> LineLimiter::next_due() const {
  if (left_out_.lines == 0) return std::nullopt;
  const Moment wished = first_left_out_ + A_SECOND;
  return admitted_.size() < most_ ? wished : std::max(wished, admitted_.front() + A_SECOND);
}

std::optional<LineLimiter::LeftOut> LineLimiter::rest() {
  if (left_out_.lines == 0) return std::nullopt;
  return std::exchange(left_out_, LeftOut{});
}

}  // namespace tools
