#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "perf/load.h"

namespace perf {

/// Prices a side of a wide book.
constexpr size_t WIDE = 4000;

/// An order of a crowd that rests, in turn on both sides, spread over `prices` a side, so far from
/// the opening price of 190.00 that nothing meets it. Neighbours in `i` are far apart in price.
NewOrder resting_order(size_t i, size_t prices);

/// One way in which orders come.
class OrderFlow {
 public:
  virtual ~OrderFlow() = default;

  virtual std::string name() const = 0;
  /// Requests that make one unit of it.
  virtual size_t requests_in_unit() const { return 1; }
  virtual std::string unit() const { return "us an order"; }
  /// Brings about what must be there before the first unit.
  virtual void prepare(Session& /*session*/, FeedCounter& /*feed*/) {}
  /// Queues the i-th request; with `replies` "" in its stead nothing is left out.
  virtual void queue(Session& session, size_t i) = 0;
};

/// Resting orders only.
class Resting : public OrderFlow {
 public:
  explicit Resting(size_t prices) : prices_(prices) {}
  std::string name() const override;
  void queue(Session& session, size_t i) override;

 private:
  size_t prices_;  // a side
};

/// Every second order takes the one before it in full.
class Crossing : public OrderFlow {
 public:
  std::string name() const override { return "crossing, every second order trades"; }
  void prepare(Session& session, FeedCounter& feed) override;
  void queue(Session& session, size_t i) override;
};

/// A new order and a cancel, in turn; every second cancel takes an older order at random instead of
/// the one just sent, so that as many orders rest as before.
class NewAndCancel : public OrderFlow {
 public:
  explicit NewAndCancel(size_t resting) : to_rest_(resting) {}
  std::string name() const override;
  size_t requests_in_unit() const override { return 2; }
  std::string unit() const override { return "us a pair"; }
  void prepare(Session& session, FeedCounter& feed) override;
  void queue(Session& session, size_t i) override;

 private:
  size_t to_rest_;
  std::vector<RequestId> resting_;
  RequestId latest_ = 0;
  std::minstd_rand random_;  // the same orders in every run
};

/// Fresh ones of all flows: a flow is good for one session.
std::vector<std::unique_ptr<OrderFlow>> all_order_flows(size_t resting);

}  // namespace perf
