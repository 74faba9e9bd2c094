#include "tools/replay/recording.h"

#include <algorithm>

#include "quorl/client/errors.h"
#include "tools/capture/capture_reader.h"
#include "tools/capture/counted.h"
#include "tools/capture/link_layer.h"

namespace client = quorl::client;

namespace tools {
namespace {

std::optional<client::TpHeader> header_of(client::ByteView payload) {
  if (payload.size() < client::TP_HEADER_SIZE) return std::nullopt;
  try {
    return client::decode_tp_header(payload.first(client::TP_HEADER_SIZE), std::nullopt);
  } catch (const client::WireError&) {
    return std::nullopt;
  }
}

bool is_well_formed(client::ByteView payload) {
  try {
    (void)client::decode_tp_packet(payload);
    return true;
  } catch (const client::WireError&) {
    return false;
  }
}

}  // namespace

uint64_t RecordedFeed::messages() const {
  uint64_t count = 0;
  for (const RecordedPacket& packet : packets) count += packet.header.message_count;
  return count;
}

uint64_t RecordedFeed::span_ns() const {
  if (packets.empty() || packets.back().time_ns < packets.front().time_ns) return 0;
  return packets.back().time_ns - packets.front().time_ns;
}

void FeedSorter::take(uint64_t time_ns, const CapturedDatagram& datagram) {
  const auto header = header_of(datagram.payload);
  if (!header) return;
  RecordedFeed& feed = feed_of(datagram.to, *header);
  if (!datagram.whole) {
    ++feed.cut;
  } else if (!is_well_formed(datagram.payload)) {
    ++feed.damaged;
  } else {
    feed.packets.push_back({time_ns, *header, datagram.payload});
  }
}

RecordedFeed& FeedSorter::feed_of(const Endpoint& group, const client::TpHeader& header) {
  const auto [found, is_new] = latest_.try_emplace({group, header.session_id});
  Latest& latest = found->second;
  // A first packet that is only late, or comes twice, was sent before what is here already.
  const bool begins_anew = header.stream_offset == 0 && header.message_count > 0 &&
                           header.send_time_ns > latest.send_time_ns;
  if (is_new || begins_anew) {
    latest = {.feed = feeds_.size(), .send_time_ns = header.send_time_ns};
    feeds_.push_back({.group = group, .session = header.session_id, .packets = {}});
  }
  latest.send_time_ns = std::max(latest.send_time_ns, header.send_time_ns);
  return feeds_[latest.feed];
}

Recording read_recording(const std::string& path) {
  CaptureReader file(path);
  if (!is_readable_link(file.link_type())) {
    throw UnusableCapture(path + " was captured on a link of type " + file.link_name() +
                          "; known are " + readable_links());
  }
  Recording recording;
  DatagramFinder finder(file.link_type());
  FeedSorter sorter;
  uint64_t time_ns = 0;
  const auto sort = [&](const CapturedDatagram& datagram) {
    ++recording.datagrams;
    sorter.take(time_ns, datagram);
  };
  while (const auto frame = file.next()) {
    ++recording.frames;
    time_ns = frame->time_ns;
    if (const auto datagram = finder.take(frame->bytes)) sort(*datagram);
  }
  while (const auto datagram = finder.take_unfinished()) sort(*datagram);
  recording.damage = file.damage();
  recording.feeds = std::move(sorter).feeds();
  return recording;
}

const RecordedFeed* choose_feed(const Recording& recording, const FeedWish& wish) {
  const RecordedFeed* chosen = nullptr;
  for (const RecordedFeed& feed : recording.feeds) {
    if (wish.group && feed.group != *wish.group) continue;
    if (wish.session && feed.session != *wish.session) continue;
    const size_t most = chosen == nullptr ? 0 : chosen->packets.size();
    if (feed.packets.size() > most) chosen = &feed;
  }
  return chosen;
}

std::string describe(const RecordedFeed& feed) {
  return text_of(feed.group) + ", session " + std::to_string(feed.session) + ", " +
         counted(feed.packets.size(), "packet");
}

}  // namespace tools
