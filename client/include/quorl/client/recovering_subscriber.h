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

/// How a subscriber follows a feed; as it stands, like a test to which every oddity is a finding.
struct RecoveryOptions {
  /// For a run without end. Memory stays bounded: messages() and skipped() are empty, and what
  /// comes again is not compared with what came first. Borne instead of thrown: packets of another
  /// session, packets that the kernel dropped, and a gap-fill service that does not answer, for
  /// which an image stands in.
  bool endless = false;
  std::chrono::milliseconds fill_patience{5000};  // for one gap-fill request
  std::chrono::milliseconds image_patience = PATIENCE;
  // Called from within poll() and what calls it; they must not call back.
  std::function<void(uint64_t seq, const DeepMessage&)> on_message = {};  // behind its application
  std::function<void(const SnapImage&)> on_image = {};                    // the book begins with it
};

/// A subscriber that ends up with every message once, in order, whatever the network does. Its
/// place in the feed is a pair of stream offset and true sequence number, the frontier; a packet
/// joins at the frontier by its offset, so an announced number that is one too high cannot mislead
/// it. A hole shows as a packet or heartbeat whose offset lies beyond the frontier. After a short
/// wait for packets out of order it is filled by gap fill, at most 1000 messages a request; if the
/// history no longer reaches, or there is no place yet, a DEEP SNAP image gives a new one.
class RecoveringSubscriber {
 public:
  /// `session` may be left open: the first packet tells it.
  explicit RecoveringSubscriber(const Ports& ports, std::optional<uint32_t> session = std::nullopt,
                                RecoveryOptions options = {});

  /// The run begins now: the frontier is offset 0, number 1. Call it before the simulator starts.
  void follow_from_start();
  /// Waits for a first packet, which tells the session if that was left open. Returns whether one
  /// has come.
  bool await_feed(std::chrono::milliseconds patience);
  /// Gets a place, once the session is known: at the beginning if the run's first packet is the
  /// first that came, else by an image. Throws what SnapClient::image throws.
  void join();
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
  std::optional<uint32_t> session() const { return session_; }
  /// All that is known to have been sent has been applied, and no event is open.
  bool in_step() const { return placed_ && !behind() && book_.consistent(); }

  // What an endless subscriber notices and leaves to its owner.
  /// The latest other session of which a packet came: a new run of the exchange, or a second one on
  /// the same group.
  std::optional<uint32_t> other_session() const { return other_session_; }
  void forget_other_session() { other_session_.reset(); }
  /// A packet sent later than all before it stands at an earlier place: the exchange has begun
  /// anew under the same session.
  bool rewound() const { return rewound_; }
  /// When the latest packet of the session came.
  std::optional<std::chrono::steady_clock::time_point> last_heard() const { return last_heard_; }

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
    uint64_t jumped = 0;          // messages that images have jumped over
    uint64_t announced_high = 0;  // packets whose announced number was one too high
    uint64_t foreign = 0;         // packets of other sessions, borne
    uint64_t kernel_drops = 0;    // packets lost for want of buffer, borne
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
  bool is_foreign(const TpPacket& packet);
  void note_order(const TpPacket& packet);
  uint32_t known_session() const;
  GapFillClient& gap_fill();

  Ports ports_;
  RecoveryOptions options_;
  std::optional<uint32_t> session_;
  MulticastReceiver receiver_;
  std::optional<GapFillClient> gap_fill_;

  bool placed_ = false;  // there is a frontier
  uint64_t next_offset_ = 0;
  uint64_t next_seq_ = 1;
  uint64_t placed_from_ = 0;  // the offset from which everything has been applied
  uint64_t known_end_ = 0;    // highest stream offset known to exist
  std::chrono::steady_clock::time_point known_since_{};
  uint64_t known_next_seq_ = 1;  // the number there, or one more
  uint64_t newest_offset_ = 0;   // of the packets received
  uint64_t newest_end_ = 0;      // where those end, heartbeats included
  uint64_t newest_send_time_ns_ = 0;
  bool rewound_ = false;
  std::optional<uint32_t> other_session_;
  std::optional<std::chrono::steady_clock::time_point> last_heard_;
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
