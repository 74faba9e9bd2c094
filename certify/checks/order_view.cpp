#include "certify/checks/order_view.h"

#include <algorithm>

namespace certify {
namespace {

Told told_by(const WireMessage& message, TimeNs at) {
  Told told;
  told.at = at;
  told.seq = static_cast<uint32_t>(message.number(34).value_or(0));
  told.report = message.type() == "9" || message.value(150).empty() ? '9' : message.value(150)[0];
  told.cum = static_cast<uint32_t>(message.number(14).value_or(0));
  told.replay = message.possible_duplicate();
  return told;
}

ViewedName::Kind kind_of(const std::string& type) {
  if (type == "D") return ViewedName::Kind::ORDER;
  return type == "G" ? ViewedName::Kind::REPLACE : ViewedName::Kind::CANCEL;
}

Target::Kind kind_of(ViewedName::Dead dead) {
  if (dead == ViewedName::Dead::RETIRED) return Target::Kind::RETIRED;
  return dead == ViewedName::Dead::REFUSED ? Target::Kind::REFUSED : Target::Kind::NOT_FOUND;
}

}  // namespace

std::string Told::text() const {
  std::string text = time_text(at) + "  < 34=" + std::to_string(seq);
  if (replay) text += "|43=Y";
  if (report == '9') return text + "|35=9";
  return text + "|35=8|150=" + report + "|14=" + std::to_string(cum);
}

void OrderView::on_event(const Event& event) {
  sessions_.take(event);
  if (const auto* heard = std::get_if<FixHeard>(&event.what)) {
    if (heard->from == Party::CLIENT) return on_client(*heard, event.at);
    ClientView& view = clients_[comp_of(sessions_, *heard)];
    if (heard->message.type() == "8") on_report(view, *heard, event.at);
    if (heard->message.type() == "9") on_cancel_reject(view, *heard, event.at);
  } else if (const auto* decision = std::get_if<Decision>(&event.what)) {
    on_decision(decision->order);
  }
}

void OrderView::on_client(const FixHeard& heard, TimeNs at) {
  const WireMessage& message = heard.message;
  // With a reset the numbers of refusals begin again.
  if (message.type() == "A" && message.is(141, "Y")) clients_[message.value(49)].rejects.clear();
  if (!is_order_message(heard)) return;
  ClientView& view = clients_[comp_of(sessions_, heard)];
  const std::string& name = message.value(11);
  const auto known = view.names.find(name);
  if (known != view.names.end()) {
    const bool again = !is_fresh_order_message(heard);
    // The exchange refuses a second order of a live name: the first one stays what it is.
    if (again || use_of(view, known->second) != NameUse::FREE) return;
  }
  ViewedName sent;
  sent.kind = kind_of(message.type());
  sent.connection = heard.connection;
  sent.sent = at;
  if (sent.kind == ViewedName::Kind::ORDER) {
    sent.order = view.orders.size();
    view.orders.push_back({.symbol = message.value(55), .side = message.value(54)});
  } else {
    const auto target = view.names.find(message.value(41));
    sent.order = target == view.names.end() ? NO_ORDER : target->second.order;
  }
  view.names.insert_or_assign(name, sent);
}

/// The order that a report speaks of, by its OrderID, else by its names.
size_t OrderView::order_of(ClientView& view, const WireMessage& message) {
  const uint64_t id = message.number(37).value_or(0);
  const auto by_id = view.by_id.find(id);
  if (by_id != view.by_id.end()) return by_id->second;
  for (const int tag : {41, 11}) {
    const auto name = view.names.find(message.value(tag));
    if (message.value(tag).empty() || name == view.names.end()) continue;
    size_t& index = name->second.order;
    if (index == NO_ORDER) continue;
    if (id == 0) return index;
    // An order of that name may have acted twice: then the second one is an order of its own.
    if (view.orders[index].id != 0) {
      ViewedOrder second{.symbol = message.value(55), .side = message.value(54)};
      index = view.orders.size();
      view.orders.push_back(std::move(second));
    }
    view.orders[index].id = id;
    view.by_id.emplace(id, index);
    return index;
  }
  return NO_ORDER;
}

void OrderView::on_report(ClientView& view, const FixHeard& heard, TimeNs at) {
  const WireMessage& message = heard.message;
  const Told told = told_by(message, at);
  if (told.report == '8') return on_reject(view, message, told);
  const size_t index = order_of(view, message);
  const auto answered = view.names.find(message.value(11));
  if (answered != view.names.end()) {
    answered->second.answered = true;
    // It came later than a request that named it, on another connection.
    if (told.report == '0' && answered->second.dead == ViewedName::Dead::NOT_FOUND) {
      answered->second.dead = ViewedName::Dead::NO;
    }
  }
  if (index == NO_ORDER) return;
  ViewedOrder& order = view.orders[index];
  note_executed(order, told);
  if (told.report == '5') on_replaced(view, message, told, index);
  // A Replaced with nothing left is no end yet: the fills are on their way behind it.
  if ((told.report == '2' || told.report == '4') && order.closed.at == 0) order.closed = told;
}

void OrderView::on_replaced(ClientView& view, const WireMessage& message, const Told& told,
                            size_t index) {
  const auto before = view.names.find(message.value(41));
  if (before != view.names.end() && before->second.order == index &&
      before->second.told_dead.at == 0) {
    before->second.dead = ViewedName::Dead::RETIRED;
    before->second.told_dead = told;
  }
  const auto after = view.names.find(message.value(11));
  if (after != view.names.end()) after->second.order = index;
}

void OrderView::on_reject(ClientView& view, const WireMessage& message, const Told& told) {
  if (!view.rejects.insert(told.seq).second && told.replay) return;
  const auto name = view.names.find(message.value(11));
  if (name == view.names.end() || name->second.kind != ViewedName::Kind::ORDER) return;
  // An order of that name is live: it is a second one that was refused.
  if (name->second.answered || message.value(58).find("duplicate ClOrdID") != std::string::npos) {
    return;
  }
  name->second.answered = true;
  view.orders[name->second.order].closed = told;
}

void OrderView::on_cancel_reject(ClientView& view, const FixHeard& heard, TimeNs at) {
  const WireMessage& message = heard.message;
  const Told told = told_by(message, at);
  if (!view.rejects.insert(told.seq).second && told.replay) return;
  const auto request = view.names.find(message.value(11));
  if (request != view.names.end() && request->second.kind != ViewedName::Kind::ORDER &&
      !request->second.answered) {
    request->second.answered = true;
    if (request->second.kind == ViewedName::Kind::REPLACE) {
      request->second.dead = ViewedName::Dead::REFUSED;
      request->second.told_dead = told;
    }
  }
  // 0 is "Too late to cancel", 1 "Unknown order": nothing of that name is live.
  if (!message.is(102, "0") && !message.is(102, "1")) return;
  const auto target = view.names.find(message.value(41));
  if (target == view.names.end() || target->second.told_dead.at != 0) return;
  // The name may be another order's by now, which the request did not mean.
  const bool meant = request == view.names.end() || request->second.order == NO_ORDER ||
                     request->second.order == target->second.order;
  if (!meant) return;
  target->second.dead = ViewedName::Dead::NOT_FOUND;
  target->second.told_dead = told;
}

/// The line does not say whose order it is. If several have used the name, it is known only by a
/// report that has told the OrderID; else nothing is known of any of them.
void OrderView::on_decision(const quorl::client::OrderEvent& order) {
  if (order.ev != "new" && order.ev != "reject") return;
  ViewedName* only = nullptr;
  bool several = false;
  for (auto& [comp, view] : clients_) {
    const auto found = view.names.find(order.cl);
    if (found == view.names.end() || found->second.decided != 0) continue;
    several = only != nullptr;
    only = &found->second;
    if (order.oid == 0 || !view.by_id.contains(order.oid)) continue;
    several = false;
    break;
  }
  if (only != nullptr && !several) only->decided = static_cast<TimeNs>(order.t_ns);
}

void OrderView::note_executed(ViewedOrder& order, const Told& told) const {
  if (told.cum == 0) return;
  if (!order.executed.empty() && order.executed.back().cum >= told.cum) return;
  auto& executed = order.executed;
  while (executed.size() >= 2 && executed[1].by(told.at - grace_)) executed.erase(executed.begin());
  executed.push_back(told);
}

const Told* OrderView::executed(const ViewedOrder& order, TimeNs now) const {
  const auto later = std::find_if(order.executed.begin(), order.executed.end(),
                                  [&](const Told& told) { return !told.by(now - grace_); });
  return later == order.executed.begin() ? nullptr : &*std::prev(later);
}

const ViewedName* OrderView::name(const std::string& comp, const std::string& name) const {
  const auto view = clients_.find(comp);
  if (view == clients_.end()) return nullptr;
  const auto found = view->second.names.find(name);
  return found == view->second.names.end() ? nullptr : &found->second;
}

Target OrderView::target_of(const std::string& comp, const std::string& name, TimeNs now) const {
  const ViewedName* const found = this->name(comp, name);
  if (found == nullptr || found->kind == ViewedName::Kind::CANCEL) {
    return {.kind = Target::Kind::UNKNOWN};
  }
  Target target;
  if (found->order != NO_ORDER) target.order = &clients_.at(comp).orders[found->order];
  if (target.order != nullptr && target.order->closed.by(now - grace_)) {
    target.kind = Target::Kind::CLOSED;
    target.told = target.order->closed;
  } else if (found->dead != ViewedName::Dead::NO && found->told_dead.by(now - grace_)) {
    target.kind = kind_of(found->dead);
    target.told = found->told_dead;
  }
  return target;
}

NameUse OrderView::use_of(const ClientView& view, const ViewedName& name) const {
  const bool ended = name.dead != ViewedName::Dead::NO ||
                     (name.kind == ViewedName::Kind::CANCEL && name.answered) ||
                     (name.order != NO_ORDER && name.kind != ViewedName::Kind::CANCEL &&
                      view.orders[name.order].closed.at != 0);
  if (ended) return NameUse::FREE;
  const FixConnection* const connection = sessions_.connection(name.connection);
  const bool over = connection == nullptr || connection->ended();
  return !name.answered && over ? NameUse::UNSURE : NameUse::USED;
}

NameUse OrderView::use_of(const std::string& comp, const std::string& name) const {
  const ViewedName* const found = this->name(comp, name);
  return found == nullptr ? NameUse::FREE : use_of(clients_.at(comp), *found);
}

}  // namespace certify
