#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "certify/record/time.h"
#include "certify/tap/link.h"

namespace certify {

/// How much is on its way in one direction before its sender is not read any more.
constexpr size_t PIPE_BYTES = 256 * 1024;
/// What a piece costs besides its bytes: many small ones are bounded, too.
constexpr size_t PIECE_COST = 32;
/// Between two pieces of a link that trickles.
constexpr TimeNs TRICKLE_PACE = MILLISECOND;

/// What is on its way in one direction, in order: what the tap has taken and not handed over.
class Pipe {
 public:
  struct Piece {
    std::string bytes;
    uint32_t owner = 0;   // of datagrams: whose
    TimeNs taken = 0;     // by the caller's clock
    TimeNs due = 0;       // not handed over before
    int64_t arrived = 0;  // by DelayFigures' clock; 0: what happens to it is not measured
  };

  /// Behind what is there; `due` is put off to that of the piece ahead.
  void put(Piece piece);
  /// The link is plain again: nothing waits for its time.
  void forget_times();
  void clear();

  bool empty() const { return pieces_.empty(); }
  size_t bytes() const { return bytes_; }
  bool has_room() const { return bytes_ + pieces_.size() * PIECE_COST < PIPE_BYTES; }
  TimeNs last_due() const { return last_due_; }

  /// The front piece, or a part of it, may go on.
  bool ready(const Link& link, TimeNs now) const;
  const Piece& front() const { return pieces_.front(); }
  /// What of the front piece may go on in one step; REQUIRES ready().
  std::string_view share(const Link& link) const;
  /// So many bytes of the front piece have been handed over. Returns whether that was all of it.
  bool pass(size_t bytes, TimeNs now);
  /// The front piece is gone, whole.
  void drop_front(TimeNs now) { (void)pass(front().bytes.size() - passed_, now); }

  /// When ready() will turn true by time alone; REQUIRES !empty().
  std::optional<TimeNs> next_due(const Link& link, TimeNs now) const;

 private:
  std::deque<Piece> pieces_;
  size_t passed_ = 0;  // bytes of the front piece
  size_t bytes_ = 0;   // of all that is here, less those passed
  TimeNs last_due_ = 0;
  TimeNs next_trickle_ = 0;
};

}  // namespace certify
