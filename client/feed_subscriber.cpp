#include "quorl/client/feed_subscriber.h"

#include <algorithm>
#include <utility>

#include "quorl/client/errors.h"

namespace quorl::client {
namespace {

constexpr std::chrono::milliseconds LOOK_STEP{50};

bool is_of_session(const RawPacket& raw, uint32_t session) {
  constexpr size_t SESSION_AT = 8;
  if (raw.bytes.size() < SESSION_AT + 4) return true;  // left for the decoder to refuse
  ByteReader reader(raw.bytes, "packet");
  (void)reader.take(SESSION_AT, "head");
  return reader.u32("session id") == session;
}

}  // namespace

FeedSubscriber::FeedSubscriber(const std::string& group, uint16_t port) : receiver_(group, port) {}

void FeedSubscriber::expect_session(uint32_t session) {
  if (session_ && *session_ != session) {
    throw WireError("the feed's session is " + std::to_string(*session_) + " and not " +
                    std::to_string(session));
  }
  session_ = session;
}

size_t FeedSubscriber::pump() {
  for (RawPacket& raw : receiver_.take()) early_.push_back(std::move(raw));
  const size_t count = early_.size();
  for (RawPacket& raw : std::exchange(early_, {})) record(std::move(raw));
  settle_numbers();
  return count;
}

void FeedSubscriber::record(RawPacket raw) {
  const bool is_ahead_of_the_run = packets_.empty() && session_ && !is_of_session(raw, *session_);
  if (is_ahead_of_the_run) return;
  TpPacket packet = decode_tp_packet(raw.bytes, session_);
  session_ = packet.header.session_id;
  if (packet.header.stream_offset == 0) index_.anchor(0, 1);
  if (packet.is_heartbeat()) {
    index_.anchor(packet.header.stream_offset, packet.header.first_seq);
  } else {
    index_.packet(packet.header.stream_offset, packet.end_offset(), packet.header.first_seq,
                  packet.header.message_count);
  }
  for (const TpMessage& message : packet.messages) {
    unsettled_.push_back(messages_.size());
    messages_.push_back({.packet = packets_.size(),
                         .stream_offset = message.stream_offset,
                         .seq = 0,
                         .bytes = message.bytes,
                         .message = decode_deep(message.bytes)});
  }
  packets_.push_back({std::move(raw), std::move(packet)});
}

void FeedSubscriber::settle_numbers() {
  std::vector<size_t> still_unsettled;
  for (const size_t index : unsettled_) {
    FeedMessage& message = messages_[index];
    const TpPacket& packet = packets_[message.packet].packet;
    const auto first = index_.seq_at(packet.header.stream_offset);
    if (!first) {
      still_unsettled.push_back(index);
      continue;
    }
    const auto place = std::find_if(
        packet.messages.begin(), packet.messages.end(),
        [&message](const TpMessage& m) { return m.stream_offset == message.stream_offset; });
    message.seq = *first + static_cast<uint64_t>(place - packet.messages.begin());
    last_seq_ = std::max(last_seq_, message.seq);
  }
  unsettled_ = std::move(still_unsettled);
}

bool FeedSubscriber::wait_until(const std::function<bool()>& done,
                                std::chrono::milliseconds patience) {
  const Deadline deadline = Deadline::after(patience);
  for (;;) {
    pump();
    if (done()) return true;
    if (deadline.expired()) return false;
    const auto step = std::min<std::chrono::milliseconds>(
        LOOK_STEP, std::chrono::milliseconds(deadline.remaining_ms()));
    early_ = receiver_.take(Deadline::after(step));
  }
}

void FeedSubscriber::await(const std::function<bool()>& done, const std::string& sought,
                           std::chrono::milliseconds patience) {
  if (wait_until(done, patience)) return;
  std::string text = "the feed does not show " + sought + "; its latest messages:";
  const size_t from = messages_.size() - std::min<size_t>(messages_.size(), 15);
  for (const std::string& line : described(from)) text += "\n  " + line;
  throw Timeout(text);
}

void FeedSubscriber::await_seq(uint64_t seq, std::chrono::milliseconds patience) {
  await([this, seq] { return last_seq_ >= seq; }, "number " + std::to_string(seq), patience);
}

size_t FeedSubscriber::await_message(const std::function<bool(const DeepMessage&)>& wanted,
                                     const std::string& sought, size_t from,
                                     std::chrono::milliseconds patience) {
  size_t next = from;
  const auto found = [&] {
    while (next < messages_.size() && !wanted(messages_[next].message)) ++next;
    return next < messages_.size();
  };
  await(found, sought, patience);
  return next;
}

size_t FeedSubscriber::await_heartbeat(std::chrono::milliseconds patience) {
  pump();
  size_t next = packets_.size();
  const auto found = [&] {
    while (next < packets_.size() && !packets_[next].packet.is_heartbeat()) ++next;
    return next < packets_.size();
  };
  await(found, "a heartbeat", patience);
  return next;
}

std::vector<std::string> FeedSubscriber::described(size_t from) const {
  std::vector<std::string> lines;
  for (size_t i = from; i < messages_.size(); ++i) lines.push_back(describe(messages_[i].message));
  return lines;
}

std::optional<uint64_t> FeedSubscriber::true_first_seq(const FeedPacket& packet) const {
  return index_.seq_at(packet.packet.header.stream_offset);
}

}  // namespace quorl::client
