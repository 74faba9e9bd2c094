#include "certify/checks/feed_map.h"

#include <algorithm>
#include <iterator>

namespace client = quorl::client;

namespace certify {
namespace {

// With more holes than this the oldest part is forgotten, which is to say nothing is said of it.
constexpr size_t MOST_RUNS = 10'000;

uint64_t less_or_none(uint64_t a, uint64_t b) { return a > b ? a - b : 0; }

/// Keeps what both say; if they contradict each other, which no exchange does, what came last.
SeqBounds both(SeqBounds known, SeqBounds news) {
  const SeqBounds narrowed{std::max(known.low, news.low), std::min(known.high, news.high)};
  return narrowed.low <= narrowed.high ? narrowed : news;
}

SeqBounds moved_up(SeqBounds bounds, uint64_t by) { return {bounds.low + by, bounds.high + by}; }

SeqBounds moved_down(SeqBounds bounds, uint64_t by) {
  return {less_or_none(bounds.low, by), less_or_none(bounds.high, by)};
}

}  // namespace

uint64_t FeedMap::heard(const client::TpPacket& packet, TimeNs at) {
  const uint64_t announced = packet.header.first_seq;
  const bool is_true = packet.is_heartbeat() || packet.header.stream_offset == 0;
  return add(packet, {is_true ? announced : std::max<uint64_t>(announced, 2) - 1, announced}, at);
}

uint64_t FeedMap::filled(const client::TpPacket& packet, TimeNs at) {
  if (packet.messages.empty()) return 0;
  return add(packet, {packet.header.first_seq, packet.header.first_seq}, at);
}

uint64_t FeedMap::add(const client::TpPacket& packet, SeqBounds first, TimeNs at) {
  const uint64_t begin = packet.header.stream_offset;
  if (packet.messages.empty()) {
    add_piece(begin, {.end_offset = begin, .first = first, .shown = at});
    return 0;
  }
  // What of it has come already is passed over: gap fill packs messages in another way.
  uint64_t added = 0;
  for (size_t i = 0; i < packet.messages.size();) {
    const uint64_t offset = packet.messages[i].stream_offset;
    const auto behind = runs_.upper_bound(offset);
    if (offset < forgotten_ ||
        (behind != runs_.begin() && std::prev(behind)->second.end_offset > offset)) {
      ++i;
      continue;
    }
    const uint64_t limit = behind == runs_.end() ? UINT64_MAX : behind->first;
    Run piece{.first = moved_up(first, i), .shown = at};
    while (i < packet.messages.size() && packet.messages[i].stream_offset < limit) {
      piece.end_offset = packet.messages[i].end_offset();
      ++piece.count;
      ++i;
    }
    added += piece.count;
    add_piece(offset, piece);
  }
  return added;
}

void FeedMap::add_piece(uint64_t offset, Run piece) {
  if (offset < forgotten_) return;
  const auto behind = runs_.upper_bound(offset);
  auto here = behind;
  if (behind != runs_.begin() && std::prev(behind)->second.end_offset >= offset) {
    here = std::prev(behind);
    if (here->second.end_offset > offset) return;  // an old heartbeat
    here->second.first = both(here->second.first, moved_down(piece.first, here->second.count));
    here->second.end_offset = piece.end_offset;
    here->second.count += piece.count;
  } else {
    if (behind != runs_.end()) piece.shown = behind->second.shown;  // it lands within a hole
    here = runs_.emplace_hint(behind, offset, piece);
  }
  if (behind != runs_.end() && behind->first == here->second.end_offset) {
    here->second.first =
        both(here->second.first, moved_down(behind->second.first, here->second.count));
    here->second.count += behind->second.count;
    here->second.end_offset = behind->second.end_offset;
    runs_.erase(behind);
  }
  while (runs_.size() > MOST_RUNS) forget_first();
  forget_what_is_settled();
}

std::vector<FeedHole> FeedMap::holes() const {
  std::vector<FeedHole> holes;
  for (auto run = runs_.begin(); run != runs_.end(); ++run) {
    if (run == runs_.begin() || run->second.settled) continue;
    const Run& ahead = std::prev(run)->second;
    const SeqBounds first = moved_up(ahead.first, ahead.count);
    const SeqBounds behind = moved_down(run->second.first, 1);
    holes.push_back({.offset = ahead.end_offset,
                     .end_offset = run->first,
                     .first = first,
                     // At least one message is missing.
                     .last = {std::max(behind.low, first.low), std::max(behind.high, first.low)},
                     .shown = run->second.shown});
  }
  return holes;
}

void FeedMap::settle(uint64_t end_offset) {
  const auto run = runs_.find(end_offset);
  if (run != runs_.end()) run->second.settled = true;
  forget_what_is_settled();
}

/// Where the first hole is settled, nothing ahead of it is of interest.
void FeedMap::forget_what_is_settled() {
  while (runs_.size() > 1 && std::next(runs_.begin())->second.settled) forget_first();
}

void FeedMap::forget_first() {
  runs_.erase(runs_.begin());
  forgotten_ = runs_.begin()->first;
}

void FeedMap::clear() {
  runs_.clear();
  forgotten_ = 0;
}

std::optional<client::SeqRange> FeedMap::certainly_there(const client::SeqRange& range) const {
  std::optional<client::SeqRange> found;
  // From the end, since most of what is asked for is recent.
  for (auto run = runs_.rbegin(); run != runs_.rend(); ++run) {
    const auto& [low, high] = run->second.first;
    if (high + run->second.count < range.first) break;
    const client::SeqRange inside{high + 1, less_or_none(low + run->second.count, 2)};
    const client::SeqRange shared{std::max(inside.first, range.first),
                                  std::min(inside.last, range.last)};
    if (shared.first <= shared.last) found = shared;
  }
  return found;
}

uint64_t FeedMap::next_number() const {
  if (runs_.empty()) return 1;
  const Run& last = runs_.rbegin()->second;
  return last.first.low + last.count;
}

}  // namespace certify
