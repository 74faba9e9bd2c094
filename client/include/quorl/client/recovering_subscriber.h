#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "quorl/client/book.h"
#include "quorl/client/deadline.h"
#include "quorl/client/gap_fill_client.h"
#include "quorl/client/iex_tp.h"
#include "quorl/client/multicast_receiver.h"
#include "quorl/client/port_slot.h"
#include "quorl/client/snap_client.h"

namespace quorl::client {

/// A subscriber that ends up with every message once, in order, whatever the network does. Its
/// place in the feed is a pair of stream offset and true sequence number, the frontier; a packet
/// joins at the frontier by its offset, so an announced number that is one too high cannot mislead
/// it. A hole shows as a packet or heartbeat whose offset lies beyond the frontier. After a short
/// wait for packets out of order it is filled by gap fill, at most 1000 messages a request; if the
/// history no longer reaches, or there is no place yet, a DEEP SNAP image gives a new one.
class RecoveringSubscriber {
 public:
  /// `session` may be left open: the first packet tells it.
  explicit RecoveringSubscriber(const Ports& ports, std::optional<uint32_t> session = std::nullopt);

  /// The run begins now: the frontier is offset 0, number 1. Call it before the simulator starts.
  void follow_from_start();
  /// The run is on already: listen, then take an image.
  void join_late(std::chrono::milliseconds patience = PATIENCE);

  /// Takes over what has arrived and repairs what is due for repair.
  void poll();
  /// Polls until `done()`. Returns whether it is done.
  bool run_until(const std::function<bool()>& done, std::chrono::milliseconds patience = PATIENCE);
  /// Polls until everything up to `seq` has been applied. Throws Timeout.
  void await_seq(uint64_t seq, std::chrono::milliseconds patience = PATIENCE);
  /// Asks the gap-fill service for the exchange's position and catches up with it. Throws Timeout.
  void catch_up(std::chrono::milliseconds patience = PATIENCE);

  /// Takes an image, follows the feed exactly to its position and compares the books. Returns the
  /// differences; empty means that both agree.
  std::string compare_with_image(std::chrono::milliseconds patience = PATIENCE);

  // Where it stands.
  uint64_t next_seq() const { return next_seq_; }
  uint64_t next_offset() const { return next_offset_; }
  const BookBuilder& book() const { return book_; }

  /// Every message applied, by true sequence number.
  const std::map<uint64_t, TpMessage>& messages() const { return messages_; }
  /// The numbers that images have jumped over.
  const std::vector<SeqRange>& skipped() const { return skipped_; }

  struct Counters {
    uint64_t packets = 0;         // received, heartbeats included
    uint64_t duplicates = 0;      // packets of which nothing was new
    uint64_t out_of_order = 0;    // packets put back in their place
    uint64_t holes = 0;           // noticed
    uint64_t fills = 0;           // gap-fill requests sent
    uint64_t filled = 0;          // messages that gap fill brought first
    uint64_t images = 0;          // DEEP SNAP images taken to get a place
    uint64_t announced_high = 0;  // packets whose announced number was one too high
  };
  const Counters& counters() const { return counters_; }

 private:
  struct Pending {
    TpPacket packet;
    std::chrono::steady_clock::time_point arrived;
  };

  void receive(const RawPacket& raw);
  void note_end(uint64_t end_offset, uint64_t next_seq);
  bool hole_is_due() const;
  void apply_pending();
  void apply_packet(const TpPacket& packet);
  void apply_message(const TpMessage& message);
  void check_seen(const TpPacket& packet) const;
  void check_announced(const TpPacket& packet);
  bool behind() const;
  bool halted() const { return halt_offset_ && next_offset_ >= *halt_offset_; }
  void repair_what_is_due();
  void fill_hole();
  bool fill_once();
  void take_image();
  uint32_t session() const;
  GapFillClient& gap_fill();

  Ports ports_;
  std::optional<uint32_t> session_;
  MulticastReceiver receiver_;
  std::optional<GapFillClient> gap_fill_;

  bool placed_ = false;  // there is a frontier
  uint64_t next_offset_ = 0;
  uint64_t next_seq_ = 1;
  uint64_t placed_from_ = 0;  // the offset from which everything has been applied
  uint64_t known_end_ = 0;    // highest stream offset known to exist
  std::chrono::steady_clock::time_point known_since_{};
  uint64_t known_next_seq_ = 1;          // the number there, or one more
  uint64_t newest_offset_ = 0;           // of the packets received
  std::optional<uint64_t> halt_offset_;  // nothing is applied from here on
  std::map<uint64_t, Pending> pending_;  // not wholly applied, by stream offset
  std::optional<uint64_t> hole_at_;      // the frontier when the hole was noticed
  unsigned failed_fills_ = 0;            // in a row

  BookBuilder book_;
  std::map<uint64_t, TpMessage> messages_;
  std::unordered_map<uint64_t, uint64_t> seq_of_offset_;
  std::vector<SeqRange> skipped_;
  Counters counters_;
};

}  // namespace quorl::client
