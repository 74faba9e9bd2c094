#include "support/inside.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>

#include "base/clocks.h"
#include "feed/tp_publisher.h"
#include "fix/session.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl::test {
namespace {

/// Calls `look` with the levels of a side, which are of different types.
template <typename AnyStock, typename Look>
auto on_side(AnyStock& stock, bool buy, Look look) {
  return buy ? look(stock.bids) : look(stock.asks);
}

Level& level_at(Stock& stock, bool buy, Price4 price) {
  return buy ? stock.bids[price] : stock.asks[price];
}

/// No order of a test gets this far.
uint64_t departed_id() {
  static uint64_t next = uint64_t{1} << 60;
  return next++;
}

const FixStream& stream_or_fresh(const Engine& engine, const std::string& comp_id) {
  static const FixStream fresh;
  const auto entry = engine.streams.find(comp_id);
  return entry == engine.streams.end() ? fresh : entry->second;
}

}  // namespace

// --- The book of one stock ---

std::vector<RestingLevel> resting_levels(const Engine& engine, const Stock& stock, bool buy) {
  return on_side(stock, buy, [&engine](const auto& levels) {
    std::vector<RestingLevel> resting;
    for (const auto& [price, queue] : levels) {
      RestingLevel& level = resting.emplace_back();
      level.price = price;
      for (const uint64_t id : queue) {
        const auto order = engine.orders.find(id);
        level.queue.push_back({id, order == engine.orders.end() ? nullptr : &order->second});
      }
    }
    return resting;
  });
}

std::vector<Price4> level_prices(const Engine& engine, const Stock& stock, bool buy) {
  std::vector<Price4> prices;
  for (const RestingLevel& level : resting_levels(engine, stock, buy)) {
    prices.push_back(level.price);
  }
  return prices;
}

std::vector<uint64_t> queue_at(const Engine& engine, const Stock& stock, bool buy, Price4 price) {
  std::vector<uint64_t> ids;
  for (const RestingLevel& level : resting_levels(engine, stock, buy)) {
    if (level.price != price) continue;
    for (const QueuedOrder& place : level.queue) ids.push_back(place.id);
  }
  return ids;
}

uint32_t shares_at(const Engine& engine, const Stock& stock, bool buy, Price4 price) {
  return engine.level_size(stock, buy, price);
}

ShownLevels shown_levels(const Engine&, const Stock& stock, bool buy) {
  return buy ? ShownLevels(stock.shown_bids.begin(), stock.shown_bids.end())
             : ShownLevels(stock.shown_asks.begin(), stock.shown_asks.end());
}

void plant_shown_levels(Engine&, Stock& stock, bool buy, const ShownLevels& levels) {
  if (buy) {
    stock.shown_bids = {levels.begin(), levels.end()};
  } else {
    stock.shown_asks = {levels.begin(), levels.end()};
  }
}

uint64_t rest_synthetic(Engine& engine, Stock& stock, bool buy, Price4 price, uint32_t shares) {
  Order order;
  order.id = engine.next_order_id++;
  order.locate = stock.locate;
  order.buy = buy;
  order.price = price;
  order.leaves = order.qty = shares;
  engine.rest_order(stock, order);
  return order.id;
}

void withdraw_order(Engine& engine, Stock& stock, uint64_t id) {
  engine.withdraw(stock, order_by_id(engine, id));
}

uint32_t trade_with_order(Engine& engine, Stock& stock, uint64_t id, uint32_t shares,
                          Price4 price) {
  return engine.reduce(stock, order_by_id(engine, id), shares, /*withdrawal=*/false, price, '1',
                       /*scriptable=*/true);
}

void plant_departed_order(Engine&, Stock& stock, bool buy, Price4 price, QueueEnd end) {
  Level& queue = level_at(stock, buy, price);
  queue.insert(end == QueueEnd::FRONT ? queue.begin() : queue.end(), departed_id());
}

void plant_empty_level(Engine&, Stock& stock, bool buy, Price4 price) {
  level_at(stock, buy, price);
}

std::vector<std::pair<bool, Price4>> touched_prices(const Engine& engine, const Stock&) {
  return {engine.dirty.begin(), engine.dirty.end()};
}

void touch_price(Engine& engine, Stock&, bool buy, Price4 price) {
  engine.dirty.emplace(buy, price);
}

// --- The orders of all stocks ---

size_t order_count(const Engine& engine) { return engine.orders.size(); }

bool has_order(const Engine& engine, uint64_t id) { return engine.orders.contains(id); }

Order& order_by_id(Engine& engine, uint64_t id) { return engine.orders.at(id); }

std::vector<uint64_t> order_ids(const Engine& engine) {
  std::vector<uint64_t> ids;
  for (const auto& [id, order] : engine.orders) ids.push_back(id);
  return ids;
}

std::vector<uint64_t> orders_to_pull(const Engine& engine, const Stock& stock) {
  std::vector<uint64_t> ids;
  for (const auto& [id, order] : engine.orders) {
    if (order.locate == stock.locate && order.owner.empty()) ids.push_back(id);
  }
  return ids;
}

std::vector<std::string> live_names(const Engine& engine) {
  std::vector<std::string> names;
  for (const auto& [key, id] : engine.live) names.push_back(key.owner + " " + key.cl_ord_id);
  std::sort(names.begin(), names.end());
  return names;
}

void plant_live_name(Engine& engine, const std::string& owner, const std::string& cl_ord_id,
                     uint64_t id) {
  engine.live[{owner, cl_ord_id}] = id;
}

// --- What is remembered, scheduled and owed ---

size_t closing_count(const Engine& engine) { return engine.closed.size(); }

std::optional<int64_t> ms_since_closing(const Engine& engine, std::string_view owner,
                                        std::string_view cl_ord_id) {
  const auto entry = engine.closed.find(ClientOrderKeyView{owner, cl_ord_id});
  if (entry == engine.closed.end()) return std::nullopt;
  return static_cast<int64_t>(steady_ms()) - entry->second;
}

std::vector<Scheduled> scheduled_cancels(const Engine& engine) {
  std::vector<Scheduled> cancels;
  for (const ScheduledCancel& entry : engine.scheduled_cancels) {
    cancels.push_back({entry.owner, entry.cl_ord_id, entry.due_ms});
  }
  return cancels;
}

void schedule_cancel(Engine& engine, const Scheduled& cancel) {
  engine.scheduled_cancels.push_back({cancel.owner, cancel.cl_ord_id, cancel.due_ms});
}

void fire_scheduled_cancels(Engine& engine, std::vector<Client>& clients) {
  engine.fire_unsolicited(clients);
}

std::vector<std::string> owed_to(const Engine& engine) {
  std::vector<std::string> owners;
  for (const DeferredReport& report : engine.deferred) owners.push_back(report.owner);
  return owners;
}

// --- Session memories ---

SessionMemory::SessionMemory(Engine& engine, std::string comp_id)
    : engine_(&engine), comp_id_(std::move(comp_id)) {}

bool SessionMemory::exists() const { return engine_->streams.contains(comp_id_); }

uint32_t SessionMemory::next_in() const { return stream_or_fresh(*engine_, comp_id_).next_in; }

uint32_t SessionMemory::next_out() const { return stream_or_fresh(*engine_, comp_id_).next_out; }

void SessionMemory::set_next_in(uint32_t seq) { engine_->streams[comp_id_].next_in = seq; }

void SessionMemory::set_next_out(uint32_t seq) { engine_->streams[comp_id_].next_out = seq; }

size_t SessionMemory::stored_count() const {
  return stream_or_fresh(*engine_, comp_id_).store.size();
}

std::vector<Stored> SessionMemory::stored() const {
  std::vector<Stored> messages;
  for (const StoredMessage& message : stream_or_fresh(*engine_, comp_id_).store) {
    messages.push_back({message.seq, message.msg_type, std::string(message.fields.wire()),
                        std::string(message.sending_time.view())});
  }
  return messages;
}

size_t session_memory_count(const Engine& engine) { return engine.streams.size(); }

void forget_closed_clients(FixGateway& gateway) { gateway.forget_closed_clients(); }

// --- The feed ---

PublisherState state_of(const TpPublisher& publisher) {
  return {.session_id = publisher.session_id,
          .next_seq = publisher.next_seq,
          .stream_offset = publisher.stream_offset,
          .messages = publisher.messages,
          .packets = publisher.packets,
          .dropped = publisher.dropped,
          .duplicated = publisher.duplicated,
          .reordered = publisher.reordered,
          .last_flush_ms = publisher.last_flush_ms,
          .gap_requests = publisher.gap_requests,
          .gap_messages = publisher.gap_messages,
          .gap_rejects = publisher.gap_rejects,
          .waiting = publisher.header.message_count,
          .packet_size = publisher.fill,
          .packet_limit = publisher.limit,
          .announced_seq = publisher.header.first_seq,
          .held_size = publisher.held.size(),
          .retained = publisher.retained.size()};
}

Retained retained_message(const TpPublisher& publisher, size_t index) {
  const RetainedMessage& message = publisher.retained.at(index);
  return {message.seq, message.stream_offset, message.bytes};
}

void forget_retained(TpPublisher& publisher, size_t count) {
  for (size_t i = 0; i < count; ++i) publisher.retained.pop_front();
}

void set_next_seq(TpPublisher& publisher, uint64_t seq) { publisher.next_seq = seq; }

void set_last_flush_ms(TpPublisher& publisher, uint64_t ms) { publisher.last_flush_ms = ms; }

void set_waiting(TpPublisher& publisher, uint16_t messages) {
  publisher.header.message_count = messages;
}

void set_fault_counts(TpPublisher& publisher, const FaultCounts& counts) {
  publisher.packets = counts.packets;
  publisher.dropped = counts.dropped;
  publisher.duplicated = counts.duplicated;
  publisher.reordered = counts.reordered;
}

FeedSockets sockets_of(const TpPublisher& publisher) {
  return {.feed_fd = publisher.fd, .gap_fd = publisher.gap_fd, .to = publisher.dest};
}

void send_feed_to(TpPublisher& publisher, uint16_t port) { publisher.dest.sin_port = htons(port); }

void close_feed(TpPublisher& publisher) {
  ::close(publisher.fd);
  publisher.fd = -1;
}

void serve_gap_fill_on(TpPublisher& publisher, int fd) { publisher.gap_fd = fd; }

}  // namespace quorl::test
