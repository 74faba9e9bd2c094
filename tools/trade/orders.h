#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "quorl/client/fix_message.h"

namespace tools {

/// The orders of one start: their names, what was asked, and how the exchange's reports say that
/// they stand. A ClOrdID is "o1-mi8r2k4x": the number of the order and the time of the start, so
/// that no other start gives the same one while an order of it still rests. "o1" is enough to name
/// it.
class Orders {
 public:
  explicit Orders(std::chrono::system_clock::time_point start);

  /// A ClOrdID that nobody has.
  std::string new_id();

  /// The ClOrdID meant: that of this start if `name` is a short name of one, else `name` itself.
  std::string resolved(const std::string& name) const;

  struct Order {
    std::string id;  // ClOrdID
    std::string symbol;
    std::string side;    // 54
    std::string status;  // 39, empty until the exchange speaks
    std::string leaves;  // 151
    std::string quantity;
    std::string price;
  };

  /// A NewOrderSingle, or a replace, that goes out.
  void note_sent(const Order& order) { orders_.push_back(order); }
  /// Takes over what an ExecutionReport says of one of them; others are let pass, and so is what
  /// comes again.
  void note_report(const quorl::client::FixMessage& report);

  /// Nothing if this start has sent no such order.
  const Order* find(const std::string& id) const;

  /// One line for each that has been sent: "o1-mi8r2k4x Buy 100 AAPL @ 185: New, 100 open".
  std::vector<std::string> lines() const;

 private:
  std::string suffix_;  // "-mi8r2k4x"
  uint32_t given_ = 0;
  std::vector<Order> orders_;
  std::set<std::string> exec_ids_;  // 17 of all reports
};

}  // namespace tools
