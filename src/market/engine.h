#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/output_file.h"
#include "fix/stream_records.h"
#include "market/random.h"
#include "market/records.h"

namespace quorl {

class FixFieldMap;
class TpPublisher;
struct Scenario;

/// How an order that is not live left the book, as far as that is remembered.
enum class Closing {
  JUST_NOW,  // less than 2000 ms ago
  LONG_AGO,
  UNKNOWN,
};

/// The market: stocks, books, orders, and the session memories of their owners. One per process,
/// used from the one thread.
///
/// An event is always: begin_event, change one Stock, publish_dirty. Its operations stand in one
/// .cpp for each subject: engine, walk, execution, new_order, cancel, replace, exchange_cancel,
/// and feed/book_publication.
struct Engine {
  /// Borrows all three for its life.
  Engine(TpPublisher& publisher, std::mt19937_64& rng, Scenario& scenario, double step_bps,
         double touch_hit, bool quiet);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // --- Start of day ---

  /// Lists a symbol at a price in dollars; its locate is cut to 16 bits. Only before the loop runs.
  void add_stock(const std::string& symbol, double price);
  /// Publishes the opening sequence and seeds the books.
  void open_market();

  // --- Time and chance ---

  /// One step of every stock: move, pull, post, refill, touch. Nothing at all while paused.
  void walk_tick();
  /// Adds one synthetic order near `ref`: a buy for a `direction` above 0, a sell below 0, either
  /// by a coin for 0. An event of its own.
  void post_liquidity(Stock& stock, Price4 ref, int direction);
  /// Carries out the exchange-initiated cancels that are due. Their reports are deferred, and
  /// drain_deferred finds the owner among the same clients later in the turn.
  void fire_unsolicited(std::vector<Client>& clients);
  /// Composes every report owed, each against its owner's last logged-on connection, or against
  /// none: it is numbered, stored and logged all the same. Returns what is to be sent, in order:
  /// (index of the client, message).
  std::vector<std::pair<size_t, std::string>> drain_deferred(std::vector<Client>& clients);

  // --- A client's requests ---
  // Each returns the composed messages for `client` in the order of sending. A bad request is
  // answered by a report and changes nothing.

  std::vector<std::string> on_new_order(const std::string& owner, Client& client,
                                        const FixFieldMap& fields);
  std::vector<std::string> on_cancel(const std::string& owner, Client& client,
                                     const FixFieldMap& fields);
  std::vector<std::string> on_cancel_replace(const std::string& owner, Client& client,
                                             const FixFieldMap& fields);

  // --- Execution ---

  /// Takes `qty` shares off a resting order: by a trade at `price` (0 takes the order's own), or
  /// by a withdrawal, which publishes no trade and owes no report. Returns the shares taken, fewer
  /// than `qty` if a scripted partial fill cut the trade. The caller has begun the event and
  /// publishes it. `order` is the record in `orders` and may be gone afterwards: do not touch it.
  /// `liquidity` goes into the report ('1': the resting side added it); `scriptable` lets the
  /// partial-fill script be asked.
  uint32_t reduce(Stock& stock, Order& order, uint32_t qty, bool withdrawal, Price4 price,
                  char liquidity, bool scriptable);
  /// Takes the whole order off the book without a trade.
  void withdraw(Stock& stock, Order& order);
  /// Trades an aggressor that is not in the book against the opposite side, best price first and
  /// first come, first served, at the resting orders' prices; updates it in place. `client` and
  /// `out` receive its fill reports; both are null for a synthetic aggressor.
  void match_order(Stock& stock, Order& aggressor, Client* client, std::vector<std::string>* out);

  // --- The small operations they share ---

  /// Empties `dirty` and takes the event's time.
  void begin_event();
  /// Publishes what the event changed as one batch of level updates.
  void publish_dirty(Stock& stock);
  /// Copies the order into the book, last at its price. Does not touch `live`.
  void rest_order(Stock& stock, const Order& order);
  /// Takes the order out of its queue, and marks the price as touched even if it was not there.
  /// Does not touch `orders`.
  void remove_from_level(Stock& stock, const Order& order);
  /// Remembers the closing. At more than 50000 entries all are forgotten, the newest too.
  void note_closed(const std::string& owner, const std::string& cl_ord_id);
  Closing closing_of(std::string_view owner, std::string_view cl_ord_id) const;
  void erase_live(std::string_view owner, std::string_view cl_ord_id);
  /// The resting order that a client names, or null.
  Order* live_order(std::string_view owner, std::string_view cl_ord_id);
  /// Null for a symbol that is not listed; the first of those that share it.
  Stock* stock_by_symbol(std::string_view symbol);
  /// Null for a locate that was cut to 0, with more than 65535 symbols: such an order answers as
  /// unknown to its client and cannot be changed. A locate that wrapped further names another
  /// stock.
  Stock* stock_of(const Order& order);
  /// Open shares at one price; 0 without a level.
  uint32_t level_size(const Stock& stock, bool buy, Price4 price) const;
  /// By a walk over all orders; an empty owner counts the synthetic ones.
  size_t resting_orders_of(const std::string& owner) const;

  bool paused = false;
  TpPublisher* publisher;
  std::mt19937_64* rng;  // every draw of the market, in one stream
  double step_bps;
  double touch_hit;
  bool quiet;
  Scenario* scenario;
  OutputFile truth;                            // market truth; open only with --truth-out
  std::vector<Stock> stocks;                   // in the order of --symbols; fixed once open
  std::unordered_map<uint64_t, Order> orders;  // every resting order, in exactly one Level.
                                               // Never reserved: its iteration order is part of
                                               // what a seed reproduces
  std::unordered_map<ClientOrderKey, uint64_t, ClientOrderKeyHash, ClientOrderKeyEqual>
      live;  // resting client orders, to their ids
  std::unordered_map<ClientOrderKey, int64_t, ClientOrderKeyHash, ClientOrderKeyEqual>
      closed;                                      // closed client orders, to the steady ms of it
  std::vector<ScheduledCancel> scheduled_cancels;  // in order of scheduling
  std::vector<DeferredReport> deferred;            // in order of the events
  std::unordered_map<std::string, FixStream> streams;  // per SenderCompID; never removed
  std::set<std::pair<bool, Price4>> dirty;  // (buy, price) touched by the event; sells first
  uint64_t event_time = 0;                  // system clock, ns; stamps the event's DEEP messages
  char system_status = 'O';                 // 'R' once the market is open
  uint64_t next_order_id = 1000;            // used, then incremented
  uint64_t snapshots_served = 0;
  uint64_t next_trade_id = 0;  // incremented, then used
  uint32_t next_exec_id = 0;   // incremented, then used

 private:
  void step_price(Stock& stock, NormalDeviates& normal);
  void pull_background_orders(Stock& stock, Price4 ref);
  std::vector<uint64_t> background_orders_of(const Stock& stock) const;
  void hit_touch(Stock& stock);
  uint32_t scripted_quantity(const Order& order, uint32_t qty, bool scriptable);
  void publish_trade(Stock& stock, uint32_t qty, Price4 price);
  void credit_resting_fill(const Stock& stock, Order& order, uint32_t filled, Price4 price,
                           char liquidity);
  void take_off_book(Stock& stock, Order& order, uint32_t qty);
  std::vector<std::string> accept_order(Order& order, Stock& stock, const std::string& owner,
                                        Client& client);
  uint64_t available_to(const Order& order, const Stock& stock) const;
  std::string cancel_remainder(const Order& order, const Stock& stock, const Client& client);
  void schedule_cancel_if_scripted(const Order& order);
  std::vector<std::string> lose_race(Stock& stock, Order& order, Client& client,
                                     const std::string& cl_ord_id,
                                     const std::string& orig_cl_ord_id);
  std::vector<std::string> refuse_cancel(const Client& client, const std::string& owner,
                                         const std::string& cl_ord_id,
                                         const std::string& orig_cl_ord_id);
  std::vector<std::string> carry_out_replace(Stock& stock, Order& order, const Order& wanted,
                                             Client& client);
  void cancel_unasked(const ScheduledCancel& due);

  std::vector<LevelChange> changes_;  // of the event in publication; kept for its memory
  std::unordered_map<std::string, size_t, StringHash, std::equal_to<>> index_by_symbol_;
};

}  // namespace quorl
