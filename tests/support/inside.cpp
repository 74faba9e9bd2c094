#include "support/inside.h"

#include <algorithm>
#include <stdexcept>

#include "base/clocks.h"
#include "feed/tp_publisher.h"
#include "fix/fix_text.h"
#include "fix/session.h"
#include "fix/stream_records.h"
#include "market/engine.h"

namespace quorl::test {
namespace {

/// The table gives its orders out to be changed only where they are found by something else than
/// their ids.
RestingOrder& resting_order(const Engine& engine, uint64_t id) {
  const RestingOrder* const order = engine.orders.find(id);
  if (order == nullptr) throw std::out_of_range("no order has the id " + std::to_string(id));
  return const_cast<RestingOrder&>(*order);
}

const FixStream& stream_or_fresh(const Engine& engine, const std::string& comp_id) {
  static const FixStream fresh;
  const auto entry = engine.streams.find(comp_id);
  return entry == engine.streams.end() ? fresh : entry->second;
}

}  // namespace

// --- The book of one stock ---

std::vector<RestingLevel> resting_levels(const Engine&, const Stock& stock, bool buy) {
  std::vector<RestingLevel> resting;
  stock.book.side(buy).for_each_level([&](const Level& level) {
    RestingLevel& seen = resting.emplace_back();
    seen.price = level.price;
    BookSide::for_each_order(level,
                             [&](const RestingOrder& order) { seen.queue.push_back(&order); });
    return true;
  });
  return resting;
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
    for (const Order* order : level.queue) ids.push_back(order->id);
  }
  return ids;
}

uint32_t shares_at(const Engine&, const Stock& stock, bool buy, Price4 price) {
  return stock.book.level_size(buy, price);
}

ShownLevels shown_levels(const Engine&, const Stock& stock, bool buy) {
  ShownLevels levels;
  stock.book.side(buy).for_each_shown([&](Price4 price, uint32_t size) {
    levels.emplace_back(price, size);
    return true;
  });
  return levels;
}

void rest_and_show(Engine& engine, Stock& stock, bool buy, const ShownLevels& levels) {
  engine.begin_event();
  for (const auto& [price, shares] : levels) rest_synthetic(engine, stock, buy, price, shares);
  engine.publish_dirty(stock);
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

void withdraw_order(Engine& engine, uint64_t id) { engine.withdraw(resting_order(engine, id)); }

uint32_t trade_with_order(Engine& engine, Stock& stock, uint64_t id, uint32_t shares) {
  return engine.fill(stock, resting_order(engine, id), shares, /*scriptable=*/true);
}

// --- The orders of all stocks ---

size_t order_count(const Engine& engine) { return engine.orders.size(); }

bool has_order(const Engine& engine, uint64_t id) { return engine.orders.contains(id); }

const Order& order_by_id(const Engine& engine, uint64_t id) { return resting_order(engine, id); }

std::vector<uint64_t> order_ids(const Engine& engine) {
  std::vector<uint64_t> ids;
  engine.orders.for_each([&](const RestingOrder& order) { ids.push_back(order.id); });
  return ids;
}

std::vector<uint64_t> orders_to_pull(const Engine& engine, const Stock& stock) {
  std::vector<uint64_t> ids;
  for (size_t i = 0; i < engine.orders.background_count(stock.locate); ++i) {
    ids.push_back(engine.orders.background_order(stock.locate, i).id);
  }
  return ids;
}

std::vector<std::string> live_names(const Engine& engine) {
  std::vector<std::string> names;
  engine.live.for_each(
      [&](const RestingOrder& order) { names.push_back(order.owner + " " + order.cl_ord_id); });
  std::sort(names.begin(), names.end());
  return names;
}

// --- What is remembered, scheduled and owed ---

size_t closing_count(const Engine& engine) { return engine.closed.size(); }

std::optional<int64_t> ms_since_closing(const Engine& engine, std::string_view owner,
                                        std::string_view cl_ord_id) {
  return engine.closed.age_ms({owner, cl_ord_id}, steady_ms());
}

std::vector<Scheduled> scheduled_cancels(const Engine& engine) {
  std::vector<Scheduled> cancels;
  for (const ScheduledCancel& entry : engine.scheduled_cancels.all()) {
    cancels.push_back({entry.owner, entry.cl_ord_id, entry.due_ms});
  }
  return cancels;
}

void schedule_cancel(Engine& engine, const Scheduled& cancel) {
  engine.scheduled_cancels.schedule({cancel.owner, cancel.cl_ord_id, cancel.due_ms});
}

void fire_scheduled_cancels(Engine& engine) { engine.fire_unsolicited(); }

std::vector<std::string> owed_to(const Engine& engine) {
  std::vector<std::string> owners;
  for (const DeferredReport& report : engine.deferred) owners.push_back(report.order.owner);
  return owners;
}

// --- Session memories ---

SessionMemory::SessionMemory(Engine& engine, std::string comp_id)
    : engine_(&engine), comp_id_(std::move(comp_id)) {}

bool SessionMemory::exists() const { return engine_->streams.contains(comp_id_); }

uint32_t SessionMemory::next_in() const { return stream_or_fresh(*engine_, comp_id_).next_in; }

uint32_t SessionMemory::next_out() const { return stream_or_fresh(*engine_, comp_id_).next_out; }

void SessionMemory::set_next_in(uint32_t seq) { engine_->stream_named(comp_id_).next_in = seq; }

void SessionMemory::set_next_out(uint32_t seq) { engine_->stream_named(comp_id_).next_out = seq; }

size_t SessionMemory::stored_count() const {
  return stream_or_fresh(*engine_, comp_id_).store.size();
}

std::vector<Stored> SessionMemory::stored() const {
  std::vector<Stored> messages;
  const MessageLog<StoredMessage>& store = stream_or_fresh(*engine_, comp_id_).store;
  for (size_t i = 0; i < store.size(); ++i) {
    const auto [message, body] = store[i];
    messages.push_back({message.seq, std::string(1, message.msg_type), std::string(body),
                        std::string(FixTimestamp(message.sending_time_ns).view())});
  }
  return messages;
}

std::vector<size_t> SessionMemory::connections() const {
  return stream_or_fresh(*engine_, comp_id_).connections;
}

size_t session_memory_count(const Engine& engine) { return engine.streams.size(); }

size_t log_on_by_hand(Engine& engine, std::vector<Client>& clients, const std::string& comp_id) {
  const size_t index = clients.size();
  Client& client = clients.emplace_back();
  client.fd = 1000000 + static_cast<int>(index);  // nobody sends or reads here
  client.logged_on = true;
  client.comp_id = comp_id;
  client.stream = &engine.stream_named(comp_id);
  client.stream->connections.push_back(index);
  return index;
}

void disconnect_by_hand(std::vector<Client>& clients, size_t index) {
  Client& client = clients.at(index);
  std::erase(client.stream->connections, index);
  client.fd = -1;
  client.logged_on = false;
}

void forget_closed_clients(FixGateway& gateway) { gateway.forget_closed_clients(); }

// --- The feed ---

PublisherState state_of(const TpPublisher& publisher) {
  const FeedCounts& counts = publisher.counts();
  return {.session_id = publisher.session_id(),
          .next_seq = publisher.next_seq(),
          .stream_offset = publisher.stream_offset(),
          .messages = counts.messages,
          .packets = counts.packets,
          .dropped = counts.dropped,
          .duplicated = counts.duplicated,
          .reordered = counts.reordered,
          .last_flush_ms = publisher.last_flush_ms(),
          .waiting = publisher.pending(),
          .packet_size = TP_HEADER_SIZE + publisher.next_block_offset() - publisher.stream_offset(),
          .retained = publisher.next_seq() - publisher.oldest_retained_seq()};
}

Retained retained_message(const TpPublisher& publisher, size_t index) {
  const uint64_t seq = publisher.oldest_retained_seq() + index;
  if (seq >= publisher.next_seq()) throw std::out_of_range("no message is kept at this place");
  const RetainedMessage message = publisher.retained(seq);
  return {seq, message.stream_offset, {message.bytes.begin(), message.bytes.end()}};
}

void number_up_to(TpPublisher& publisher, uint64_t last_seq) {
  while (publisher.last_seq() < last_seq) publisher.append("", 0);
  publisher.flush_if_pending();
}

void flush_up_to(TpPublisher& publisher, const FeedCounts& counts) {
  const auto flush = [&publisher](const FaultPlan& faults) {
    publisher.faults = faults;
    publisher.flush();
  };
  while (publisher.counts().dropped < counts.dropped) flush({.drop_next = 1});
  while (publisher.counts().duplicated < counts.duplicated) flush({.dup_next = 1});
  while (publisher.counts().reordered < counts.reordered) flush({.reorder_next = 1});
  while (publisher.counts().packets < counts.packets) flush({});
}

}  // namespace quorl::test
