#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "certify/trader/moment.h"
#include "certify/trader/session.h"
#include "quorl/client/deep.h"
#include "quorl/client/fix_message.h"

namespace certify::trader {

/// One order and all that its replaces have made of it.
struct Order {
  enum class State : uint8_t {
    SENT,  // no report has come
    LIVE,
    FILLED,
    CANCELLED,
    REJECTED,
    LOST,  // it never arrived, or the exchange no longer knows it
  };
  struct Request {  // a cancel or replace that is not answered yet
    std::string name;
    std::string type;  // 35: F or G
    Moment sent{};
  };

  std::string name = {};  // ClOrdID by which the exchange knows it
  std::optional<Request> request = {};
  std::string order_id = {};  // the exchange's, once it has spoken
  std::string symbol = {};
  char side = '1';                  // 54
  uint32_t quantity = 0;            // shares, those executed included
  quorl::client::Price4 price = 0;  // 0: a market order
  char time_in_force = '0';         // 59
  uint32_t cum = 0;                 // shares executed
  uint32_t leaves = 0;              // shares open
  std::string average = "0";        // 6, as the exchange wrote it
  State state = State::SENT;
  ReportPlace place = {};  // of the report that tells all this; life 0, seq 0: none yet
  Moment sent{};
  Moment touch_at{};            // when it is to be replaced or cancelled, if it still rests
  bool to_be_replaced = false;  // before it is cancelled
  bool to_cross = false;        // by that replace

  bool open() const { return state == State::SENT || state == State::LIVE; }
  bool is_buy() const { return side == '1'; }
  /// The exchange has said at least once what it holds.
  bool reported() const { return place != ReportPlace{}; }
};

/// The trader's orders as its reports tell of them, in whatever order those come: of each order the
/// report with the highest place counts. Fills count once, by their ExecID.
class OrderDesk {
 public:
  /// Good for ever. `order.name` has been given to no other order or request.
  Order& add(Order order);
  /// A cancel or replace of `order` that goes out.
  void note_request(Order& order, Order::Request request);

  /// An ExecutionReport or an OrderCancelReject. Orders that are not known are taken in: they are
  /// of an earlier start. Returns false for a report that had come before.
  bool on_report(const quorl::client::FixMessage& report, ReportPlace place, Moment now);

  /// What was sent before `settled` and has not been answered never arrived.
  void settle(Moment settled);
  /// When the longest unanswered order or request was sent.
  std::optional<Moment> unanswered_since() const;

  /// In the order of their sending.
  const std::deque<Order>& orders() const { return orders_; }
  /// By the name of an order or of a request for it; null if there is none.
  Order* find(const std::string& name);
  /// Those that are SENT or LIVE, the oldest first.
  std::vector<Order*> open();
  size_t open_count() const { return open_.size(); }

  /// Of the latest fill; 0 if there was none.
  quorl::client::Price4 last_price(const std::string& symbol) const;

 private:
  void take_in(const quorl::client::FixMessage& report);
  void on_execution_report(Order& order, const quorl::client::FixMessage& report,
                           ReportPlace place);
  void on_cancel_reject(Order& order, const quorl::client::FixMessage& reject, Moment now);
  void note_state(size_t index);

  std::deque<Order> orders_;
  std::unordered_map<std::string, size_t> order_of_;  // by every name of an order or request
  std::set<size_t> open_;
  std::unordered_set<std::string> exec_ids_;
  std::map<std::string, quorl::client::Price4> last_price_;
};

}  // namespace certify::trader
