#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "market/records.h"

namespace quorl {
class FixGateway;
class TpPublisher;
struct Client;
struct FeedCounts;
struct Engine;
struct Stock;
}  // namespace quorl

// What tests ask of the inside of an exchange, and what they plant there. How books, orders,
// session memories and the feed's packets are kept is known to inside.cpp alone, so that a change
// of it is a change of that one file and the tests stand as they are. Nothing here fails a test by
// itself; what is asked for and is not there throws std::out_of_range.

namespace quorl::test {

inline constexpr bool BUYS = true;
inline constexpr bool SELLS = false;

// --- The book of one stock ---

struct RestingLevel {
  Price4 price = 0;
  std::vector<const Order*> queue;  // next to trade first; of the table of orders
};

/// Every level of a side on which an order rests, best price first.
std::vector<RestingLevel> resting_levels(const Engine& engine, const Stock& stock, bool buy);
/// Their prices, best first.
std::vector<Price4> level_prices(const Engine& engine, const Stock& stock, bool buy);
/// The ids that rest at a price, next to trade first; none without a level.
std::vector<uint64_t> queue_at(const Engine& engine, const Stock& stock, bool buy, Price4 price);
/// Open shares at a price, cut to 32 bits as the feed has it; 0 without a level.
uint32_t shares_at(const Engine& engine, const Stock& stock, bool buy, Price4 price);

/// (price, shares), as the feed has last said it, best price first.
using ShownLevels = std::vector<std::pair<Price4, uint32_t>>;

ShownLevels shown_levels(const Engine& engine, const Stock& stock, bool buy);
/// An event of its own: a synthetic order for each level comes to rest on a side, and the feed says
/// so.
void rest_and_show(Engine& engine, Stock& stock, bool buy, const ShownLevels& levels);

/// Part of an event that the caller has begun: a synthetic order under the next id comes to rest,
/// last at its price. Returns the id.
uint64_t rest_synthetic(Engine& engine, Stock& stock, bool buy, Price4 price, uint32_t shares);
/// Part of an event that the caller has begun: the whole order leaves the book without a trade.
void withdraw_order(Engine& engine, uint64_t id);
/// Part of an event that the caller has begun: the market's own flow takes shares of a resting
/// order. Returns the shares taken.
uint32_t trade_with_order(Engine& engine, Stock& stock, uint64_t id, uint32_t shares);

// --- The orders of all stocks ---

size_t order_count(const Engine& engine);
bool has_order(const Engine& engine, uint64_t id);
const Order& order_by_id(const Engine& engine, uint64_t id);
/// In no order.
std::vector<uint64_t> order_ids(const Engine& engine);
/// The synthetic orders of a stock, in the order in which the draw of a pull counts them.
std::vector<uint64_t> orders_to_pull(const Engine& engine, const Stock& stock);

/// "ALPHA a1" for each client order that can be named, in alphabetical order.
std::vector<std::string> live_names(const Engine& engine);

// --- What is remembered, scheduled and owed ---

/// How many closed client orders are remembered.
size_t closing_count(const Engine& engine);
/// How long ago, by the steady clock, this one was closed; nothing if that is not remembered.
std::optional<int64_t> ms_since_closing(const Engine& engine, std::string_view owner,
                                        std::string_view cl_ord_id);

/// An exchange-initiated cancel still to fire.
struct Scheduled {
  std::string owner;
  std::string cl_ord_id;
  int64_t due_ms = 0;  // steady clock
};

/// In order of scheduling.
std::vector<Scheduled> scheduled_cancels(const Engine& engine);
void schedule_cancel(Engine& engine, const Scheduled& cancel);
/// Carries out those that are due.
void fire_scheduled_cancels(Engine& engine);

/// The owner of each report that is owed, in the order in which they will be composed.
std::vector<std::string> owed_to(const Engine& engine);

// --- Session memories ---

/// An application message kept for replay.
struct Stored {
  uint32_t seq = 0;
  std::string msg_type;
  std::string body;          // the fields between header and trailer, as on the wire
  std::string sending_time;  // of its first sending: tag 122 of a replay
};

/// The session memory of one SenderCompID. Asking it creates none: one that does not exist answers
/// as a fresh one.
class SessionMemory {
 public:
  /// Borrows the engine.
  SessionMemory(Engine& engine, std::string comp_id);

  bool exists() const;
  uint32_t next_in() const;
  uint32_t next_out() const;
  void set_next_in(uint32_t seq);
  void set_next_out(uint32_t seq);
  size_t stored_count() const;
  /// Oldest first.
  std::vector<Stored> stored() const;
  /// Indices of the clients that are logged on with it, ascending.
  std::vector<size_t> connections() const;

 private:
  Engine* engine_;
  std::string comp_id_;
};

size_t session_memory_count(const Engine& engine);

/// For an exchange without a gateway: a further connection, with no socket behind it, is logged on.
/// Returns its index.
size_t log_on_by_hand(Engine& engine, std::vector<Client>& clients, const std::string& comp_id);
/// Such a connection is gone; its record stays.
void disconnect_by_hand(std::vector<Client>& clients, size_t index);

/// What the loop does with the connections that a turn has closed.
void forget_closed_clients(FixGateway& gateway);

// --- The feed ---

/// The publisher's counts and the packet under assembly, at one moment.
struct PublisherState {
  uint32_t session_id = 0;
  uint64_t next_seq = 0;
  uint64_t stream_offset = 0;  // payload bytes of all flushed packets
  uint64_t messages = 0;       // given to append
  uint64_t packets = 0;        // flushed, dropped ones too
  uint64_t dropped = 0;
  uint64_t duplicated = 0;
  uint64_t reordered = 0;
  uint64_t last_flush_ms = 0;  // steady clock
  uint64_t waiting = 0;        // messages in the packet under assembly
  uint64_t packet_size = 0;    // bytes of that packet, header included
  uint64_t retained = 0;       // messages kept for gap fill
};

PublisherState state_of(const TpPublisher& publisher);

struct Retained {
  uint64_t seq = 0;
  uint64_t stream_offset = 0;  // of its block
  std::vector<uint8_t> bytes;  // without its length
};

/// Oldest first.
Retained retained_message(const TpPublisher& publisher, size_t index);

/// Appends empty messages until the last number given out is this one, and flushes them.
void number_up_to(TpPublisher& publisher, uint64_t last_seq);
/// Flushes packets without a message, under faults, until the feed has these counts; `messages` is
/// not looked at. What the faults say goes to standard error.
void flush_up_to(TpPublisher& publisher, const FeedCounts& counts);

}  // namespace quorl::test
