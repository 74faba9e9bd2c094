#include "lives/truth_witness.h"

#include <algorithm>
#include <set>

#include "bench/scenario.h"
#include "lives/broken.h"

namespace lives {
namespace {

namespace client = quorl::client;

std::string kind_of(const Composed& report) {
  if (report.type == '9') return report.value(434) == "1" ? "cancel_reject" : "replace_reject";
  switch (report.value(150)[0]) {
    case '0':
      return "new";
    case '1':
    case '2':
      return "fill";
    case '4':
      return "cancel";
    case '5':
      return "replace";
    default:
      return "reject";
  }
}

/// What a report and its line must have in common.
std::string likeness_of(const Composed& report) {
  const std::string kind = kind_of(report);
  const bool names_another = report.type == '9' || kind == "cancel";
  const std::string& named = report.value(41);
  const std::string& cl = names_another && report.fields.contains(41) ? named : report.value(11);
  std::string text = kind + " " + cl;
  if (report.type == '8') {
    text += " " + (report.value(37) == "NONE" ? "0" : report.value(37)) + " " + report.value(38) +
            " " + report.value(14) + " " + report.value(151) + " " + report.value(32);
  }
  return text;
}

std::string likeness_of(const client::OrderEvent& line) {
  std::string text = line.ev + " " + line.cl;
  if (!line.ev.ends_with("_reject")) {
    text += " " + std::to_string(line.oid) + " " + std::to_string(line.qty) + " " +
            std::to_string(line.cum) + " " + std::to_string(line.leaves) + " " +
            std::to_string(line.last_qty);
  }
  return text;
}

template <typename List>
std::vector<std::string> likenesses(const List& list) {
  std::vector<std::string> texts;
  for (const auto& entry : list) texts.push_back(likeness_of(entry));
  std::sort(texts.begin(), texts.end());
  return texts;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += "\n  " + text;
  return all;
}

}  // namespace

TruthWitness::Lines TruthWitness::take_lines() {
  const auto file = machine_.files.find(path_);
  if (file == machine_.files.end()) return {};
  const std::string_view fresh = std::string_view(file->second).substr(read_);
  read_ = file->second.size();
  return client::parse_order_events(fresh);
}

void TruthWitness::look(const std::vector<Composed>& composed, bool complete) {
  if (machine_.disk_was_full) return;  // the file has ended
  const Lines lines = take_lines();
  const std::vector<std::string> said = likenesses(composed);
  const std::vector<std::string> true_ones = likenesses(lines);
  if (complete) {
    holds(said == true_ones, "each report has its line and each line its report; reports:", [&] {
      return joined(said) + "\nlines:" + joined(true_ones);
    });
  }
  std::map<uint64_t, Lines> by_order;
  for (const client::OrderEvent& line : lines) {
    count(line);
    if (!line.ev.ends_with("reject")) by_order[line.oid].push_back(line);
  }
  for (const auto& [order_id, of_order] : by_order) follow(order_id, of_order);
  look_at_orders();
  look_at_counters();
}

void TruthWitness::count(const client::OrderEvent& line) {
  ++lines_[line.ev];
  if (line.ev == "reject" && line.text == "bench:scripted_reject") ++lines_["scripted reject"];
  if (line.ev == "cancel" && line.text == "unsolicited") ++lines_["unsolicited"];
}

/// The lines of one order in one turn. A fill that another's order has caused is told at the end of
/// the turn, when a cancel or replace of the same turn has long been told, so that only the sums
/// tell the true order.
void TruthWitness::follow(uint64_t order_id, const Lines& lines) {
  const auto said = [&] {
    std::string text = "order " + std::to_string(order_id);
    for (const client::OrderEvent& line : lines) {
      text += "\n  " + line.ev + " " + line.cl + ": " + std::to_string(line.qty) + " ordered, " +
              std::to_string(line.leaves) + " open, " + std::to_string(line.cum) + " done, " +
              std::to_string(line.last_qty) + " of these now";
    }
    return text;
  };
  const bool is_new = lines.front().ev == "new";
  const auto [found, fresh] = orders_.emplace(order_id, Life{lines.front().qty, 0, 0, false});
  holds(fresh == is_new, "an order is accepted once, and first: ", said);
  Life& order = found->second;
  holds(!order.ended, "an order has one end: ", said);

  std::set<uint64_t> sums = {order.cum};
  std::map<uint64_t, uint64_t> fills;  // shares, by the sum behind them
  unsigned ends = 0;
  for (const client::OrderEvent& line : lines) {
    if (line.ev == "fill") {
      holds(line.last_qty > 0, "a fill has shares: ", said);
      holds(fills.emplace(line.cum, line.last_qty).second, "a fill is told once: ", said);
    } else {
      holds(line.last_qty == 0, "only a fill has shares: ", said);
    }
    if (line.ev == "new") {
      holds(line.cum == 0 && line.leaves == line.qty, "a new order is open: ", said);
    }
    if (line.ev == "cancel") {
      holds(line.leaves == 0, "nothing is open of what has ended: ", said);
      ++ends;
    } else {
      holds(line.leaves + line.cum == line.qty, "ordered = open + done: ", said);
    }
    if (line.ev == "replace") order.qty = line.qty;
  }
  for (const auto& [cum, shares] : fills) {
    holds(cum == order.cum + shares, "fills add up: ", said);
    order.cum = cum;
    sums.insert(cum);
  }
  for (const client::OrderEvent& line : lines) {
    holds(sums.contains(line.cum), "what is done are the fills: ", said);
  }
  order.leaves = ends > 0 ? 0 : order.qty - order.cum;
  if (ends == 0 && order.leaves == 0) ++ends;
  holds(ends <= 1, "an order has one end: ", said);
  order.ended = ends == 1;
}

void TruthWitness::look_at_orders() const {
  size_t resting = 0;
  for (const auto& [id, order] : orders_) {
    const quorl::RestingOrder* const rests = engine_.orders.find(id);
    const auto said = [id = id] { return "order " + std::to_string(id); };
    if (order.ended || order.leaves == 0) {
      holds(rests == nullptr, "what has ended does not rest: ", said);
      continue;
    }
    ++resting;
    holds(rests != nullptr, "an accepted order has an end, or rests: ", said);
    holds(rests->qty == order.qty && rests->cum == order.cum && rests->leaves == order.leaves,
          "it rests as its owner was told: ", said);
  }
  size_t of_clients = 0;
  engine_.orders.for_each(
      [&](const quorl::RestingOrder& order) { of_clients += order.owner.empty() ? 0 : 1; });
  holds(of_clients == resting, "no client's order rests that was not accepted");
}

void TruthWitness::look_at_counters() const {
  const quorl::BenchCounters& counters = engine_.scenario->counters;
  const auto count = [this](const char* kind) {
    const auto found = lines_.find(kind);
    return found == lines_.end() ? uint64_t{0} : found->second;
  };
  const auto equal = [](uint64_t counted, uint64_t seen, const char* name) {
    holds(counted == seen, "the counter ", name, " is what was seen: ", counted, " and ", seen);
  };
  equal(counters.accepts, count("new"), "accepts");
  equal(counters.fills, count("fill"), "fills");
  equal(counters.replaces, count("replace"), "replaces");
  equal(counters.rejects, count("scripted reject"), "rejects");
  equal(counters.orders, count("new") + count("scripted reject"), "orders");
  equal(counters.cancels, count("cancel") - count("unsolicited"), "cancels");
  equal(counters.unsolicited_cancels, count("unsolicited"), "unsolicited_cancels");
  equal(counters.cancel_rejects, count("cancel_reject"), "cancel_rejects");
  equal(counters.replace_rejects, count("replace_reject"), "replace_rejects");
}

}  // namespace lives
