#include "tools/watch/feed_tracker.h"

#include <algorithm>
#include <utility>

namespace client = quorl::client;

namespace tools {
namespace {

constexpr size_t MOST_SESSIONS = 16;
constexpr size_t MOST_GAPS = 4096;

// A block is a message with its length: a System Event is the shortest, a Trade Report the longest.
constexpr uint64_t SHORTEST_BLOCK = 12;
constexpr uint64_t LONGEST_BLOCK = 40;

/// The least payload of a packet that a message did not fit into.
constexpr uint64_t FULL_PAYLOAD =
    client::TP_MAX_PACKET - client::TP_HEADER_SIZE - LONGEST_BLOCK + 1;

Between exactly(uint64_t number) { return {number, number}; }

uint64_t difference_or(uint64_t least, uint64_t a, uint64_t b) {
  return a < b + least ? least : a - b;
}

Between operator+(const Between& a, uint64_t b) { return {a.low + b, a.high + b}; }
Between operator+(const Between& a, const Between& b) { return {a.low + b.low, a.high + b.high}; }
/// Nothing is less than 0 messages.
Between operator-(const Between& a, const Between& b) {
  return {difference_or(0, a.low, b.high), difference_or(0, a.high, b.low)};
}

bool meet(const Between& a, const Between& b) { return a.low <= b.high && b.low <= a.high; }

/// What both allow. If they contradict each other, `a`.
Between both(const Between& a, const Between& b) {
  if (!meet(a, b)) return a;
  return {std::max(a.low, b.low), std::min(a.high, b.high)};
}

/// What so many bytes of blocks can be.
Between messages_in(uint64_t bytes) {
  return {(bytes + LONGEST_BLOCK - 1) / LONGEST_BLOCK, bytes / SHORTEST_BLOCK};
}

/// The true first number, as far as the packet alone tells it.
Between first_seq_of(const client::TpPacket& packet) {
  const client::TpHeader& header = packet.header;
  if (header.stream_offset == 0) return exactly(1);
  if (packet.is_heartbeat()) return exactly(header.first_seq);
  return {std::max<uint64_t>(header.first_seq, 2) - 1, header.first_seq};
}

std::optional<uint64_t> settled(const Between& number) {
  if (!number.settled()) return std::nullopt;
  return number.low;
}

std::string announced(const client::TpPacket& packet) {
  return std::to_string(packet.header.first_seq);
}

}  // namespace

std::string Between::text() const {
  if (settled()) return std::to_string(low);
  return std::to_string(low) + (high == low + 1 ? " or " : " to ") + std::to_string(high);
}

std::string counted(uint64_t count, const std::string& noun) {
  return counted(exactly(count), noun);
}

std::string counted(const Between& count, const std::string& noun) {
  return count.text() + " " + noun + (count.high == 1 && count.settled() ? "" : "s");
}

Judgement FeedTracker::follow(const client::TpPacket& packet) {
  ++counts_.packets;
  counts_.messages += packet.messages.size();
  if (packet.is_heartbeat()) ++counts_.heartbeats;

  std::vector<std::string> findings;
  const bool is_known = streams_.contains(packet.header.session_id);
  Stream& stream = stream_of(packet.header.session_id, findings);
  if (!is_known) come_in(stream, packet);

  const uint64_t offset = packet.header.stream_offset;
  Judgement judgement = offset == stream.next_offset  ? in_its_place(stream, packet)
                        : offset > stream.next_offset ? too_early(stream, packet)
                                                      : too_late(stream, packet);
  findings.insert(findings.end(), judgement.findings.begin(), judgement.findings.end());
  judgement.findings = std::move(findings);
  return judgement;
}

FeedTracker::Stream& FeedTracker::stream_of(uint32_t session, std::vector<std::string>& findings) {
  const std::string name = "session " + std::to_string(session);
  const auto before = std::exchange(latest_session_, session);
  const auto known = streams_.find(session);
  if (known == streams_.end()) {
    ++counts_.sessions;
    findings.push_back(before ? "new " + name + " (before: " + std::to_string(*before) + ")"
                              : name);
    begun_.push_back(session);
    if (begun_.size() > MOST_SESSIONS) {
      streams_.erase(begun_.front());
      begun_.pop_front();
    }
    return streams_[session];
  }
  Stream& stream = known->second;
  if (before != session && !std::exchange(stream.shares_the_group, true)) {
    findings.push_back(name + " again: two exchanges on this group and port?");
  }
  return stream;
}

void FeedTracker::come_in(Stream& stream, const client::TpPacket& packet) {
  stream.first_offset = packet.header.stream_offset;
  stream.next_offset = stream.first_offset;
  stream.next_seq = first_seq_of(packet);
}

Judgement FeedTracker::in_its_place(Stream& stream, const client::TpPacket& packet) {
  Judgement judgement;
  const Between claimed = first_seq_of(packet);
  if (!meet(stream.next_seq, claimed)) {
    judgement.findings.push_back(
        "wrong number: the packet at stream offset " + std::to_string(packet.header.stream_offset) +
        " announces " + announced(packet) + " where " + stream.next_seq.text() + " is due");
    stream.next_seq = claimed;
  }
  const Between first = both(stream.next_seq, claimed);
  judgement.first_seq = settled(first);
  stream.next_seq = first + packet.messages.size();
  stream.next_offset = packet.end_offset();
  return judgement;
}

Judgement FeedTracker::too_early(Stream& stream, const client::TpPacket& packet) {
  const uint64_t offset = packet.header.stream_offset;
  const uint64_t bytes = offset - stream.next_offset;
  Between first = first_seq_of(packet);
  // The number is one too high only behind a packet that was full, and none was lost if so few
  // bytes were.
  if (bytes < FULL_PAYLOAD) first.low = first.high;
  const Between by_number{difference_or(1, first.low, stream.next_seq.high),
                          difference_or(1, first.high, stream.next_seq.low)};
  const Between messages = both(by_number, messages_in(bytes));

  ++counts_.gaps;
  Judgement judgement{
      .findings = {"gap: expected " + stream.next_seq.text() + ", packet " +
                   (first.settled() ? "starts at " : "announces ") + announced(packet) + ": " +
                   counted(messages, "message") + " missing"},
      .first_seq = settled(first)};
  stream.gaps.push_back({stream.next_offset, offset, stream.next_seq, messages});
  if (stream.gaps.size() > MOST_GAPS) {
    stream.forgotten = stream.forgotten + stream.gaps.front().messages;
    stream.gaps.pop_front();
  }
  stream.next_seq = first + packet.messages.size();
  stream.next_offset = packet.end_offset();
  return judgement;
}

Judgement FeedTracker::too_late(Stream& stream, const client::TpPacket& packet) {
  const uint64_t offset = packet.header.stream_offset;
  if (packet.is_heartbeat()) {
    ++counts_.out_of_order;
    return {.findings = {"out of order: a heartbeat that belongs before " + stream.next_seq.text()},
            .first_seq = packet.header.first_seq};
  }
  for (size_t i = 0; i < stream.gaps.size(); ++i) {
    const Gap& gap = stream.gaps[i];
    if (offset < gap.begin || packet.end_offset() > gap.end) continue;
    ++counts_.out_of_order;
    const Between first =
        offset == gap.begin ? both(gap.first, first_seq_of(packet)) : first_seq_of(packet);
    fill(stream, i, packet);
    return {.findings = {"out of order: the packet from " + announced(packet) + " comes late: " +
                         counted(packet.messages.size(), "message") + " no longer missing"},
            .first_seq = settled(first)};
  }
  if (offset < stream.first_offset) {
    ++counts_.out_of_order;
    return {.findings = {"out of order: the packet from " + announced(packet) +
                         " belongs before the first one heard"},
            .first_seq = std::nullopt};
  }
  ++counts_.duplicates;
  return {.findings = {"duplicate: the packet from " + announced(packet) + " has come before"},
          .first_seq = std::nullopt};
}

/// Takes a late packet out of its gap, of which up to two parts stay.
void FeedTracker::fill(Stream& stream, size_t index, const client::TpPacket& packet) {
  const Gap gap = stream.gaps[index];
  const auto place = stream.gaps.erase(stream.gaps.begin() + static_cast<std::ptrdiff_t>(index));
  const uint64_t offset = packet.header.stream_offset;
  const uint64_t end = packet.end_offset();
  const Between came = exactly(packet.messages.size());
  const Between first = first_seq_of(packet);
  const Between ahead = offset == gap.begin ? exactly(0) : first - gap.first;
  std::vector<Gap> parts;
  if (offset > gap.begin) {
    const bool is_all = end == gap.end;
    parts.push_back({gap.begin, offset, gap.first, is_all ? gap.messages - came : ahead});
  }
  if (end < gap.end) {
    const Between begin = offset == gap.begin ? both(gap.first, first) : first;
    parts.push_back({end, gap.end, begin + packet.messages.size(), gap.messages - came - ahead});
  }
  stream.gaps.insert(place, parts.begin(), parts.end());
}

Between FeedTracker::missing() const {
  Between sum;
  for (const auto& [session, stream] : streams_) {
    sum = sum + stream.forgotten;
    for (const Gap& gap : stream.gaps) sum = sum + gap.messages;
  }
  return sum;
}

}  // namespace tools
