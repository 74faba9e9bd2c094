#include "tools/watch/silence_watch.h"

#include <utility>

namespace tools {

std::optional<SilenceWatch::Span> SilenceWatch::heard(Moment now) {
  const Moment began = std::exchange(since_, now);
  const bool was_told = std::exchange(threshold_, FIRST) > FIRST;
  if (!was_told) return std::nullopt;
  return now - began;
}

std::optional<SilenceWatch::Span> SilenceWatch::tell_if_due(Moment now) {
  if (now < next_due()) return std::nullopt;
  const Span length = threshold_;
  while (now >= next_due()) threshold_ *= 2;
  return length;
}

}  // namespace tools
