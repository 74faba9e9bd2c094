#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/output_file.h"
#include "base/string_hash.h"
#include "fix/outbox.h"
#include "fix/stream_records.h"
#include "market/client_orders.h"
#include "market/order_table.h"
#include "market/random.h"
#include "market/records.h"
#include "market/scheduled_cancels.h"
#include "market/stock.h"

namespace quorl {

class FixFieldMap;
class TpPublisher;
struct ReportTarget;
struct Scenario;

/// A report owed to a client outside the handling of a message of its own: a fill of its resting
/// order, or a cancel of it that it did not ask for. Orders and clients may be gone when it is
/// composed, and numbered, stored and logged with that.
struct DeferredReport {
  Order order;  // as the fill left it, or as it stood before the cancel
  const Stock* stock;
  uint32_t filled;   // shares; 0 for a cancel
  int64_t trade_id;  // of a fill
};

/// A message for a client, and the client's index.
struct OwedMessage {
  size_t client;
  std::string_view message;
};

/// The market: stocks, books, orders, and the session memories of their owners. One per process,
/// used from the one thread.
///
/// An event is always: begin_event, change one Stock, publish_dirty. Each operation that is not
/// defined in engine.cpp says where it is.
struct Engine {
  /// Borrows all three for its life.
  Engine(TpPublisher& publisher, std::mt19937_64& rng, Scenario& scenario, double step_bps,
         double touch_hit);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // --- Start of day ---

  /// Lists a symbol at a price in dollars; its locate is cut to 16 bits. Only before the loop runs.
  void add_stock(const std::string& symbol, double price);
  /// Publishes the opening sequence and seeds the books. In feed/book_publication.cpp.
  void open_market();

  // --- Time and chance: walk.cpp ---

  /// One step of every stock: move, pull, post, refill, touch. Nothing at all while paused.
  void walk_tick();
  /// Adds one synthetic order near `ref`: a buy for a `direction` above 0, a sell below 0, either
  /// by a coin for 0. An event of its own.
  void post_liquidity(Stock& stock, Price4 ref, int direction);
  /// Carries out the exchange-initiated cancels that are due. Their reports are deferred. In
  /// unsolicited_cancel.cpp.
  void fire_unsolicited();
  /// Composes every report owed: each is numbered, stored and logged. Returns, in order, those
  /// whose owner is logged on, for the last accepted of its connections. Good until the next call.
  /// In report_flow.cpp.
  const std::vector<OwedMessage>& drain_deferred();

  // --- A client's requests: new_order.cpp, cancel.cpp, replace.cpp ---
  // Each returns the composed messages for `client` in the order of sending, good until the next
  // call of any of them. A bad request is answered by a report and changes nothing.

  const Outbox& on_new_order(const std::string& owner, Client& client, const FixFieldMap& fields);
  const Outbox& on_cancel(const std::string& owner, Client& client, const FixFieldMap& fields);
  const Outbox& on_cancel_replace(const std::string& owner, Client& client,
                                  const FixFieldMap& fields);

  // --- Execution: execution.cpp ---

  /// Trades `qty` shares of a resting order at its own price. Returns the shares traded, fewer if
  /// the partial-fill script cut the trade, which is asked only if the fill is `scriptable`. The
  /// caller has begun the event and publishes it. The order may be gone afterwards: do not touch
  /// it.
  uint32_t fill(Stock& stock, RestingOrder& order, uint32_t qty, bool scriptable);
  /// Takes the whole order off the book without a trade. It is gone afterwards.
  void withdraw(RestingOrder& order);
  /// Trades an aggressor that is not in the book against the opposite side, best price first and
  /// first come, first served, at the resting orders' prices; updates it in place. Its fill reports
  /// go to `reports`, null for a synthetic aggressor.
  void match_order(Stock& stock, Order& aggressor, const ReportTarget* reports);

  // --- The small operations they share ---

  /// Takes the event's time.
  void begin_event();
  /// Publishes what the event changed as one batch of level updates. In feed/book_publication.cpp.
  void publish_dirty(Stock& stock);
  /// Copies the order into the table and last into the queue at its price. Its name is not live by
  /// that. REQUIRES: its id does not rest.
  RestingOrder& rest_order(Stock& stock, const Order& order);
  /// Remembers the closing. At more than 50000 entries all are forgotten, the newest too.
  void note_closed(std::string_view owner, std::string_view cl_ord_id);
  Closing closing_of(std::string_view owner, std::string_view cl_ord_id) const;
  /// The resting order that a client names, or null.
  RestingOrder* live_order(std::string_view owner, std::string_view cl_ord_id) const;
  /// The session memory of a SenderCompID, made at the first call.
  FixStream& stream_named(std::string_view comp_id);
  /// Null for a symbol that is not listed; the first of those that share it.
  Stock* stock_by_symbol(std::string_view symbol);
  /// Null for a locate that was cut to 0, with more than 65535 symbols: such an order answers as
  /// unknown to its client and cannot be changed. A locate that wrapped further names another
  /// stock.
  Stock* stock_of(const Order& order);
  /// An empty owner counts the synthetic ones.
  size_t resting_orders_of(std::string_view owner) const;

  bool paused = false;
  TpPublisher* publisher;
  std::mt19937_64* rng;  // every draw of the market, in one stream
  double step_bps;
  double touch_hit;
  Scenario* scenario;
  OutputFile truth;          // market truth; open only with --truth-out
  std::deque<Stock> stocks;  // in the order of --symbols; fixed once open
  OrderTable orders;         // every resting order
  LiveOrders live;           // those of clients, by name
  ClosedOrders closed;
  ScheduledCancels scheduled_cancels;
  std::vector<DeferredReport> deferred;  // in order of the events
  std::unordered_map<std::string, FixStream, StringHash, std::equal_to<>>
      streams;                    // per SenderCompID; never removed
  uint64_t event_time = 0;        // system clock, ns; stamps the event's DEEP messages
  char system_status = 'O';       // 'R' once the market is open
  uint64_t next_order_id = 1000;  // used, then incremented
  uint64_t snapshots_served = 0;
  uint64_t next_trade_id = 0;  // incremented, then used
  uint32_t next_exec_id = 0;   // incremented, then used

 private:
  void step_price(Stock& stock, NormalDeviates& normal);
  void pull_background_orders(Stock& stock, Price4 ref);
  void hit_touch(Stock& stock);
  uint32_t scripted_quantity(const Order& order, uint32_t qty, bool scriptable);
  void publish_trade(Stock& stock, uint32_t qty, Price4 price);
  void credit_resting_fill(const Stock& stock, Order& order, uint32_t filled);
  void reduce(RestingOrder& order, uint32_t qty);
  void take_off_book(RestingOrder& order);
  static void compose(const DeferredReport& report, const ReportTarget& to);
  void accept_order(Order& order, Stock& stock, const ReportTarget& to);
  void cancel_remainder(const Order& order, const Stock& stock, const ReportTarget& to);
  void schedule_cancel_if_scripted(const Order& order);
  void lose_race(Stock& stock, RestingOrder& order, const ReportTarget& to,
                 std::string_view cl_ord_id, std::string_view orig_cl_ord_id);
  void reject_cancel(const std::string& owner, const ReportTarget& to, std::string_view cl_ord_id,
                     std::string_view orig_cl_ord_id);
  void carry_out_replace(Stock& stock, RestingOrder& order, const Order& wanted,
                         const ReportTarget& to);
  void cancel_unsolicited(const ScheduledCancel& due);

  /// Where the reports of a client's request go.
  ReportTarget replies_to(const Client& client);

  std::unordered_map<std::string, size_t, StringHash, std::equal_to<>> index_by_symbol_;
  Outbox replies_;  // of the request in hand
  // Of drain_deferred; kept for their memory.
  Outbox owed_;
  std::vector<OwedMessage> owed_messages_;
};

}  // namespace quorl
