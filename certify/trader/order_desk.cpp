#include "certify/trader/order_desk.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "certify/trader/report_fields.h"

namespace certify::trader {
namespace {

namespace client = quorl::client;
using client::FixMessage;

/// What a report says that the order now is.
Order::State state_of(const FixMessage& report, uint32_t leaves) {
  const std::string type = report.get(150);
  if (type == "8") return Order::State::REJECTED;
  if (type == "4") return Order::State::CANCELLED;
  // A Replaced that crossed shows the order behind its fills.
  return leaves == 0 ? Order::State::FILLED : Order::State::LIVE;
}

}  // namespace

Order& OrderDesk::add(Order order) {
  const size_t index = orders_.size();
  order_of_[order.name] = index;
  open_.insert(index);
  return orders_.emplace_back(std::move(order));
}

void OrderDesk::note_request(Order& order, Order::Request request) {
  order_of_[request.name] = order_of_.at(order.name);
  order.request = std::move(request);
}

Order* OrderDesk::find(const std::string& name) {
  const auto found = order_of_.find(name);
  return found == order_of_.end() ? nullptr : &orders_[found->second];
}

bool OrderDesk::on_report(const FixMessage& report, ReportPlace place, Moment now) {
  const bool is_execution = report.type() == "8";
  if (is_execution && !exec_ids_.insert(report.get(17)).second) return false;
  Order* order = find(report.get(11));
  if (order == nullptr && report.has(41)) order = find(report.get(41));
  if (order == nullptr && is_execution) {
    take_in(report);
    order = &orders_.back();
  }
  if (order == nullptr) return true;  // a reject for an order of an earlier start
  const size_t index = order_of_.at(order->name);
  if (is_execution) {
    on_execution_report(*order, report, place);
  } else {
    on_cancel_reject(*order, report, now);
  }
  note_state(index);
  return true;
}

void OrderDesk::take_in(const FixMessage& report) {
  add({.name = report.get(11), .symbol = report.get(55), .side = report.get(54)[0]});
  if (report.has(41)) order_of_[report.get(41)] = orders_.size() - 1;
}

void OrderDesk::on_execution_report(Order& order, const FixMessage& report, ReportPlace place) {
  const std::string type = report.get(150);
  if (type == "1" || type == "2") last_price_[report.get(55)] = price_field(report, 31);
  if (order.request && order.request->name == report.get(11)) order.request.reset();
  order_of_.emplace(report.get(11), order_of_.at(order.name));
  if (order.reported() && place < order.place) return;  // it has been overtaken
  if (order.reported() && type == "8") return;          // another order under its name
  order.place = place;
  order.order_id = report.get(37);
  order.quantity = share_field(report, 38);
  if (report.has(44)) order.price = price_field(report, 44);
  order.cum = share_field(report, 14);
  order.leaves = share_field(report, 151);
  order.average = report.get(6);
  order.state = state_of(report, order.leaves);
  // A cancel's own ClOrdID is no name of the order.
  if (type != "4") order.name = report.get(11);
  if (!order.open()) order.request.reset();
}

void OrderDesk::on_cancel_reject(Order& order, const FixMessage& reject, Moment now) {
  if (order.request && order.request->name == reject.get(11)) order.request.reset();
  order.touch_at = std::max(order.touch_at, now + Milliseconds(500));
  // The exchange holds no such order: it is left alone, whatever we think of it.
  const std::string status = reject.get(39);
  if (order.open() && (status == "2" || status == "8")) order.state = Order::State::LOST;
}

void OrderDesk::note_state(size_t index) {
  if (orders_[index].open()) {
    open_.insert(index);
  } else {
    open_.erase(index);
  }
}

void OrderDesk::settle(Moment settled) {
  const std::set<size_t> open = open_;
  for (const size_t index : open) {
    Order& order = orders_[index];
    if (order.state == Order::State::SENT && order.sent < settled) order.state = Order::State::LOST;
    if (order.request && order.request->sent < settled) order.request.reset();
    note_state(index);
  }
}

std::optional<Moment> OrderDesk::unanswered_since() const {
  std::optional<Moment> since;
  const auto note = [&since](Moment sent) { since = std::min(since.value_or(sent), sent); };
  for (const size_t index : open_) {
    const Order& order = orders_[index];
    if (order.state == Order::State::SENT) note(order.sent);
    if (order.request) note(order.request->sent);
  }
  return since;
}

std::vector<Order*> OrderDesk::open() {
  std::vector<Order*> open;
  for (const size_t index : open_) open.push_back(&orders_[index]);
  return open;
}

client::Price4 OrderDesk::last_price(const std::string& symbol) const {
  const auto found = last_price_.find(symbol);
  return found == last_price_.end() ? 0 : found->second;
}

}  // namespace certify::trader
