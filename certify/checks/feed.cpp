#include <algorithm>

#include "certify/checks/feed_checks.h"

namespace certify {
namespace {

constexpr CheckKind KINDS[] = {
    {"feed.recovered",
     "What the feed lost is fetched by gap fill or replaced by an image, in the time that the plan "
     "allows.",
     make_feed_recovered},
    {"feed.only_missing", "Gap fill is not asked for messages that have arrived.",
     make_feed_only_missing},
    {"feed.requests_formed",
     "No request for gap fill or an image is refused for its form, and a refusal that asks for "
     "patience gets it.",
     make_feed_requests_formed},
    {"feed.request_limits",
     "A request for gap fill keeps to 127 ranges and 1000 messages, and the same is not asked for "
     "without end.",
     make_feed_request_limits},
    {"feed.late_join",
     "A client that joins a feed already running gets its place by an image or by gap fill, and "
     "then follows.",
     make_feed_late_join},
};

}  // namespace

std::span<const CheckKind> feed_checks() { return KINDS; }

bool asks_for_messages(const GapRequested& request) {
  return request.well_formed && !request.ranges.empty() && request.ranges.size() <= MOST_RANGES;
}

std::string messages_text(uint64_t first, uint64_t last) {
  if (first == last) return "message " + std::to_string(first);
  return "messages " + std::to_string(first) + " to " + std::to_string(last);
}

std::string ranges_text(const std::vector<quorl::client::SeqRange>& ranges) {
  constexpr size_t MOST_RANGES_SHOWN = 8;
  std::string text;
  for (size_t i = 0; i < std::min(ranges.size(), MOST_RANGES_SHOWN); ++i) {
    if (i > 0) text += ", ";
    text += std::to_string(ranges[i].first);
    if (ranges[i].last != ranges[i].first) text += " to " + std::to_string(ranges[i].last);
  }
  if (ranges.size() > MOST_RANGES_SHOWN) {
    text += " and " + std::to_string(ranges.size() - MOST_RANGES_SHOWN) + " more";
  }
  return text;
}

TimeNs in_ns(Milliseconds time) { return time.count() * MILLISECOND; }

}  // namespace certify
