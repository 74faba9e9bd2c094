#include "certify/tap/pipe.h"

#include <algorithm>
#include <utility>

namespace certify {

void Pipe::put(Piece piece) {
  piece.due = last_due_ = std::max(piece.due, last_due_);
  bytes_ += piece.bytes.size();
  pieces_.push_back(std::move(piece));
}

void Pipe::forget_times() {
  for (Piece& piece : pieces_) piece.due = 0;
  last_due_ = 0;
  next_trickle_ = 0;
}

void Pipe::clear() {
  pieces_.clear();
  passed_ = 0;
  bytes_ = 0;
}

bool Pipe::ready(const Link& link, TimeNs now) const {
  return !pieces_.empty() && !link.holds(now) && front().due <= now &&
         (link.trickle() == 0 || next_trickle_ <= now);
}

std::string_view Pipe::share(const Link& link) const {
  const std::string_view rest = std::string_view(front().bytes).substr(passed_);
  return link.trickle() == 0 ? rest : rest.substr(0, link.trickle());
}

bool Pipe::pass(size_t bytes, TimeNs now) {
  next_trickle_ = now + TRICKLE_PACE;
  passed_ += bytes;
  bytes_ -= bytes;
  if (passed_ < front().bytes.size()) return false;
  pieces_.pop_front();
  passed_ = 0;
  return true;
}

std::optional<TimeNs> Pipe::next_due(const Link& link, TimeNs now) const {
  TimeNs due = front().due;
  if (link.trickle() > 0) due = std::max(due, next_trickle_);
  if (!link.holds(now)) return due;
  const std::optional<TimeNs> held = link.holds_until();
  return held ? std::optional(std::max(due, *held)) : std::nullopt;
}

}  // namespace certify
