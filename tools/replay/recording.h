#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "quorl/client/bytes.h"
#include "quorl/client/iex_tp.h"
#include "tools/capture/datagram_finder.h"
#include "tools/capture/endpoint.h"

namespace tools {

struct RecordedPacket {
  uint64_t time_ns = 0;  // of the capture, since the Unix epoch
  quorl::client::TpHeader header;
  quorl::client::Bytes bytes;  // the header's too

  bool is_heartbeat() const { return header.message_count == 0; }
  uint64_t end_offset() const { return header.stream_offset + header.payload_length; }
};

/// One run of one exchange, as one group and port showed it.
struct RecordedFeed {
  Endpoint group;
  uint32_t session = 0;
  std::vector<RecordedPacket> packets;  // in the order of the capture, heartbeats included
  uint64_t cut = 0;                     // packets left out: their ends are not in the capture
  uint64_t damaged = 0;  // packets left out: what is behind the header breaks the format

  uint64_t messages() const;
  uint64_t span_ns() const;  // from the first packet to the last
};

/// All feeds of a capture file.
struct Recording {
  std::vector<RecordedFeed> feeds;  // in the order of their first packets
  uint64_t frames = 0;
  uint64_t datagrams = 0;
  std::string damage;  // why the file could not be read to its end; empty: it was
};

/// Reads the whole file into memory. Throws UnusableCapture if it is no capture, or one of a link
/// type that is not known here.
Recording read_recording(const std::string& path);

/// Sorts datagrams into feeds. Two runs that share group, port and session are two feeds: the
/// second begins at stream offset 0 at a later time.
class FeedSorter {
 public:
  void take(uint64_t time_ns, const CapturedDatagram& datagram);
  std::vector<RecordedFeed> feeds() && { return std::move(feeds_); }

 private:
  RecordedFeed& feed_of(const Endpoint& group, const quorl::client::TpHeader& header);

  struct Latest {
    size_t feed = 0;            // index
    uint64_t send_time_ns = 0;  // the newest of its packets
  };

  std::vector<RecordedFeed> feeds_;
  std::map<std::pair<Endpoint, uint32_t>, Latest> latest_;
};

/// Which of several feeds is meant.
struct FeedWish {
  std::optional<Endpoint> group;
  std::optional<uint32_t> session;
};

/// The feed of most packets among those that are wished for, the first of several; nothing if there
/// is none with a whole packet.
const RecordedFeed* choose_feed(const Recording& recording, const FeedWish& wish);

/// "239.1.1.1:10000, session 7, 120 packets".
std::string describe(const RecordedFeed& feed);

}  // namespace tools
