#include "quorl/client/recovering_subscriber.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "quorl/client/deep.h"
#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

using std::chrono::milliseconds;

/// A packet that was held back follows right behind the next one; what has not come by then is
/// lost.
constexpr milliseconds REORDER_WAIT{20};
constexpr milliseconds POLL_STEP{5};
constexpr unsigned MOST_FAILED_FILLS = 3;
constexpr unsigned MOST_HOLES_PER_POLL = 100;
constexpr uint64_t MESSAGES_PER_REQUEST = 1000;

bool same_messages(const TpPacket& a, const TpPacket& b) {
  return std::equal(a.messages.begin(), a.messages.end(), b.messages.begin(), b.messages.end(),
                    [](const TpMessage& x, const TpMessage& y) { return x.bytes == y.bytes; });
}

}  // namespace

RecoveringSubscriber::RecoveringSubscriber(const Ports& ports, std::optional<uint32_t> session,
                                           RecoveryOptions options)
    : ports_(ports),
      options_(std::move(options)),
      session_(session),
      receiver_(ports.group, ports.feed, "127.0.0.1",
                options_.endless ? KernelDrops::BEAR : KernelDrops::FAIL),
      book_(!options_.endless) {}

void RecoveringSubscriber::follow_from_start() { placed_ = true; }

bool RecoveringSubscriber::await_feed(milliseconds patience) {
  return run_until([this] { return last_heard_.has_value(); }, patience);
}

void RecoveringSubscriber::join() {
  if (!pending_.empty() && pending_.begin()->first == 0) {
    follow_from_start();
  } else {
    take_image();
  }
  apply_pending();
}

void RecoveringSubscriber::join_late(milliseconds patience) {
  if (!run_until([this] { return session_.has_value(); }, patience)) {
    throw Timeout("no packet of the feed comes");
  }
  take_image();
  apply_pending();
}

bool RecoveringSubscriber::run_until(const std::function<bool()>& done, milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  for (;;) {
    poll();
    if (done()) return true;
    if (deadline.expired()) return false;
    const auto step = std::min(POLL_STEP, milliseconds(deadline.remaining_ms()));
    for (const RawPacket& raw : receiver_.take(Deadline::after(step))) receive(raw);
  }
}

void RecoveringSubscriber::poll() {
  for (const RawPacket& raw : receiver_.take()) receive(raw);
  if (!placed_) return;
  apply_pending();
  repair_what_is_due();
}

void RecoveringSubscriber::await_seq(uint64_t seq, milliseconds patience) {
  if (run_until([this, seq] { return next_seq_ > seq; }, patience)) return;
  throw Timeout("number " + std::to_string(seq) + " does not come; next is " +
                std::to_string(next_seq_));
}

void RecoveringSubscriber::catch_up(milliseconds patience) {
  const GapFillAnswer status = gap_fill().status(patience);
  note_end(status.stream_offset, status.next_seq);
  await_seq(status.next_seq - 1, patience);
}

std::string RecoveringSubscriber::compare_with_image(milliseconds patience) {
  // Nothing is taken from the feed until the image is here, so it cannot stand behind us.
  const SnapImage image = SnapClient(ports_.snap, known_session()).image(next_seq_ - 1, patience);
  halt_offset_ = image.stream_offset;
  note_end(image.stream_offset, image.seq + 1);
  const bool reached = run_until([this] { return halted(); }, patience);
  halt_offset_.reset();
  if (!reached) throw Timeout("the image's position is not reached");
  if (next_offset_ != image.stream_offset || next_seq_ != image.seq + 1) {
    return "number " + std::to_string(next_seq_) + " at offset " + std::to_string(next_offset_) +
           ", but the image stands behind " + std::to_string(image.seq) + " at " +
           std::to_string(image.stream_offset);
  }
  if (!book_.consistent()) return "the image stands within an event";
  return compare_levels(image.book().books(), book_.books());
}

void RecoveringSubscriber::receive(const RawPacket& raw) {
  TpPacket packet = decode_tp_packet(raw.bytes, options_.endless ? std::nullopt : session_);
  if (is_foreign(packet)) return;
  session_ = packet.header.session_id;
  last_heard_ = raw.arrived;
  ++counters_.packets;
  counters_.kernel_drops = receiver_.kernel_drops();
  note_order(packet);
  note_end(packet.end_offset(), packet.header.first_seq + packet.header.message_count);
  if (packet.is_heartbeat()) return;
  const uint64_t offset = packet.header.stream_offset;
  const auto twin = pending_.find(offset);
  if (twin != pending_.end() && !same_messages(twin->second.packet, packet)) {
    throw WireError("two different packets at stream offset " + std::to_string(offset));
  }
  if (twin != pending_.end() || (placed_ && packet.end_offset() <= next_offset_)) {
    ++counters_.duplicates;
    if (placed_) check_seen(packet);
    return;
  }
  if (offset < newest_offset_) ++counters_.out_of_order;
  newest_offset_ = std::max(newest_offset_, offset);
  pending_.emplace(offset, Pending{std::move(packet), raw.arrived});
}

bool RecoveringSubscriber::is_foreign(const TpPacket& packet) {
  if (!session_ || packet.header.session_id == *session_) return false;
  ++counters_.foreign;
  other_session_ = packet.header.session_id;
  return true;
}

/// A packet is stamped when it is built, so one that was held back or comes twice is an old one.
void RecoveringSubscriber::note_order(const TpPacket& packet) {
  if (packet.header.send_time_ns <= newest_send_time_ns_) return;
  newest_send_time_ns_ = packet.header.send_time_ns;
  if (packet.end_offset() < newest_end_) rewound_ = true;
  newest_end_ = packet.end_offset();
}

/// Heartbeats and the ends of packets tell how far the stream reaches.
void RecoveringSubscriber::note_end(uint64_t end_offset, uint64_t next_seq) {
  if (end_offset < known_end_) return;
  if (end_offset > known_end_) known_since_ = std::chrono::steady_clock::now();
  known_end_ = end_offset;
  known_next_seq_ = next_seq;
}

void RecoveringSubscriber::apply_pending() {
  while (!pending_.empty() && !halted()) {
    const auto first = pending_.begin();
    if (first->first > next_offset_) return;  // a hole
    apply_packet(first->second.packet);
    if (next_offset_ < first->second.packet.end_offset()) return;  // halted inside it
    pending_.erase(first);
  }
}

void RecoveringSubscriber::apply_packet(const TpPacket& packet) {
  check_announced(packet);
  check_seen(packet);
  for (const TpMessage& message : packet.messages) {
    if (halted()) return;
    if (message.stream_offset < next_offset_) continue;
    apply_message(message);
  }
}

/// The announced number must be the true one or one more.
void RecoveringSubscriber::check_announced(const TpPacket& packet) {
  const uint64_t offset = packet.header.stream_offset;
  uint64_t truth = next_seq_;
  if (offset != next_offset_) {
    const auto known = seq_of_offset_.find(offset);
    if (known == seq_of_offset_.end()) return;  // it begins ahead of our image
    truth = known->second;
  }
  if (packet.header.first_seq == truth + 1) {
    ++counters_.announced_high;
  } else if (packet.header.first_seq != truth) {
    throw WireError("a packet announces number " + std::to_string(packet.header.first_seq) +
                    " for number " + std::to_string(truth));
  }
}

void RecoveringSubscriber::apply_message(const TpMessage& message) {
  if (message.stream_offset != next_offset_) {
    throw WireError("a message at stream offset " + std::to_string(message.stream_offset) +
                    " where number " + std::to_string(next_seq_) + " begins at " +
                    std::to_string(next_offset_));
  }
  const DeepMessage decoded = decode_deep(message.bytes);
  book_.apply(decoded);
  if (!options_.endless) {
    seq_of_offset_.emplace(next_offset_, next_seq_);
    messages_.emplace(next_seq_, message);
  }
  if (options_.on_message) options_.on_message(next_seq_, decoded);
  next_offset_ = message.end_offset();
  ++next_seq_;
}

/// What has been applied already must come again byte for byte.
void RecoveringSubscriber::check_seen(const TpPacket& packet) const {
  if (options_.endless) return;
  for (const TpMessage& message : packet.messages) {
    if (message.stream_offset >= next_offset_ || message.stream_offset < placed_from_) continue;
    const auto known = seq_of_offset_.find(message.stream_offset);
    if (known == seq_of_offset_.end() || messages_.at(known->second).bytes != message.bytes) {
      throw WireError("another message came before at stream offset " +
                      std::to_string(message.stream_offset) + " than " + hex(message.bytes));
    }
  }
}

bool RecoveringSubscriber::behind() const { return !halted() && next_offset_ < known_end_; }

/// The packets that show the hole have been here long enough for one held back to have followed.
bool RecoveringSubscriber::hole_is_due() const {
  const auto shown_since = pending_.empty() ? known_since_ : pending_.begin()->second.arrived;
  return std::chrono::steady_clock::now() - shown_since >= REORDER_WAIT;
}

void RecoveringSubscriber::repair_what_is_due() {
  for (unsigned i = 0; i < MOST_HOLES_PER_POLL && behind(); ++i) {
    if (hole_at_ != next_offset_) {
      hole_at_ = next_offset_;
      ++counters_.holes;
    }
    if (!hole_is_due()) return;
    fill_hole();
    if (hole_at_ == next_offset_) return;  // nothing came: another time
  }
}

void RecoveringSubscriber::fill_hole() {
  const uint64_t hole_end = pending_.empty() ? known_end_ : pending_.begin()->first;
  while (next_offset_ < hole_end && !halted() && fill_once()) {
  }
  apply_pending();
}

/// Returns false if there is nothing more to be had by this way now.
bool RecoveringSubscriber::fill_once() {
  // One number too many where the announced one is one too high: that message comes twice.
  const uint64_t behind_hole =
      pending_.empty() ? known_next_seq_ : pending_.begin()->second.packet.header.first_seq;
  const uint64_t last = std::max(behind_hole, next_seq_ + 1) - 1;
  const SeqRange range{next_seq_, std::min(last, next_seq_ + MESSAGES_PER_REQUEST - 1)};
  ++counters_.fills;
  std::map<uint64_t, TpMessage> messages;
  try {
    messages = gap_fill().fetch({range}, options_.fill_patience).messages;
    failed_fills_ = 0;
  } catch (const Timeout&) {
    if (++failed_fills_ < MOST_FAILED_FILLS) return false;
    if (!options_.endless) throw;
    failed_fills_ = 0;
    take_image();
    return false;
  }
  if (messages.empty() || messages.begin()->first != next_seq_) {
    take_image();  // the history begins later than our hole
    return false;
  }
  for (const auto& [seq, message] : messages) {
    if (halted()) break;
    apply_message(message);
    ++counters_.filled;
  }
  return true;
}

void RecoveringSubscriber::take_image() {
  const uint64_t minimum = placed_ ? next_seq_ : 0;
  const SnapImage image =
      SnapClient(ports_.snap, known_session()).image(minimum, options_.image_patience);
  if (placed_) {
    counters_.jumped += image.seq - next_seq_ + 1;
    if (!options_.endless) skipped_.push_back({next_seq_, image.seq});
  }
  placed_ = true;
  next_offset_ = image.stream_offset;
  next_seq_ = image.seq + 1;
  placed_from_ = image.stream_offset;
  book_.begin_image();
  for (const DeepMessage& message : image.messages) book_.apply_image(message);
  note_end(image.stream_offset, image.seq + 1);
  ++counters_.images;
  if (options_.on_image) options_.on_image(image);
}

uint32_t RecoveringSubscriber::known_session() const {
  if (!session_) throw WireError("no packet has told the feed's session yet");
  return *session_;
}

GapFillClient& RecoveringSubscriber::gap_fill() {
  if (!gap_fill_) gap_fill_.emplace(ports_.gap_fill, known_session());
  return *gap_fill_;
}

}  // namespace quorl::client
