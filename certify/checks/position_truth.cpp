#include "certify/checks/position_truth.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <set>
#include <utility>

namespace certify {
namespace {

using Kind = PositionFinding::Kind;

bool is_live(BelievedState state) {
  return state == BelievedState::OPEN || state == BelievedState::PARTIAL ||
         state == BelievedState::REPLACED;
}

const char* word_of(BelievedState state) {
  switch (state) {
    case BelievedState::PENDING:
      return "pending";
    case BelievedState::FILLED:
      return "filled";
    case BelievedState::CANCELLED:
      return "cancelled";
    case BelievedState::REJECTED:
      return "rejected";
    default:
      return "open";
  }
}

/// Of the truth: OPEN, FILLED, CANCELLED or REJECTED.
BelievedState state_after(const quorl::client::OrderEvent& event) {
  if (event.ev == "cancel") return BelievedState::CANCELLED;
  if (event.ev == "reject") return BelievedState::REJECTED;
  return event.leaves == 0 ? BelievedState::FILLED : BelievedState::OPEN;
}

/// Whether some of the parts, each once, add up to the sum.
bool adds_up(const std::vector<uint32_t>& parts, uint64_t sum) {
  constexpr size_t MOST_SUMS = 4096;  // beyond, only sums of what came first are tried
  std::set<uint64_t> sums{0};
  for (const uint32_t part : parts) {
    if (sums.size() > MOST_SUMS) break;
    std::set<uint64_t> more;
    for (const uint64_t reached : sums) {
      if (reached + part <= sum) more.insert(reached + part);
    }
    sums.merge(more);
  }
  return sum > 0 && sums.contains(sum);
}

}  // namespace

PositionTruth::PositionTruth(Milliseconds grace)
    : grace_(std::chrono::nanoseconds(grace).count()) {}

void PositionTruth::on_event(const Event& event) {
  if (const auto* decision = std::get_if<Decision>(&event.what)) decide(decision->order);
  sessions_.take(event);
  const auto* heard = std::get_if<FixHeard>(&event.what);
  if (heard == nullptr) return;
  if (heard->from == Party::EXCHANGE) {
    ledger_.hear(event, comp_of(sessions_, *heard));
    if (heard->message.type() == "8") note_average(heard->message);
  } else if (is_order_message(*heard)) {
    sent_[heard->message.value(11)] = event.at;
  }
}

PositionTruth::Order& PositionTruth::order_of(const quorl::client::OrderEvent& event) {
  const auto known = by_id_.find(event.oid);
  if (event.oid != 0 && known != by_id_.end()) return orders_[known->second];
  const size_t index = orders_.size();
  if (event.oid != 0) by_id_.emplace(event.oid, index);
  by_name_[event.cl].push_back(index);
  return orders_.emplace_back(Order{event.oid, event.cl, {}});
}

void PositionTruth::decide(const quorl::client::OrderEvent& event) {
  const ReportLedger::Report report = ledger_.decide(event);
  if (event.ev == "cancel_reject" || event.ev == "replace_reject") return;
  Order& order = order_of(event);
  if (event.ev == "replace" && order.name != event.cl) {
    order.name = event.cl;
    by_name_[event.cl].push_back(static_cast<size_t>(&order - orders_.data()));
  }
  order.states.push_back({static_cast<TimeNs>(event.t_ns), report, event.cum, event.leaves,
                          event.last_qty, state_after(event)});
}

void PositionTruth::note_average(const WireMessage& report) {
  const auto id = report.number(37);
  const auto cum = report.number(14);
  if (!id || !cum || *cum == 0) return;
  Average& average = averages_[*id];
  if (average.cum > *cum) return;
  average = {static_cast<uint32_t>(*cum), std::strtod(report.value(6).c_str(), nullptr)};
}

std::vector<PositionFinding> PositionTruth::compare(const std::vector<PositionRow>& rows,
                                                    TimeNs taken) const {
  std::vector<PositionFinding> findings;
  std::vector<bool> spoken_for(orders_.size());
  for (const PositionRow& row : rows) {
    Matched matched = match(row, spoken_for, taken);
    if (matched.speaks_for_it) spoken_for[matched.order] = true;
    findings.push_back(std::move(matched.finding));
  }
  for (size_t i = 0; i < orders_.size(); ++i) {
    if (spoken_for[i]) continue;
    if (auto absent = missing(orders_[i], taken)) findings.push_back(std::move(*absent));
  }
  return findings;
}

/// Of several orders that have had the name one after the other, the one that fits.
PositionTruth::Matched PositionTruth::match(const PositionRow& row,
                                            const std::vector<bool>& spoken_for,
                                            TimeNs taken) const {
  const auto named = by_name_.find(row.name);
  if (named == by_name_.end()) return {.finding = judge_unknown(row, taken)};
  Matched best;
  bool found = false;
  for (auto index = named->second.rbegin(); index != named->second.rend(); ++index) {
    if (spoken_for[*index] && named->second.size() > 1) continue;
    Matched matched = compare_order(row, *index, taken);
    if (matched.finding.kind == Kind::RIGHT) return matched;
    if (!found) best = std::move(matched);
    found = true;
  }
  if (!found) {
    best.finding = {Kind::WRONG,
                    "line " + std::to_string(row.line) + " names " + row.name + " once more",
                    {row.text}};
  }
  return best;
}

PositionTruth::Matched PositionTruth::compare_order(const PositionRow& row, size_t index,
                                                    TimeNs taken) const {
  const Order& order = orders_[index];
  Matched matched{.finding = {}, .order = index, .speaks_for_it = true};
  const std::vector<uint32_t> repeated = repeated_fills(order);
  matched.finding.repeated = !repeated.empty();
  const std::vector<State> truth = possible(order, taken, /*told=*/false);
  const auto fits_row = [&](const State& state) { return fits(row, state); };
  const bool right_price = right_average(row, order);
  if (right_price && std::any_of(truth.begin(), truth.end(), fits_row)) return matched;
  // The line of a name that a replace has retired says little.
  if (row.name != order.name && row.leaves == 0 && !truth.empty() && row.cum <= truth.back().cum &&
      row.state != BelievedState::OPEN) {
    matched.speaks_for_it = false;
    return matched;
  }
  matched.finding.kind = Kind::WRONG;
  std::vector<State> told = possible(order, taken, /*told=*/true);
  for (const TimeNs by : {taken - grace_, taken}) told.push_back(sum_of_told(order, by));
  if (right_price && std::any_of(told.begin(), told.end(), fits_row)) {
    matched.finding.kind = Kind::UNTOLD;
  }
  const uint64_t cum = truth.empty() ? 0 : truth.back().cum;
  if (row.cum > cum && adds_up(repeated, row.cum - cum)) matched.finding.kind = Kind::TAKEN_TWICE;

  matched.finding.what = row.name + ": the client believes \"" + row.text + "\"";
  if (truth.empty()) {
    matched.finding.evidence.push_back("the exchange had not acted on it");
  } else {
    const State& last = truth.back();
    std::string fact = time_text(last.at) + "  the exchange: " + row.name + " " +
                       word_of(last.state) + ", cum " + std::to_string(last.cum) + ", leaves " +
                       std::to_string(last.leaves);
    const auto average = averages_.find(order.id);
    if (average != averages_.end() && average->second.cum == last.cum) {
      fact += ", average told " + std::to_string(average->second.price);
    }
    matched.finding.evidence.push_back(std::move(fact));
  }
  for (const uint32_t fill : repeated) {
    matched.finding.evidence.push_back("a fill of " + std::to_string(fill) +
                                       " that the client had came again with 43=Y");
  }
  return matched;
}

/// An order that the exchange never acted on: a client may wait for it, or have given it up.
PositionFinding PositionTruth::judge_unknown(const PositionRow& row, TimeNs taken) const {
  const auto sent = sent_.find(row.name);
  const bool lately = sent != sent_.end() && sent->second + grace_ >= taken;
  const bool given_up = !is_live(row.state) && row.state != BelievedState::FILLED;
  if (sent != sent_.end() && (lately || given_up) && row.cum == 0) return {};
  return {Kind::WRONG,
          row.name + ": the client believes \"" + row.text +
              "\", and the exchange has never acted on an order of that name",
          {}};
}

/// What the order was at some time of the grace before, or, for `told`, as far as it reached the
/// client.
std::vector<PositionTruth::State> PositionTruth::possible(const Order& order, TimeNs taken,
                                                          bool told) const {
  std::vector<State> states;
  bool fresh = true;  // it may not have been at all
  for (const State& state : order.states) {
    if (state.at > taken) break;
    if (told && !ledger_.reached(state.report, taken)) continue;
    const TimeNs long_ago = taken - grace_;
    const bool old = told ? ledger_.reached(state.report, long_ago) : state.at <= long_ago;
    if (old) states.clear();
    fresh = fresh && !old;
    states.push_back(state);
  }
  if (fresh) states.insert(states.begin(), State{.state = BelievedState::PENDING});
  return states;
}

/// For a client that adds up its fills and has not been told of all.
PositionTruth::State PositionTruth::sum_of_told(const Order& order, TimeNs by) const {
  State sum{.state = BelievedState::PENDING};
  for (const State& state : order.states) {
    if (state.at > by || !ledger_.reached(state.report, by)) continue;
    sum.cum += state.last_qty;
    sum.state = state.state;
    const uint64_t total = uint64_t{state.cum} + state.leaves;
    sum.leaves = is_live(state.state) && total > sum.cum ? static_cast<uint32_t>(total - sum.cum)
                                                         : state.leaves;
  }
  return sum;
}

bool PositionTruth::fits(const PositionRow& row, const State& state) const {
  if (state.state == BelievedState::PENDING) {
    return row.cum == 0 && (row.state == BelievedState::PENDING || is_live(row.state));
  }
  if (row.cum != state.cum || row.leaves != state.leaves) return false;
  if (row.state == BelievedState::CLOSED) return !is_live(state.state);
  if (is_live(row.state) != is_live(state.state)) return false;
  if (row.state == BelievedState::PARTIAL) return state.cum > 0;
  return is_live(row.state) || row.state == state.state;
}

/// The order events do not say at which price an order was filled, the last report does.
bool PositionTruth::right_average(const PositionRow& row, const Order& order) const {
  const auto told = averages_.find(order.id);
  if (!row.average || told == averages_.end() || told->second.cum != row.cum) return true;
  // Six significant digits, or whole cents, or what is exact.
  const double tolerance = 0.005 + told->second.price * 5e-6;
  return std::abs(*row.average - told->second.price) <= tolerance;
}

std::vector<uint32_t> PositionTruth::repeated_fills(const Order& order) const {
  std::vector<uint32_t> fills;
  for (const State& state : order.states) {
    if (state.last_qty == 0) continue;
    fills.insert(fills.end(), ledger_.repeats(state.report), state.last_qty);
  }
  return fills;
}

std::optional<PositionFinding> PositionTruth::missing(const Order& order, TimeNs taken) const {
  const std::vector<State> truth = possible(order, taken, /*told=*/false);
  const bool may_be_left_out = std::any_of(truth.begin(), truth.end(), [](const State& state) {
    return state.cum == 0 && !(state.state == BelievedState::OPEN);
  });
  if (truth.empty() || may_be_left_out) return std::nullopt;
  const State& last = truth.back();
  PositionFinding finding{Kind::WRONG,
                          order.name + " is " + word_of(last.state) + " with cum " +
                              std::to_string(last.cum) + " and leaves " +
                              std::to_string(last.leaves) +
                              " at the exchange, and missing in the file",
                          {},
                          false};
  const bool told = std::any_of(order.states.begin(), order.states.end(), [&](const State& state) {
    return state.at <= taken && ledger_.reached(state.report, taken - grace_);
  });
  if (!told) finding.kind = Kind::UNTOLD;
  return finding;
}

}  // namespace certify
