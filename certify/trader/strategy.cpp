#include "certify/trader/strategy.h"

#include <algorithm>
#include <utility>

namespace certify::trader {
namespace {

namespace client = quorl::client;
using client::FixFields;
using client::Price4;

constexpr size_t MOST_OPEN = 12;
constexpr Milliseconds LEFT_ALONE{700};      // longer than an unsolicited cancel takes
constexpr Milliseconds LEFT_AT_TOUCH{2500};  // so that the market can come and take it
constexpr Price4 CENT = 100;
constexpr Price4 LEAST_PRICE = 100 * CENT;  // one dollar: from there on in whole cents

enum class Kind : uint8_t { MARKET, AT_TOUCH, FAR, FAR_THEN_CROSS, IMMEDIATE, FAR_THEN_MORE, DEEP };
constexpr Kind TURNS[] = {Kind::MARKET,    Kind::AT_TOUCH,      Kind::FAR,  Kind::FAR_THEN_CROSS,
                          Kind::IMMEDIATE, Kind::FAR_THEN_MORE, Kind::DEEP, Kind::AT_TOUCH};

Price4 in_cents(Price4 price) { return std::max(price / CENT * CENT, LEAST_PRICE); }

/// A limit that is this kind's.
Price4 limit_of(Kind kind, bool buy, const Touch& touch) {
  const Price4 own = buy ? touch.bid : touch.ask;
  const Price4 other = buy ? touch.ask : touch.bid;
  const Price4 far = own / 50;
  switch (kind) {
    case Kind::MARKET:
      return 0;
    case Kind::AT_TOUCH:
      return in_cents(own);
    case Kind::IMMEDIATE:
    case Kind::DEEP:
      return in_cents(other);
    default:
      return in_cents(buy ? own - far : own + far);
  }
}

FixFields order_fields(const Order& order, const std::string& name) {
  FixFields fields{{11, name},
                   {21, "1"},
                   {55, order.symbol},
                   {54, std::string(1, order.side)},
                   {60, client::fix_timestamp_now()},
                   {38, std::to_string(order.quantity)},
                   {40, order.price == 0 ? "1" : "2"}};
  if (order.price != 0) fields.push_back({44, client::price_text(order.price)});
  fields.push_back({59, std::string(1, order.time_in_force)});
  fields.push_back({18, "i"});
  fields.push_back({47, "P"});
  return fields;
}

}  // namespace

Strategy::Strategy(StrategyOptions options, Session& session, OrderDesk& desk, std::string prefix)
    : options_(std::move(options)), session_(session), desk_(desk), prefix_(std::move(prefix)) {}

std::string Strategy::fresh_name() { return prefix_ + "-" + std::to_string(++names_); }

bool Strategy::placing() const { return !options_.orders || placed_ < *options_.orders; }

bool Strategy::done() const { return !placing() && desk_.open_count() == 0; }

void Strategy::act(const MarketView& market, Moment now) {
  if (now < next_at_ || !session_.ready()) return;
  next_at_ = now + std::chrono::duration_cast<Moment::duration>(
                       std::chrono::duration<double>(1 / options_.rate));
  Order* const due = due_order(now);
  const bool may_place = placing() && desk_.open_count() < MOST_OPEN;
  if (due != nullptr && (!touched_last_ || !may_place)) {
    touched_last_ = true;
    return touch(*due, market, now);
  }
  touched_last_ = false;
  if (may_place) place(market, now);
}

Order* Strategy::due_order(Moment now) {
  for (Order* order : desk_.open()) {
    if (order->state == Order::State::LIVE && !order->request && order->touch_at <= now) {
      return order;
    }
  }
  return nullptr;
}

Touch Strategy::touch_of(const MarketView& market, const std::string& symbol) const {
  if (const auto touch = market.touch(symbol)) return *touch;
  const Price4 last = desk_.last_price(symbol);
  if (last == 0) return {};
  return {last - CENT, last + CENT};
}

Order Strategy::next_order(const MarketView& market, Moment now) {
  const uint64_t round = placed_ / std::size(TURNS);
  const std::string& symbol = options_.symbols[round % options_.symbols.size()];
  const Touch touch = touch_of(market, symbol);
  // The first fill tells a price where no feed does.
  const Kind kind = touch.bid == 0 ? Kind::MARKET : TURNS[placed_ % std::size(TURNS)];
  const bool buy = (placed_ + round) % 2 == 0;
  const auto hundreds = static_cast<uint32_t>(1 + placed_ % 5);
  const bool meets_market = kind == Kind::AT_TOUCH || kind == Kind::DEEP;
  return {.name = fresh_name(),
          .symbol = symbol,
          .side = buy ? '1' : '2',
          .quantity = kind == Kind::DEEP ? 1000 + 100 * hundreds : 100 * hundreds,
          .price = limit_of(kind, buy, touch),
          .time_in_force = kind == Kind::IMMEDIATE ? '3' : '0',
          .sent = now,
          .touch_at = now + (meets_market ? LEFT_AT_TOUCH : LEFT_ALONE),
          .to_be_replaced = kind != Kind::FAR && kind != Kind::AT_TOUCH,
          .to_cross = kind == Kind::FAR_THEN_CROSS};
}

void Strategy::place(const MarketView& market, Moment now) {
  const Order order = next_order(market, now);
  ++placed_;
  send(order, now);
}

void Strategy::send(const Order& order, Moment now) {
  desk_.add(order);
  session_.send("D", order_fields(order, order.name), now);
}

void Strategy::touch(Order& order, const MarketView& market, Moment now) {
  if (!order.to_be_replaced) return cancel(order, now);
  order.to_be_replaced = false;
  order.touch_at = now + LEFT_ALONE;
  replace(order, market, now);
}

void Strategy::cancel(Order& order, Moment now) {
  const std::string name = fresh_name();
  desk_.note_request(order, {name, "F", now});
  session_.send("F",
                {{41, order.name},
                 {11, name},
                 {55, order.symbol},
                 {54, std::string(1, order.side)},
                 {60, client::fix_timestamp_now()},
                 {38, std::to_string(order.quantity)}},
                now);
}

/// Across the market, or in its place for more shares.
void Strategy::replace(Order& order, const MarketView& market, Moment now) {
  Price4 price = order.price;
  const Touch touch = touch_of(market, order.symbol);
  if (order.to_cross && touch.bid != 0) {
    price = in_cents(order.is_buy() ? touch.ask + 2 * CENT : touch.bid - 2 * CENT);
  }
  replace(order, order.quantity + 100, price, now);
}

void Strategy::replace(Order& order, uint32_t quantity, Price4 price, Moment now) {
  Order wanted = order;
  wanted.quantity = quantity;
  wanted.price = price;
  const std::string name = fresh_name();
  FixFields fields = order_fields(wanted, name);
  fields.insert(fields.begin(), {41, order.name});
  desk_.note_request(order, {name, "G", now});
  session_.send("G", fields, now);
}

}  // namespace certify::trader
