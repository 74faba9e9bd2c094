#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "market/engine.h"
#include "quorl/client/book.h"
#include "quorl/client/deep.h"

namespace lives {

/// An independent reader of the feed. It takes every message from the history, as gap fill would
/// serve it, and every packet from the wire, and holds the one to the other and both to the books.
class FeedWitness {
 public:
  /// The engine must outlive it.
  FeedWitness(quorl::Engine& engine, uint32_t session);

  enum class From : uint8_t {
    MULTICAST,
    GAP_FILL,
    IMAGES,  // a whole reply
  };
  /// Takes it down as it is sent: in the middle of an event the history may be a message behind.
  void on_sent(From from, std::string_view bytes);

  /// Between two turns.
  void look();

  /// Trades so far, by number.
  const std::map<uint64_t, quorl::client::TradeReport>& trades() const { return trades_; }

 private:
  struct Sent {
    From from;
    std::string bytes;
    uint64_t next_seq;  // when it was sent
  };

  void follow(uint64_t up_to);
  void look_at_packet(std::string_view datagram);
  void look_at_gap_reply(std::string_view datagram);
  void look_at_image(std::string_view reply);
  uint64_t seq_at(uint64_t offset, const std::string& of) const;
  void compare_books(const quorl::client::BookBuilder& shown, const std::string& whose) const;

  quorl::Engine& engine_;
  const uint32_t session_;
  std::vector<Sent> sent_;
  uint64_t next_seq_ = 1;
  uint64_t next_offset_ = 0;
  std::vector<uint64_t> offsets_;  // of each message, the first at index 0
  std::unordered_map<uint64_t, uint64_t> seq_of_offset_;
  quorl::client::BookBuilder book_;
  std::map<uint64_t, quorl::client::TradeReport> trades_;
  std::map<std::string, uint64_t> volumes_;
  std::map<std::string, quorl::client::Price4> last_prices_;
  std::set<uint64_t> packets_sent_;  // by stream offset
  uint64_t sends_ = 0;               // heartbeats aside
};

}  // namespace lives
