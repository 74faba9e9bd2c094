#include "tests/certify/checks/support/order_talk.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "certify/checks/duplicates.h"

namespace certify {

using quorl::client::OrderEvent;

OrderTalk::OrderTalk() { dialogue.logs_on(); }

OrderTalk::~OrderTalk() {
  std::error_code ignored;  // a folder left behind harms no test
  if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
}

// --- The client ---

OrderTalk& OrderTalk::says(const std::string& text) {
  const size_t end = text.find('|');
  dialogue.client(text.substr(0, end) + "|34=" + std::to_string(next_out_++) +
                  (end == std::string::npos ? "" : text.substr(end)));
  return *this;
}

OrderTalk& OrderTalk::order(const std::string& name, unsigned qty, const std::string& price) {
  orders_[name] = {0, name, qty, 0, qty, price};
  return says("35=D|11=" + name + "|55=AAPL|54=1|38=" + std::to_string(qty) + "|40=2|44=" + price +
              "|18=i");
}

OrderTalk& OrderTalk::cancel(const std::string& request, const std::string& name) {
  return says("35=F|11=" + request + "|41=" + name);
}

OrderTalk& OrderTalk::replace(const std::string& request, const std::string& name, unsigned qty,
                              const std::string& price) {
  return says("35=G|11=" + request + "|41=" + name + "|55=AAPL|54=1|38=" + std::to_string(qty) +
              "|44=" + price);
}

OrderTalk& OrderTalk::logs_on_again(unsigned heartbeat_s) {
  dialogue.logs_on(next_out_++, next_in_++, heartbeat_s);
  return *this;
}

// --- The exchange ---

OrderTalk& OrderTalk::accepts(const std::string& name) {
  Order& order = orders_.at(name);
  order.id = next_id_++;
  report(order, {"new", '0', name, ""});
  return *this;
}

OrderTalk& OrderTalk::fills(const std::string& name, unsigned shares) {
  Order& order = orders_.at(name);
  order.cum += shares;
  order.leaves -= shares;
  report(order, {"fill", order.leaves > 0 ? '1' : '2', order.name, "", shares});
  return *this;
}

OrderTalk& OrderTalk::cancels(const std::string& name, const std::string& request) {
  Order& order = orders_.at(name);
  order.leaves = 0;
  report(order, {"cancel", '4', request, order.name, 0, "", "cancel"});
  return *this;
}

OrderTalk& OrderTalk::replaces(const std::string& name, const std::string& request, unsigned qty) {
  Order order = orders_.at(name);
  const std::string before = order.name;
  order.name = request;
  order.qty = qty;
  order.leaves = qty - order.cum;
  report(order, {"replace", '5', request, before});
  orders_[request] = order;
  return *this;
}

OrderTalk& OrderTalk::refuses(const std::string& name, const std::string& text) {
  Order order = orders_.at(name);
  order.id = 0;
  order.leaves = 0;
  report(order, {"reject", '8', name, "", 0, text, text});
  return *this;
}

OrderTalk& OrderTalk::refuses_cancel(const std::string& request, const std::string& name,
                                     char reason) {
  const std::string text = reason == '0' ? "Too late to cancel" : "Unknown order";
  OrderEvent event;
  event.ev = "cancel_reject";
  event.cl = name;
  event.side = " ";
  event.px = "0";
  event.text = text;
  decide(std::move(event));
  hand_over("35=9|37=NONE|11=" + request + "|41=" + name + "|39=2|102=" + reason +
            "|434=1|58=" + text);
  return *this;
}

OrderTalk& OrderTalk::refuses_replace(const std::string& request, const std::string& name,
                                      char reason, const std::string& text) {
  const auto order = orders_.find(name);
  const uint64_t id = reason == '2' && order != orders_.end() ? order->second.id : 0;
  OrderEvent event;
  event.ev = "replace_reject";
  event.cl = name;
  event.oid = id;
  event.side = " ";
  event.px = "0";
  event.text = text;
  event.ref = request;
  decide(std::move(event));
  hand_over("35=9|37=" + (id == 0 ? "NONE" : std::to_string(id)) + "|11=" + request +
            "|41=" + name + "|39=0|102=" + reason + "|434=2|58=" + text);
  return *this;
}

OrderTalk& OrderTalk::answers(const std::string& text) {
  hand_over(text);
  return *this;
}

OrderTalk& OrderTalk::replays(uint64_t number) {
  const std::string& text = sent_.at(number);
  const size_t end = text.find('|');
  dialogue.exchange(text.substr(0, end) + "|34=" + std::to_string(number) +
                    "|43=Y|122=20261121-12:00:00.000" + text.substr(end));
  return *this;
}

OrderTalk& OrderTalk::loses(bool lost) {
  lost_ = lost;
  return *this;
}

void OrderTalk::report(const Order& order, const ReportText& text) {
  OrderEvent event;
  event.ev = text.ev;
  event.cl = text.ev == "replace" || text.orig.empty() ? text.name : text.orig;
  event.oid = order.id;
  event.symbol = "AAPL";
  event.side = "B";
  event.qty = order.qty;
  event.px = order.price;
  event.cum = order.cum;
  event.leaves = order.leaves;
  event.last_qty = text.last;
  event.text = text.truth_text;
  if (text.ev == "replace") event.ref = text.orig;
  decide(std::move(event));
  const std::string type(1, text.type);
  std::string wire = "35=8|37=" + (order.id == 0 ? "NONE" : std::to_string(order.id)) +
                     "|11=" + text.name + "|17=E" + std::to_string(++execs_) + "|20=0|150=" + type +
                     "|39=" + type + "|55=AAPL|54=1|38=" + std::to_string(order.qty);
  if (!text.orig.empty()) wire += "|41=" + text.orig;
  wire += "|44=" + order.price + "|32=" + std::to_string(text.last) +
          "|31=" + (text.last == 0 ? "0" : order.price) + "|151=" + std::to_string(order.leaves) +
          "|14=" + std::to_string(order.cum) + "|6=" + (order.cum == 0 ? "0" : order.price);
  if (!text.text.empty()) wire += "|58=" + text.text;
  hand_over(wire);
}

void OrderTalk::hand_over(const std::string& text) {
  const uint64_t number = next_in_++;
  sent_[number] = text;
  if (lost_) return;
  const size_t end = text.find('|');
  dialogue.exchange(text.substr(0, end) + "|34=" + std::to_string(number) +
                    (end == std::string::npos ? "" : text.substr(end)));
}

void OrderTalk::decide(OrderEvent event) {
  event.t_ns = static_cast<uint64_t>(dialogue.now() + MILLISECOND);
  dialogue.happens(Decision{std::move(event)});
}

// --- Time and the end ---

OrderTalk& OrderTalk::wait(std::chrono::milliseconds time) {
  dialogue.wait(time);
  return *this;
}

OrderTalk& OrderTalk::believes(const std::string& file, const std::string& content) {
  if (folder_.empty()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "certify-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
    folder_ = pattern;
  }
  std::ofstream(folder_ + "/" + file, std::ios::binary) << content;
  return *this;
}

OrderTalk& OrderTalk::closing() {
  dialogue.happens(Closing{"the plan's end"});
  return *this;
}

OrderTalk& OrderTalk::ends() {
  dialogue.happens(BeliefTaken{.mark = "", .folder = folder_});
  return *this;
}

std::map<std::string, Verdict> OrderTalk::verdicts() const {
  const CheckContext context{.plan = plan, .feed_session = 7, .market_truth = market_truth};
  std::vector<std::unique_ptr<Check>> checks;
  for (const auto group : {order_checks(), recovery_checks(), belief_checks()}) {
    for (const CheckKind& kind : group) checks.push_back(kind.make(kind.name, context));
  }
  checks.push_back(make_duplicates_check("session.duplicates", context));
  std::map<std::string, Verdict> verdicts;
  for (const auto& check : checks) {
    for (const Event& event : dialogue.events()) check->on_event(event);
    check->finish(dialogue.now());
    const Verdict verdict = check->verdict();
    verdicts[verdict.check] = verdict;
  }
  return verdicts;
}

std::set<std::string> OrderTalk::failures() const {
  std::set<std::string> names;
  for (const auto& [name, verdict] : verdicts()) {
    if (verdict.outcome == Outcome::FAILED) names.insert(name);
  }
  return names;
}

}  // namespace certify
