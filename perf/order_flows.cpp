#include "perf/order_flows.h"

namespace perf {
namespace {

constexpr uint32_t HIGHEST_BUY_CENTS = 15000;
constexpr uint32_t LOWEST_SELL_CENTS = 25000;
constexpr uint32_t CROSSING_CENTS = 20000;
constexpr size_t CROWDED_PRICES = 50;
constexpr size_t PREPARING_IN_FLIGHT = 512;

}  // namespace

NewOrder resting_order(size_t i, size_t prices) {
  constexpr size_t STRIDE = 7919;  // a prime
  const auto level = static_cast<uint32_t>(i / 2 * STRIDE % prices);
  return i % 2 == 0 ? NewOrder{.side = BUY, .price_cents = HIGHEST_BUY_CENTS - level}
                    : NewOrder{.side = SELL, .price_cents = LOWEST_SELL_CENTS + level};
}

std::string Resting::name() const {
  return "resting, " + std::to_string(prices_) + " prices a side";
}

void Resting::queue(Session& session, size_t i) {
  session.new_order(resting_order(i, prices_), ACCEPTED);
}

/// The two of a pair must meet each other and nobody else.
void Crossing::prepare(Session& session, FeedCounter&) { session.sweep(BUY); }

void Crossing::queue(Session& session, size_t i) {
  if (i % 2 == 0) {
    session.new_order({.side = SELL, .price_cents = CROSSING_CENTS}, ACCEPTED_AND_FILLED);
  } else {
    session.new_order({.side = BUY, .price_cents = CROSSING_CENTS, .tif = IMMEDIATE},
                      ACCEPTED_AND_FILLED);
  }
}

std::string NewAndCancel::name() const {
  return "new and cancel, " + std::to_string(to_rest_) + " resting";
}

void NewAndCancel::prepare(Session& session, FeedCounter& feed) {
  send_in_bursts(session, feed, to_rest_, PREPARING_IN_FLIGHT, [&](size_t i) {
    resting_.push_back(session.new_order(resting_order(i, CROWDED_PRICES), ACCEPTED));
  });
}

void NewAndCancel::queue(Session& session, size_t i) {
  if (i % 2 == 0) {
    latest_ = session.new_order(resting_order(i / 2, CROWDED_PRICES), ACCEPTED);
    return;
  }
  if (i % 4 == 3) std::swap(latest_, resting_[random_() % resting_.size()]);
  session.cancel(latest_);
}

std::vector<std::unique_ptr<OrderFlow>> all_order_flows(size_t resting) {
  std::vector<std::unique_ptr<OrderFlow>> flows;
  flows.push_back(std::make_unique<Resting>(50));
  flows.push_back(std::make_unique<Resting>(4000));
  flows.push_back(std::make_unique<Crossing>());
  flows.push_back(std::make_unique<NewAndCancel>(resting));
  return flows;
}

}  // namespace perf
